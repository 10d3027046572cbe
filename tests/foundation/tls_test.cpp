#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <cstdio>

#include "foundation/http_client.h"
#include "foundation/temp_files.h"
#include "http_test_server.h"

using namespace quorvane::foundation;
using quorvane::test::TestServer;

namespace {

bool addExtension(X509* cert, int nid, const char* value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value);
    if (!ext) return false;
    bool ok = X509_add_ext(cert, ext, -1) == 1;
    X509_EXTENSION_free(ext);
    return ok;
}

// A throw-away self-signed certificate for 127.0.0.1, written as PEM files.
bool writeSelfSigned(const std::string& certPath, const std::string& keyPath) {
    EVP_PKEY* key = EVP_EC_gen("prime256v1");
    X509* cert = X509_new();
    bool ok = key && cert;
    if (ok) {
        X509_set_version(cert, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
        X509_gmtime_adj(X509_getm_notBefore(cert), -3600);
        X509_gmtime_adj(X509_getm_notAfter(cert), 24 * 3600);
        X509_set_pubkey(cert, key);
        X509_NAME* name = X509_get_subject_name(cert);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"), -1, -1, 0);
        X509_set_issuer_name(cert, name);
        ok = addExtension(cert, NID_subject_alt_name, "IP:127.0.0.1") &&
             addExtension(cert, NID_basic_constraints, "critical,CA:TRUE") && X509_sign(cert, key, EVP_sha256()) > 0;
    }
    FILE* c = ok ? std::fopen(certPath.c_str(), "w") : nullptr;
    FILE* k = ok ? std::fopen(keyPath.c_str(), "w") : nullptr;
    ok = c && k && PEM_write_X509(c, cert) == 1 && PEM_write_PrivateKey(k, key, nullptr, nullptr, 0, nullptr, nullptr) == 1;
    if (c) std::fclose(c);
    if (k) std::fclose(k);
    X509_free(cert);
    EVP_PKEY_free(key);
    return ok;
}

}  // namespace

TEST(HttpClient, TlsIsVerifiedByDefaultAndTrustsAGivenCaFile) {
    ScopedTempDir dir;
    const std::string cert = dir.path() + "/cert.pem", key = dir.path() + "/key.pem";
    ASSERT_TRUE(writeSelfSigned(cert, key));
    TestServer server(cert, key);
    server.http().Get("/s", [](const httplib::Request&, httplib::Response& res) { res.set_content("secure", "text/plain"); });
    server.start();

    HttpClient client;
    HttpRequest request;
    request.url = server.url("/s");
    HttpResult untrusted = client.sendSync(request);
    ASSERT_FALSE(untrusted.ok());
    EXPECT_EQ(untrusted.error->code, 60);  // CURLE_PEER_FAILED_VERIFICATION

    request.caFile = cert;
    HttpResult trusted = client.sendSync(request);
    ASSERT_TRUE(trusted.ok()) << trusted.error->toString() << " " << trusted.error->userInfo.dump();
    EXPECT_EQ(trusted.response.body, "secure");

    request.caFile.clear();
    request.verifyTls = false;
    EXPECT_TRUE(client.sendSync(request).ok());
}
