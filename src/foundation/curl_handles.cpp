#include "foundation/curl_handles.h"

#include <mutex>

#include "foundation/http_client.h"

namespace quorvane::foundation::curl {

void ensureGlobalInit() {
    static std::once_flag once;
    std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

Error makeError(const char* call, CURLcode code) {
    return Error(kHttpErrorDomain, static_cast<long long>(code), std::string(call) + ": " + curl_easy_strerror(code));
}

Error makeMultiError(const char* call, CURLMcode code) {
    return Error(kHttpErrorDomain, static_cast<long long>(code), std::string(call) + ": " + curl_multi_strerror(code));
}

bool append(Slist& list, const std::string& line) {
    curl_slist* next = curl_slist_append(list.get(), line.c_str());
    if (!next) return false;
    list.release();
    list.reset(next);
    return true;
}

}  // namespace quorvane::foundation::curl
