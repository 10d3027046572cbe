#include "emulator/tls.h"

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <filesystem>
#include <memory>

#include "emulator/secret_files.h"

namespace quorvane::emulator {
namespace {

struct Freer {
    void operator()(X509* x) const { X509_free(x); }
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
    void operator()(BIO* b) const { BIO_free(b); }
};
using X509Ptr = std::unique_ptr<X509, Freer>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Freer>;

bool addExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
    if (!ext) return false;
    bool ok = X509_add_ext(cert, ext, -1) == 1;
    X509_EXTENSION_free(ext);
    return ok;
}

X509Ptr newCert(EVP_PKEY* key, const std::string& commonName, long days) {
    X509Ptr cert(X509_new());
    X509_set_version(cert.get(), 2);
    unsigned char serial[16];
    RAND_bytes(serial, sizeof serial);
    serial[0] &= 0x7F;
    BIGNUM* bn = BN_bin2bn(serial, sizeof serial, nullptr);
    BN_to_ASN1_INTEGER(bn, X509_get_serialNumber(cert.get()));
    BN_free(bn);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), days * 86400L);
    X509_set_pubkey(cert.get(), key);
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("quorvane-cloud"), -1, -1, 0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                               -1, 0);
    return cert;
}

std::string altNames(const std::vector<std::string>& names) {
    std::string out;
    unsigned char buf[16];
    for (const auto& n : names) {
        if (!out.empty()) out += ",";
        bool ip = inet_pton(AF_INET, n.c_str(), buf) == 1 || inet_pton(AF_INET6, n.c_str(), buf) == 1;
        out += (ip ? "IP:" : "DNS:") + n;
    }
    return out;
}

std::string toPem(X509* cert) {
    std::unique_ptr<BIO, Freer> bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(bio.get(), cert);
    char* data = nullptr;
    long size = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

std::string keyToPem(EVP_PKEY* key) {
    std::unique_ptr<BIO, Freer> bio(BIO_new(BIO_s_mem()));
    PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr);
    char* data = nullptr;
    long size = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(size));
}

struct Ca {
    X509Ptr cert;
    KeyPtr key;
};

Ca newCa() {
    Ca ca;
    ca.key.reset(EVP_EC_gen("P-256"));
    if (!ca.key) return {};
    // Long-lived: clients keep its file, and a stored one is reused start after start.
    ca.cert = newCert(ca.key.get(), "quorvane-cloud test CA", 3650);
    X509_set_issuer_name(ca.cert.get(), X509_get_subject_name(ca.cert.get()));
    bool ok = addExtension(ca.cert.get(), ca.cert.get(), NID_basic_constraints, "critical,CA:TRUE") &&
              addExtension(ca.cert.get(), ca.cert.get(), NID_key_usage, "critical,keyCertSign,cRLSign") &&
              addExtension(ca.cert.get(), ca.cert.get(), NID_subject_key_identifier, "hash") &&
              X509_sign(ca.cert.get(), ca.key.get(), EVP_sha256()) > 0;
    if (!ok) return {};
    return ca;
}

// The stored CA when both files read, match and it is good for another day.
Ca storedCa(const std::string& dir) {
    auto certPem = readWholeFile((std::filesystem::path(dir) / "ca.pem").string());
    auto keyPem = readWholeFile((std::filesystem::path(dir) / "ca-key.pem").string());
    if (!certPem || !keyPem) return {};
    std::unique_ptr<BIO, Freer> certBio(BIO_new_mem_buf(certPem->data(), static_cast<int>(certPem->size())));
    std::unique_ptr<BIO, Freer> keyBio(BIO_new_mem_buf(keyPem->data(), static_cast<int>(keyPem->size())));
    Ca ca;
    ca.cert.reset(PEM_read_bio_X509(certBio.get(), nullptr, nullptr, nullptr));
    ca.key.reset(PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr));
    if (!ca.cert || !ca.key || X509_check_private_key(ca.cert.get(), ca.key.get()) != 1) return {};
    std::time_t tomorrow = std::time(nullptr) + 86400;
    if (X509_cmp_time(X509_get0_notAfter(ca.cert.get()), &tomorrow) <= 0) return {};
    return ca;
}

}  // namespace

TlsMaterial::~TlsMaterial() {
    X509_free(serverCert);
    EVP_PKEY_free(serverKey);
}

bool makeTlsMaterial(const std::vector<std::string>& names, TlsMaterial& out, const std::string& caDir) {
    Ca ca = caDir.empty() ? Ca{} : storedCa(caDir);
    if (!ca.cert) {
        ca = newCa();
        if (!ca.cert) return false;
        if (!caDir.empty() &&
            !(writePrivateFile((std::filesystem::path(caDir) / "ca-key.pem").string(), keyToPem(ca.key.get())) &&
              writePrivateFile((std::filesystem::path(caDir) / "ca.pem").string(), toPem(ca.cert.get()))))
            return false;
    }
    KeyPtr serverKey(EVP_EC_gen("P-256"));
    if (!serverKey) return false;
    auto server = newCert(serverKey.get(), names.empty() ? "localhost" : names.front(), 30);
    X509_set_issuer_name(server.get(), X509_get_subject_name(ca.cert.get()));
    bool ok = addExtension(server.get(), ca.cert.get(), NID_basic_constraints, "critical,CA:FALSE") &&
         addExtension(server.get(), ca.cert.get(), NID_key_usage, "critical,digitalSignature,keyEncipherment") &&
         addExtension(server.get(), ca.cert.get(), NID_ext_key_usage, "serverAuth") &&
         addExtension(server.get(), ca.cert.get(), NID_authority_key_identifier, "keyid") &&
         addExtension(server.get(), ca.cert.get(), NID_subject_alt_name, altNames(names)) &&
         X509_sign(server.get(), ca.key.get(), EVP_sha256()) > 0;
    if (!ok) return false;

    out.caPem = toPem(ca.cert.get());
    out.serverCert = server.release();
    out.serverKey = serverKey.release();
    return true;
}

}  // namespace quorvane::emulator
