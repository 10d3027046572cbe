// The bridge's HTTP helpers: its session object, the JSON GET and the raw-body POST.
#include "upload_bridge/ApiOSSUploadTool.h"

namespace quorvane {

std::shared_ptr<HttpSessionManager> ApiOSSUploadTool::pubManager() { return pubManager(nullptr); }

std::shared_ptr<HttpSessionManager> ApiOSSUploadTool::pubManager(std::shared_ptr<foundation::HttpClient> client) {
    return std::make_shared<HttpSessionManager>(std::move(client));
}

void ApiOSSUploadTool::getRequestWithUrl(const std::string& url, const Value& requestParam, ReponseData reponseData) {
    getRequestWithUrl(url, requestParam, std::move(reponseData), nullptr);
}

void ApiOSSUploadTool::getRequestWithUrl(const std::string& url, const Value& requestParam, ReponseData reponseData,
                                         std::shared_ptr<foundation::HttpClient> client) {
    auto manager = pubManager(std::move(client));
    manager->setValue("zh_cn", "lang");
    manager->setValue("application/json", "Content-Type");
    manager->dataTask(manager->requestWithMethod("GET", url, requestParam), [manager, reponseData](SessionResult result) {
        if (!reponseData) return;
        if (result.error) reponseData(nullptr, "failure", result.error);
        else reponseData(HttpSessionManager::JSONObjectFromBody(result.body), "success", std::nullopt);
    });
}

void ApiOSSUploadTool::postRequestWithUrl(const std::string& url, const Value& requestParam,
                                          const std::string& bodyFromData, bool needJsonContentType,
                                          const Value& header, ReponseData reponseData) {
    postRequestWithUrl(url, requestParam, bodyFromData, needJsonContentType, header, std::move(reponseData), nullptr);
}

void ApiOSSUploadTool::postRequestWithUrl(const std::string& url, const Value& requestParam,
                                          const std::string& bodyFromData, bool needJsonContentType,
                                          const Value& header, ReponseData reponseData,
                                          std::shared_ptr<foundation::HttpClient> client) {
    auto manager = pubManager(std::move(client));
    manager->setValue("zh_cn", "lang");
    if (needJsonContentType) manager->setValue("application/json", "Content-Type");
    if (header.is_object())
        for (const auto& item : header.items()) {
            const Value& value = item.value();
            std::string text = value.is_string()  ? value.get<std::string>()
                               : value.is_null() ? ""
                                                 : foundation::toJsonText(value);
            if (!text.empty()) manager->setValue(text, item.key());
        }
    auto request = manager->requestWithMethod("POST", url, requestParam);
    request.body = foundation::makeStringBody(bodyFromData);  // the caller's bytes replace the encoded parameters
    manager->dataTask(std::move(request), [manager, reponseData](SessionResult result) {
        if (!reponseData) return;
        // The server's error document reaches the caller with the failure.
        Value data = HttpSessionManager::JSONObjectFromBody(result.body);
        if (result.error) reponseData(data, "failure", result.error);
        else reponseData(data, "success", std::nullopt);
    });
}

}  // namespace quorvane
