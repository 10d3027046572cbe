#include "emulator/tls.h"

#include <arpa/inet.h>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <memory>

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

}  // namespace

TlsMaterial::~TlsMaterial() {
    X509_free(serverCert);
    EVP_PKEY_free(serverKey);
}

bool makeTlsMaterial(const std::vector<std::string>& names, TlsMaterial& out) {
    KeyPtr caKey(EVP_EC_gen("P-256"));
    KeyPtr serverKey(EVP_EC_gen("P-256"));
    if (!caKey || !serverKey) return false;

    auto ca = newCert(caKey.get(), "quorvane-cloud test CA", 30);
    X509_set_issuer_name(ca.get(), X509_get_subject_name(ca.get()));
    bool ok = addExtension(ca.get(), ca.get(), NID_basic_constraints, "critical,CA:TRUE") &&
              addExtension(ca.get(), ca.get(), NID_key_usage, "critical,keyCertSign,cRLSign") &&
              addExtension(ca.get(), ca.get(), NID_subject_key_identifier, "hash") &&
              X509_sign(ca.get(), caKey.get(), EVP_sha256()) > 0;

    auto server = newCert(serverKey.get(), names.empty() ? "localhost" : names.front(), 30);
    X509_set_issuer_name(server.get(), X509_get_subject_name(ca.get()));
    ok = ok && addExtension(server.get(), ca.get(), NID_basic_constraints, "critical,CA:FALSE") &&
         addExtension(server.get(), ca.get(), NID_key_usage, "critical,digitalSignature,keyEncipherment") &&
         addExtension(server.get(), ca.get(), NID_ext_key_usage, "serverAuth") &&
         addExtension(server.get(), ca.get(), NID_authority_key_identifier, "keyid") &&
         addExtension(server.get(), ca.get(), NID_subject_alt_name, altNames(names)) &&
         X509_sign(server.get(), caKey.get(), EVP_sha256()) > 0;
    if (!ok) return false;

    out.caPem = toPem(ca.get());
    out.serverCert = server.release();
    out.serverKey = serverKey.release();
    return true;
}

}  // namespace quorvane::emulator
