#include "VODUpload/src/AVCVEventManager.h"

#include <chrono>
#include <cmath>

#include "VODUpload/src/AVCVEventTransport.h"
#include "VODUpload/src/AVCVHelper.h"
#include "VODUpload/src/AVCVSystemInfo.h"

namespace quorvane {

std::shared_ptr<AVCVEventManager> AVCVEventManager::sharedManager() {
    static const auto manager = std::make_shared<AVCVEventManager>();
    return manager;
}

AVCVEventManager::AVCVEventManager() : requestID_(generateUUID()) {}

std::shared_ptr<AVCVEventManager> AVCVEventManager::newInstance(const std::string& logstore) const {
    auto manager = std::make_shared<AVCVEventManager>();
    manager->setEnabled(enabled());
    manager->setLogstore(logstore);
    manager->setTransport(transport());
    std::lock_guard lock(mutex_);
    manager->endpoint_ = endpoint_;
    return manager;
}

void AVCVEventManager::refreshRequestID() { setRequestID(generateUUID()); }

void AVCVEventManager::sendEvent(long long eventNumber, const Value& params) {
    sendEvent(eventNumber, params, Value());
}

void AVCVEventManager::sendEvent(long long eventNumber, const Value& params, const Value& commonParams) {
    if (!enabled()) return;
    if (endpoint().empty()) return;  // no log service configured: nowhere to send
    transport()->send(eventUrl(eventNumber, params, commonParams));
}

std::string AVCVEventManager::eventUrl(long long eventNumber, const Value& params, const Value& commonParams) const {
    Value all = defaultParams();
    if (commonParams.is_object())
        for (auto it = commonParams.begin(); it != commonParams.end(); ++it) all[it.key()] = it.value();
    // The event's own parameters travel as one escaped block.
    const std::string args = params.is_object() ? stringUrlEncode(urlEncodingWithDict(params)) : std::string();
    all["args"] = args;
    all["e"] = eventNumber;
    return eventHostUrl() + "&" + urlEncodingWithDict(all);
}

Value AVCVEventManager::defaultParams() const {
    Value params = Value::object();
    params["t"] = stringUrlEncode(getTimeStamp());
    params["ll"] = "debug";
    params["lv"] = stringUrlEncode(getlogVersion());
    params["hn"] = stringUrlEncode("0.0.0.0");
    params["bi"] = "";
    params["ri"] = stringUrlEncode(requestID());
    params["app_id"] = stringUrlEncode(AVCVSystemInfo::bundleId());
    params["tt"] = stringUrlEncode(AVCVSystemInfo::terminalType());
    params["dm"] = stringUrlEncode(AVCVSystemInfo::deviceModel());
    params["uuid"] = stringUrlEncode(AVCVSystemInfo::deviceUUID());
    params["ua"] = "";
    params["dn"] = "";
    params["cdn_ip"] = "";
    params["r"] = "aliyun";
    params["app_n"] = stringUrlEncode(AVCVSystemInfo::appDisplayName());
    params["uat"] = "";
    params["os"] = "iOS";
    params["ov"] = stringUrlEncode(AVCVSystemInfo::systemVersion());
    params["co"] = deviceNetwork();
    return params;
}

std::string AVCVEventManager::eventHostUrl() const {
    std::string endpoint = this->endpoint();
    if (endpoint.find("://") == std::string::npos) endpoint = "https://" + endpoint;
    while (!endpoint.empty() && endpoint.back() == '/') endpoint.pop_back();
    return endpoint + "/logstores/" + logstore() + "/track?APIVersion=0.6.0";
}

std::string AVCVEventManager::urlEncodingWithDict(const Value& dict) {
    std::string query;
    if (!dict.is_object()) return query;
    for (auto it = dict.begin(); it != dict.end(); ++it) {
        if (!query.empty()) query.push_back('&');
        query += it.key() + "=" + alivcToString(it.value());
    }
    return query;
}

std::string AVCVEventManager::alivcToString(const Value& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_null()) return "";
    if (value.is_boolean()) return value.get<bool>() ? "1" : "0";
    if (value.is_number_float()) {
        const double number = value.get<double>();
        // Whole numbers print without a fraction, as the number's default text does.
        if (std::isfinite(number) && number == std::trunc(number) && std::fabs(number) < 1e15)
            return std::to_string(static_cast<long long>(number));
    }
    return foundation::toJsonText(value);
}

std::string AVCVEventManager::stringUrlEncode(const std::optional<std::string>& text) {
    return AVCVHelper::urlEncode(text);
}

std::string AVCVEventManager::generateUUID() { return AVCVHelper::randomUUID(); }

std::string AVCVEventManager::getlogVersion() { return "1"; }

std::string AVCVEventManager::getTimeStamp() {
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return std::to_string(static_cast<long long>(millis.count()));
}

std::string AVCVEventManager::deviceNetwork() {
    return AVCVSystemInfo::deviceNetwrok() == "Wifi" ? "wifi" : "cellnetwork";
}

std::string AVCVEventManager::requestID() const {
    std::lock_guard lock(mutex_);
    return requestID_;
}

void AVCVEventManager::setRequestID(std::string requestID) {
    std::lock_guard lock(mutex_);
    requestID_ = std::move(requestID);
}

std::string AVCVEventManager::logstore() const {
    std::lock_guard lock(mutex_);
    return logstore_;
}

void AVCVEventManager::setLogstore(std::string logstore) {
    std::lock_guard lock(mutex_);
    logstore_ = std::move(logstore);
}

void AVCVEventManager::setEndpoint(std::string endpoint) {
    std::lock_guard lock(mutex_);
    endpoint_ = std::move(endpoint);
}

std::string AVCVEventManager::endpoint() const {
    std::lock_guard lock(mutex_);
    return endpoint_;
}

std::shared_ptr<AVCVEventTransport> AVCVEventManager::transport() const {
    std::lock_guard lock(mutex_);
    return transport_ ? transport_ : AVCVEventTransport::shared();
}

void AVCVEventManager::setTransport(std::shared_ptr<AVCVEventTransport> transport) {
    std::lock_guard lock(mutex_);
    transport_ = std::move(transport);
}

}  // namespace quorvane
