// The façade's HTTP helpers: its session object and the multipart file POST.
#include "api/QuorvaneApiManager.h"

namespace quorvane {
namespace {

std::optional<std::string> contentTypeOf(int mediaType) {
    switch (mediaType) {
    case MediaTypeImage: return "image/jpg";
    case MediaTypeVideo: return "video/mp4";
    case MediaTypeAudio: return "audio/mp3";
    default: return std::nullopt;
    }
}

std::string headerText(const Value& value) {
    return value.is_string() ? value.get<std::string>() : foundation::toJsonText(value);
}

}  // namespace

std::shared_ptr<HttpSessionManager> QuorvaneApiManager::pubManager() {
    return std::make_shared<HttpSessionManager>();
}

void QuorvaneApiManager::postRequestWithUrl(const std::string& url, const Value& requestParam,
                                            const std::string& data, const std::string& name,
                                            const std::string& fileName, int mediaType, const Value& header,
                                            ReponseData reponseData, ProgressCallback progress) {
    auto manager = pubManager();
    manager->setValue("zh_cn", "lang");
    manager->setValue("multipart/form-data", "Content-Type");
    std::vector<foundation::FormPart> fileParts;
    if (auto contentType = contentTypeOf(mediaType)) {
        foundation::FormPart part;
        part.name = name;
        part.value = data;
        part.fileName = fileName;
        part.contentType = contentType;
        fileParts.push_back(std::move(part));
    }
    auto request = manager->multipartRequest(url, requestParam, std::move(fileParts));
    // The caller's headers go on as given, empty values included.
    if (header.is_object())
        for (const auto& item : header.items())
            if (!item.value().is_null()) HttpSessionManager::setHeader(request.headers, headerText(item.value()), item.key());
    manager->dataTask(
        std::move(request),
        [manager, reponseData](SessionResult result) {
            if (!reponseData) return;
            if (result.error) reponseData(nullptr, "failure", result.error);  // the error body is not read
            else reponseData(HttpSessionManager::JSONObjectFromBody(result.body), "success", std::nullopt);
        },
        progress);
}

}  // namespace quorvane
