// TLS against the emulator's HTTPS, whose certificate comes from a CA it makes at start.
#include <gtest/gtest.h>

#include "emulator/cloud_emulator.h"
#include "foundation/http_client.h"

using namespace quorvane::foundation;

TEST(HttpClient, TlsIsVerifiedByDefaultAndTrustsAGivenCaFile) {
    quorvane::emulator::EmulatorOptions options;
    options.https = true;
    quorvane::emulator::CloudEmulator cloud(options);
    ASSERT_TRUE(cloud.start());

    HttpClient client;
    HttpRequest request;
    request.url = cloud.endpoint() + "/logstores/s/track?APIVersion=0.6.0";
    HttpResult untrusted = client.sendSync(request);
    ASSERT_FALSE(untrusted.ok());
    EXPECT_EQ(untrusted.error->code, 60);  // CURLE_PEER_FAILED_VERIFICATION

    request.caFile = cloud.caFile();
    HttpResult trusted = client.sendSync(request);
    ASSERT_TRUE(trusted.ok()) << trusted.error->toString() << " " << trusted.error->userInfo.dump();
    EXPECT_EQ(trusted.response.status, 200);

    request.caFile.clear();
    request.verifyTls = false;
    EXPECT_TRUE(client.sendSync(request).ok());
}
