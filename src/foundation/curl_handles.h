#pragma once
// RAII owners for libcurl handles and the one place a CURLcode becomes an Error. Internal to
// the foundation library: nothing above it includes this header.
#include <curl/curl.h>

#include <memory>
#include <string>

#include "foundation/error.h"

namespace quorvane::foundation::curl {

struct EasyDeleter {
    void operator()(CURL* h) const { curl_easy_cleanup(h); }
};
struct MultiDeleter {
    void operator()(CURLM* h) const { curl_multi_cleanup(h); }
};
struct SlistDeleter {
    void operator()(curl_slist* l) const { curl_slist_free_all(l); }
};
struct MimeDeleter {
    void operator()(curl_mime* m) const { curl_mime_free(m); }
};
struct UrlDeleter {
    void operator()(CURLU* u) const { curl_url_cleanup(u); }
};

using Easy = std::unique_ptr<CURL, EasyDeleter>;
using Multi = std::unique_ptr<CURLM, MultiDeleter>;
using Slist = std::unique_ptr<curl_slist, SlistDeleter>;
using Mime = std::unique_ptr<curl_mime, MimeDeleter>;
using Url = std::unique_ptr<CURLU, UrlDeleter>;

// curl_global_init, once per process (never cleaned up: other threads may still use curl at exit).
void ensureGlobalInit();

// Error{kHttpErrorDomain, code, "<call>: <curl text>"}.
Error makeError(const char* call, CURLcode code);
Error makeMultiError(const char* call, CURLMcode code);

// Appends to an slist, keeping ownership in `list`. Returns false when curl could not allocate.
bool append(Slist& list, const std::string& line);

}  // namespace quorvane::foundation::curl
