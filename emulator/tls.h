#pragma once
// A throw-away CA and a server certificate it signs, made at start so clients can keep verification on.
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <string>
#include <vector>

namespace quorvane::emulator {

struct TlsMaterial {
    TlsMaterial() = default;
    ~TlsMaterial();
    TlsMaterial(const TlsMaterial&) = delete;
    TlsMaterial& operator=(const TlsMaterial&) = delete;

    X509* serverCert = nullptr;
    EVP_PKEY* serverKey = nullptr;
    std::string caPem;
};

// `names` go into the server certificate's subjectAltName: IP addresses as IP entries, others as DNS.
bool makeTlsMaterial(const std::vector<std::string>& names, TlsMaterial& out);

}  // namespace quorvane::emulator
