// Signs one request with the object-storage client's V4 signer and prints the headers it would send, so
// that the interop test can compare the Authorization with the one ali-oss's own signer computes from
// the same headers. Input (argv[1]), JSON: {"method", "bucket", "key", "query": [[name, value|null]...],
// "headers": [[name, value]...], "time" (Unix seconds), "keyId", "secret", "token" (optional), "region",
// "additionalHeaders": [...]}. Output: the headers as [[name, value]...].
#include <chrono>
#include <cstdio>
#include <memory>

#include "foundation/value.h"
#include "oss/credential_provider.h"
#include "oss/oss_signer_v4.h"

using namespace quorvane;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: oss_v4_probe JSON\n");
        return 2;
    }
    auto input = foundation::parseJson(argv[1]);
    if (!input || !input->is_object()) {
        std::fprintf(stderr, "oss_v4_probe: the argument is not a JSON object\n");
        return 2;
    }
    const Value& in = *input;
    auto text = [&](const char* name) { return foundation::stringAt(in, name).value_or(""); };
    oss::OSSQuery query;
    for (const auto& pair : in.value("query", Value::array()))
        query.emplace_back(pair.at(0).get<std::string>(),
                           pair.at(1).is_null() ? std::nullopt : std::optional(pair.at(1).get<std::string>()));
    foundation::Headers headers;
    for (const auto& pair : in.value("headers", Value::array()))
        headers.emplace_back(pair.at(0).get<std::string>(), pair.at(1).get<std::string>());
    std::vector<std::string> additional;
    for (const auto& name : in.value("additionalHeaders", Value::array())) additional.push_back(name.get<std::string>());

    std::shared_ptr<oss::OSSCredentialProvider> provider;
    if (text("token").empty()) {
        provider = std::make_shared<oss::OSSPlainTextAKSKPairCredentialProvider>(text("keyId"), text("secret"));
    } else {
        auto token = std::make_shared<oss::OSSFederationToken>();
        token->tAccessKey = text("keyId");
        token->tSecretKey = text("secret");
        token->tToken = text("token");
        provider = std::make_shared<oss::OSSFederationCredentialProvider>([token] { return token; });
    }
    const auto when = std::chrono::system_clock::time_point(std::chrono::seconds(in.value("time", 0LL)));
    oss::OSSV4Signer signer(text("region"), additional);
    if (auto error = signer.sign(text("method"), text("bucket"), text("key"), query, headers, *provider, when)) {
        std::fprintf(stderr, "oss_v4_probe: %s\n", error->toString().c_str());
        return 1;
    }
    Value out = Value::array();
    for (const auto& [name, value] : headers) out.push_back(Value::array({name, value}));
    std::printf("%s\n", foundation::toJsonText(out).c_str());
    return 0;
}
