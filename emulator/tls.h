#pragma once
// A CA and a server certificate it signs, made at start so clients can keep verification on. With a
// directory the CA is kept there (its key readable by the owner only) and reused by the next start, so a
// CA file handed to clients stays good; the server certificate is made anew each start, for the names
// of the day.
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
// `caDir` empty: a throw-away CA; otherwise ca.pem and ca-key.pem there, read or made and written.
bool makeTlsMaterial(const std::vector<std::string>& names, TlsMaterial& out, const std::string& caDir = {});

}  // namespace quorvane::emulator
