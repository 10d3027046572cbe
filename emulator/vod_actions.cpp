// VOD OpenAPI actions that hand out upload addresses and credentials for the emulator's own OSS.
#include <set>

#include "emulator/vod_service.h"

namespace quorvane::emulator {
namespace {

std::string extensionOf(const std::string& fileName) {
    auto dot = fileName.rfind('.');
    if (dot == std::string::npos || dot + 1 == fileName.size() || fileName.find('/', dot) != std::string::npos) return "";
    return toLower(fileName.substr(dot + 1));
}

bool mediaExtension(const std::string& ext) {
    static const std::set<std::string> known = {"mp4", "mov", "flv", "avi", "mkv", "wmv", "mpg", "mpeg", "m4v", "3gp",
                                                "3g2", "ts", "mts", "webm", "asf", "rm", "rmvb", "f4v", "vob", "m3u8",
                                                "mp3", "wav", "m4a", "aac", "wma", "ogg", "flac", "amr", "ape"};
    return known.count(ext) > 0;
}

std::string base64Json(const Value& json) { return foundation::base64Encode(json.dump()); }

std::string uploadAuth(const CloudEmulator::Impl& impl, const StsCredentials& c) {
    return base64Json({{"SecurityToken", c.SecurityToken},
                       {"AccessKeyId", c.AccessKeyId},
                       {"ExpireUTCTime", c.Expiration},
                       {"AccessKeySecret", c.AccessKeySecret},
                       {"Expiration", std::to_string(impl.options.stsTtl.count())},
                       {"Region", impl.options.region}});
}

std::string uploadAddress(const CloudEmulator::Impl& impl, const std::string& bucket, const std::string& key) {
    return base64Json({{"Endpoint", impl.endpoint()}, {"Bucket", bucket}, {"FileName", key}});
}

}  // namespace

VodUploadTicket CloudEmulator::Impl::newVideoTicket(const std::string& title, const std::string& fileName,
                                                    const Value& params, const std::string& source) {
    VodUploadTicket t;
    t.videoId = randomHex(32, false);
    auto ext = extensionOf(fileName);
    auto stem = randomHex(8, false) + "-" + randomHex(11, false);
    t.bucket = options.bucket;
    t.objectKey = "sv/" + stem + "/" + stem + "." + (ext.empty() ? "mp4" : ext);
    t.credentials = sts.issue(now(), options.stsTtl);
    t.uploadAuth = uploadAuth(*this, t.credentials);
    t.uploadAddress = uploadAddress(*this, t.bucket, t.objectKey);
    std::lock_guard lock(mutex);
    videos.push_back({t.videoId, title, fileName, t.bucket, t.objectKey, params, 0, source});
    return t;
}

void createUploadVideo(Exchange& ex, const Params& params, const Pairs& pairs) {
    auto title = required(ex, params, "Title");
    if (!title) return;
    auto fileName = required(ex, params, "FileName");
    if (!fileName) return;
    if (!mediaExtension(extensionOf(*fileName)))
        return vodError(ex, 400, "InvalidFileName.Extension", "The file extension is not supported.");
    if (params.count("FileSize") && params.at("FileSize").find_first_not_of("0123456789") != std::string::npos)
        return vodError(ex, 400, "InvalidParameter", "The specified parameter \"FileSize\" is not valid.");
    auto t = ex.impl.newVideoTicket(*title, *fileName, paramsToJson(pairs), "CreateUploadVideo");
    vodAnswer(ex, {{"RequestId", newUuid()}, {"VideoId", t.videoId}, {"UploadAddress", t.uploadAddress},
                   {"UploadAuth", t.uploadAuth}});
}

void refreshUploadVideo(Exchange& ex, const Params& params) {
    auto videoId = required(ex, params, "VideoId");
    if (!videoId) return;
    std::optional<VodVideo> video;
    {
        std::lock_guard lock(ex.impl.mutex);
        for (auto& v : ex.impl.videos)
            if (v.videoId == *videoId) video = (++v.refreshCount, v);
    }
    if (!video) return vodError(ex, 404, "InvalidVideo.NotFound", "The video does not exist.");
    auto creds = ex.impl.sts.issue(ex.impl.now(), ex.impl.options.stsTtl);
    vodAnswer(ex, {{"RequestId", newUuid()}, {"VideoId", video->videoId},
                   {"UploadAddress", uploadAddress(ex.impl, video->bucket, video->objectKey)},
                   {"UploadAuth", uploadAuth(ex.impl, creds)}});
}

void createUploadImage(Exchange& ex, const Params& params, const Pairs& pairs) {
    auto type = required(ex, params, "ImageType");
    if (!type) return;
    static const std::set<std::string> types = {"default", "cover", "watermark"};
    if (!types.count(*type))
        return vodError(ex, 400, "InvalidParameter", "The specified parameter \"ImageType\" is not valid.");
    auto ext = params.count("ImageExt") ? toLower(params.at("ImageExt")) : std::string("png");
    static const std::set<std::string> exts = {"png", "jpg", "jpeg", "gif"};
    if (!exts.count(ext))
        return vodError(ex, 400, "InvalidParameter", "The specified parameter \"ImageExt\" is not valid.");
    VodImage image;
    image.imageId = randomHex(32, false);
    image.imageType = *type;
    image.imageExt = ext;
    image.bucket = ex.impl.options.bucket;
    image.objectKey = "image/" + *type + "/" + image.imageId + "-6-2." + ext;
    image.imageURL = ex.impl.endpoint() + "/" + image.bucket + "/" + image.objectKey;
    image.params = paramsToJson(pairs);
    auto creds = ex.impl.sts.issue(ex.impl.now(), ex.impl.options.stsTtl);
    {
        std::lock_guard lock(ex.impl.mutex);
        ex.impl.images.push_back(image);
    }
    vodAnswer(ex, {{"RequestId", newUuid()}, {"ImageId", image.imageId}, {"ImageURL", image.imageURL},
                   {"FileURL", image.imageURL}, {"UploadAddress", uploadAddress(ex.impl, image.bucket, image.objectKey)},
                   {"UploadAuth", uploadAuth(ex.impl, creds)}});
}

}  // namespace quorvane::emulator
