// The façade's upload commands (multipart to the host's URL, object storage and VOD through the
// bridge) and the commands that share or save an image from a URL.
#include <mutex>

#include "api/ImageDecoder.h"
#include "api/QuorvaneApiManager.h"
#include "foundation/dispatch.h"
#include "foundation/http_client.h"
#include "foundation/temp_files.h"
#include "platform/activity_view_controller.h"
#include "platform/photo_library.h"
#include "upload_bridge/ApiOSSUploadTool.h"
#include "upload_bridge/UploadPaths.h"

namespace quorvane {
namespace {

std::string stringParam(const Value& params, const char* key) {
    if (!params.is_object() || !params.contains(key)) return "";
    const Value& value = params[key];
    return value.is_string() ? value.get<std::string>() : (value.is_null() ? "" : foundation::toJsonText(value));
}

Value dictionaryParam(const Value& params, const char* key) {
    if (!params.is_object() || !params.contains(key) || !params[key].is_object()) return Value::object();
    return params[key];
}

struct FileKind {
    int mediaType;
    const char* partFileName;  // the bare suffix, not the file's own name
};

FileKind fileKindOf(const std::string& fileType) {
    if (fileType == "Video") return {MediaTypeVideo, ".mp4"};
    if (fileType == "Audio") return {MediaTypeAudio, ".mp3"};
    return {MediaTypeImage, ".jpg"};
}

std::mutex servicesMutex;
ApiOSSUploadTool::Config& installedServices() {
    static ApiOSSUploadTool::Config services;
    return services;
}

ApiOSSUploadTool::Config uploadServices() {
    std::lock_guard lock(servicesMutex);
    return installedServices();
}

std::optional<std::string> download(const std::string& url) {
    if (url.starts_with("file://")) return foundation::readFile(url.substr(7));
    if (!url.starts_with("http://") && !url.starts_with("https://")) return std::nullopt;
    foundation::HttpRequest request;
    request.url = url;
    auto result = foundation::HttpClient::shared()->sendSync(std::move(request));
    if (!result.ok()) return std::nullopt;
    return std::move(result.response.body);
}

}  // namespace

void QuorvaneApiManager::uploadFile(const Value& params, Controller controller, SuccessCallback successCallback,
                                    FailCallback failCallback) {
    const std::string url = stringParam(params, "url");
    const std::string name = stringParam(params, "name");
    const std::string filePath = stringParam(params, "filePath");
    const Value header = dictionaryParam(params, "header");
    const Value formData = dictionaryParam(params, "formData");
    const FileKind kind = fileKindOf(stringParam(params, "fileType"));
    auto fileName = mediaFileName(filePath);
    std::string localPath = getfilePathFromSandboxTmpWithMiddleDir(kMediaDirectory, fileName.value_or(""));
    auto bytes = fileName ? foundation::readFile(localPath) : std::nullopt;
    if (!bytes) return failCallback(kErrorWordFileNotExists);
    auto hud = controller ? controller->showHUD(true) : nullptr;
    postRequestWithUrl(
        url, formData, *bytes, name, kind.partFileName, kind.mediaType, header,
        [hud, localPath, successCallback, failCallback](const Value& data, const std::string&, const std::optional<Error>&) {
            if (hud) hud->hide(true);
            // Only a dictionary is an answer; anything else (no JSON, an array, a number) is a failed
            // request and the file stays for a retry.
            if (!data.is_object()) return failCallback(kErrorWordRequestFailed);
            deleteSandboxFile("file://" + localPath);
            successCallback(data);
        },
        [](const Progress&) {});
}

void QuorvaneApiManager::setUploadServices(ApiOSSUploadTool::Config services) {
    std::lock_guard lock(servicesMutex);
    installedServices() = std::move(services);
}

void QuorvaneApiManager::OSSUploadFile(const Value& params, Controller, SuccessCallback successCallback,
                                       FailCallback failCallback) {
    auto tool = ApiOSSUploadTool::create(uploadServices());
    const std::string type = stringParam(params, "type");
    auto success = [successCallback](const Value& result) { successCallback(result); };
    auto fail = [failCallback](const Value& failure) { failCallback(failure); };
    if (type == "image") tool->simpleUploadMany(params, success, fail);
    else if (type == "video") tool->VODUploadFile(params, success, fail);
}

void QuorvaneApiManager::shareUniversal(const Value& params, Controller controller, ShareCallback callback) {
    const std::string title = stringParam(params, "title");
    const std::string logo = stringParam(params, "logo");
    const std::string link = stringParam(params, "url");
    std::vector<platform::ActivityItem> items;
    if (!title.empty()) items.push_back({platform::ActivityItem::Kind::Text, title, nullptr});
    if (!logo.empty())
        if (auto image = getImageFromUrlStr(logo)) items.push_back({platform::ActivityItem::Kind::Image, "", image});
    if (!link.empty()) items.push_back({platform::ActivityItem::Kind::URL, link, nullptr});
    auto sheet = std::make_shared<platform::ActivityViewController>(std::move(items));
    sheet->setExcludedActivityTypes({platform::UIActivityTypePrint, platform::UIActivityTypeCopyToPasteboard,
                                     platform::UIActivityTypeAssignToContact,
                                     platform::UIActivityTypeSaveToCameraRoll});
    sheet->setCompletionWithItemsHandler(
        [callback](const std::optional<std::string>& activityType, bool completed) { callback(activityType, completed); });
    if (controller) controller->present(sheet, true, nullptr);
}

void QuorvaneApiManager::saveImage(const std::optional<std::string>& imageUrl, Controller withController) {
    auto image = getImageFromUrlStr(imageUrl);
    if (!image) return;
    platform::PhotoLibrary::sharedPhotoLibrary()->creationRequestForAssetFromImage(
        image, [withController](bool success, const std::optional<Error>&) {
            foundation::dispatch::main().async([withController, success] {
                showMBProgressHUDWithContent(success ? "已保存到相册" : "保存失败，请检查相册访问权限", 2.0, withController);
            });
        });
}

platform::ImagePtr QuorvaneApiManager::getImageFromUrlStr(const std::optional<std::string>& url) {
    if (!url) return nullptr;
    auto bytes = download(*url);
    return bytes ? imageWithData(*bytes) : nullptr;
}

}  // namespace quorvane
