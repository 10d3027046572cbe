#include "VODUpload/src/VODInnerApi.h"

#include <chrono>
#include <cstdio>

#include "VODUpload/src/AVCVHelper.h"
#include "VODUpload/src/AVCVSystemInfo.h"
#include "VODUpload/src/VODDateFormat.h"
#include "VODUpload/src/VODOpenApi.h"
#include "VODUpload/src/VODUploadModel.h"
#include "foundation/dates.h"
#include "foundation/http_client.h"
#include "platform/platform.h"

namespace quorvane {
namespace {

// Mixed into AuthInfo; the service knows it too.
constexpr const char* kAuthInfoKey = "Kq7TzR*2VmLp84Hd";
// A fixed placeholder, not a user's credential: it signs the form and is sent as its AccessKeyId.
constexpr const char* kPlaceholderKeyId = "QZKP";

std::string secondsText(foundation::SystemTime now) {
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
    return std::to_string(static_cast<long long>(seconds));
}

// A single-precision number as it prints: at most seven significant digits.
std::string floatText(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.7g", static_cast<double>(value));
    return text;
}

void mergeInto(Value& target, const Value& extra) {
    for (auto it = extra.begin(); it != extra.end(); ++it) target[it.key()] = it.value();
}

// Signs the parameters (the query is signed as it is, not encoded again) and POSTs the form.
void postSigned(const std::string& region, const Value& params, foundation::HttpCompletion completion,
                const VODServiceConfig& config) {
    std::string query = AVCVHelper::urlEncodeStringFromDict(params);
    std::string stringToSign = "POST&" + AVCVHelper::percentEncode("/") + "&" + query;
    std::string signature = AVCVHelper::hmacSha1(std::string(kPlaceholderKeyId) + "&", stringToSign);
    std::string body = query + "&" + AVCVHelper::percentEncode("Signature") + "=" + AVCVHelper::percentEncode(signature);

    foundation::HttpRequest request;
    request.method = "POST";
    request.url = config.urlForRegion(region);
    request.headers.emplace_back("Content-type", "application/x-www-form-urlencoded");
    request.body = foundation::makeStringBody(std::move(body));
    request.caFile = config.caFile;
    request.idleTimeoutSeconds = config.effectiveIdleTimeoutSeconds();
    request.connectTimeoutSeconds = config.effectiveIdleTimeoutSeconds();
    config.client()->send(std::move(request), std::move(completion));
}

// The first "VideoId" of "UploadProgress"."UploadProgressList", when it is a non-empty text.
std::optional<std::string> firstVideoId(const Value& reply) {
    if (!reply.is_object()) return std::nullopt;
    auto progress = reply.find("UploadProgress");
    if (progress == reply.end() || !progress->is_object()) return std::nullopt;
    auto list = progress->find("UploadProgressList");
    if (list == progress->end() || !list->is_array() || list->empty()) return std::nullopt;
    auto videoId = foundation::stringAt(list->front(), "VideoId");
    if (!videoId || videoId->empty()) return std::nullopt;
    return videoId;
}

}  // namespace

std::string VODInnerApi::getTerminalType() {
    auto device = platform::Platform::current().device;
    if (!device) return "iPhone";
    std::string model = device->model();
    if (model.find("iPhone") != std::string::npos) return "iPhone";
    if (model.find("iPad") != std::string::npos) return "iPad";
    return "iPhone";
}

Value VODInnerApi::defaultParams() {
    Value params = Value::object();
    params["Source"] = "iOSSDK";
    params["ClientId"] = AVCVSystemInfo::deviceUUID();
    params["BusinessType"] = "UploadVideo";
    params["TerminalType"] = getTerminalType();
    params["DeviceModel"] = AVCVSystemInfo::deviceModel();
    params["AppVersion"] = VODUploadSDKVersion;
    params["Version"] = "2017-03-14";
    params["SignatureMethod"] = "HMAC-SHA1";
    params["SignatureVersion"] = "1.0";
    params["SignatureNonce"] = AVCVHelper::randomUUID();
    return params;
}

void VODInnerApi::reportUploadProgress(const VODInnerFileInfo& fileInfo, float uploadRatio, long partSize,
                                       long donePartsCount, const std::string& uploadId, const std::string& videoId,
                                       const std::string& uploadAddress, const std::string& region,
                                       VODInnerReportHandler completeHandler) {
    reportUploadProgress(fileInfo, uploadRatio, partSize, donePartsCount, uploadId, videoId, uploadAddress, region,
                         std::move(completeHandler), VODServiceConfig{});
}

void VODInnerApi::reportUploadProgress(const VODInnerFileInfo& fileInfo, float uploadRatio, long partSize,
                                       long donePartsCount, const std::string& uploadId, const std::string& videoId,
                                       const std::string& uploadAddress, const std::string& region,
                                       VODInnerReportHandler completeHandler, const VODServiceConfig& config) {
    const auto now = std::chrono::system_clock::now();
    const std::string seconds = secondsText(now);
    const std::string authInfo =
        AVCVHelper::md5WithString(AVCVSystemInfo::deviceUUID() + "|" + kAuthInfoKey + "|" + seconds);

    Value params = defaultParams();
    mergeInto(params, Value{{"Action", "ReportUploadProgress"},
                            {"AuthInfo", authInfo},
                            {"FileName", fileInfo.fileName},
                            {"FileSize", fileInfo.fileSize},
                            {"FileCreateTime", fileInfo.fileCreateTime},
                            {"FileHash", fileInfo.fileHash},
                            {"AuthTimestamp", seconds},
                            {"Timestamp", vodDateString(now, true)},
                            {"UploadRatio", floatText(uploadRatio)},
                            {"UploadId", uploadId},
                            {"PartSize", std::to_string(partSize)},
                            {"UploadPoint", ""},
                            {"DonePartsCount", std::to_string(donePartsCount)},
                            {"UploadAddress", uploadAddress},
                            {"Format", "JSON"}});
    if (!videoId.empty()) params["VideoId"] = videoId;

    postSigned(region, params, [handler = std::move(completeHandler)](foundation::HttpResult result) {
        if (!handler) return;
        // The answer is parsed and dropped: the service's reply does not change anything here.
        std::optional<Error> ignored;
        if (result.ok()) (void)parseVodReply(result.response.body, ignored);
        handler(std::move(result.error));
    }, config);
}

void VODInnerApi::getUploadProgress(const VODInnerFileInfo& fileInfo, const std::string& region,
                                    VODInnerProgressHandler completeHandler) {
    getUploadProgress(fileInfo, region, std::move(completeHandler), VODServiceConfig{});
}

void VODInnerApi::getUploadProgress(const VODInnerFileInfo& fileInfo, const std::string& region,
                                    VODInnerProgressHandler completeHandler, const VODServiceConfig& config) {
    const auto now = std::chrono::system_clock::now();
    const std::string seconds = secondsText(now);
    const std::string authInfo = AVCVHelper::md5WithString(std::string(kAuthInfoKey) + "|" + seconds);

    Value params = defaultParams();
    mergeInto(params, Value{{"Action", "GetUploadProgress"},
                            {"AuthInfo", authInfo},
                            {"AuthTimestamp", seconds},
                            {"Timestamp", foundation::iso8601Utc(now)},
                            {"UploadInfoList", "[" + fileInfo.toUrlString() + "]"},
                            {"AccessKeyId", kPlaceholderKeyId},
                            {"Format", "JSON"}});

    postSigned(region, params, [handler = std::move(completeHandler)](foundation::HttpResult result) {
        if (!handler) return;
        if (!result.ok()) return handler(std::nullopt, std::move(result.error));
        std::optional<Error> parseError;
        auto reply = parseVodReply(result.response.body, parseError);
        if (!reply) return handler(std::nullopt, std::move(parseError));
        handler(firstVideoId(*reply), std::nullopt);
    }, config);
}

}  // namespace quorvane
