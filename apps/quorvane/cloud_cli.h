#pragma once
// The local cloud's command line, shared by `quorvane cloud` and the `quorvane-cloud` program so both
// take the same options and print the same facts under the same names. Header-only: the emulator's
// program links no part of the command-line host.
#include <CLI/CLI.hpp>

#include <ostream>
#include <string>

#include "emulator/cloud_emulator.h"
#include "emulator/fault_file.h"

namespace quorvane::app {

inline void addCloudOptions(CLI::App& cmd, emulator::EmulatorOptions& o) {
    o.requestLog = true;  // a cloud run for other clients says what it serves; embedded use stays silent
    cmd.add_option("--host", o.host, "Address to listen on")->capture_default_str();
    cmd.add_option("--port", o.port, "Port to listen on (0: a free one)")->check(CLI::Range(0, 65535));
    cmd.add_option("--storage", o.storageDir, "Keep objects in this directory (default: in memory)");
    cmd.add_flag("--https", o.https, "Serve TLS with a certificate made at start (see ca-file)");
    cmd.add_flag("--no-verify", [&o](std::int64_t) { o.verifySignatures = false; },
                 "Accept requests without checking their signatures");
    cmd.add_option("--advertise", o.advertisedHost, "HOST:PORT handed to clients in endpoints (default: the bound one)");
    cmd.add_option("--bucket", o.bucket, "The bucket that exists from the start")->capture_default_str();
    cmd.add_option("--region", o.region, "Region of the services")->capture_default_str();
    cmd.add_flag("--v4-only", [&o](std::int64_t) { o.acceptV1Signatures = false; },
                 "Refuse V1 object-storage signatures, as the service does for buckets made since September 2025");
    cmd.add_option_function<long long>(
           "--clock-skew", [&o](long long seconds) { o.clockSkew = std::chrono::seconds(seconds); },
           "Run the cloud's clock SECONDS ahead of this machine's (negative: behind), to try clients' skew handling")
        ->type_name("SECONDS");
    cmd.add_flag("--quiet", [&o](std::int64_t) { o.requestLog = false; },
                 "Print no request log (one line per request on standard error)");
    cmd.add_option_function<std::string>(
           "--faults",
           [&o](const std::string& path) {
               std::string error;
               auto faults = emulator::loadFaultScript(path, error);
               if (!faults) throw CLI::ValidationError("--faults", error);
               o.initialFaults = std::move(*faults);
           },
           "Inject faults from a JSON script: [{\"operation\":\"UploadPart\",\"fault\":\"reset\",\"count\":2}, "
           "{\"operation\":\"PutObject\",\"status\":503}, {\"operation\":\"*\",\"delay_ms\":500}, "
           "{\"operation\":\"UploadPart\",\"fault\":\"corrupt-crc\"}]")
        ->type_name("FILE");
    cmd.add_flag("--console-anywhere", o.consoleForAnyone,
                 "Serve the console page to other machines too (default: this machine only)");
}

// One "name value" line per fact, then "ready" alone on a line once clients may connect. The keys are
// the local cloud's own throw-away credentials: handing them out is its purpose.
inline void printCloudFacts(std::ostream& out, emulator::CloudEmulator& cloud) {
    const auto& o = cloud.options();
    auto sts = cloud.issueSts();
    out << "endpoint " << cloud.endpoint() << "\n"
        << "console " << cloud.consoleUrl() << "\n"
        << "port " << cloud.port() << "\n"
        << "bucket " << o.bucket << "\n"
        << "region " << o.region << "\n"
        << "signature-versions " << (o.acceptV1Signatures ? "1,4" : "4") << "\n"
        << "storage " << (o.storageDir.empty() ? "(in memory)" : o.storageDir) << "\n"
        << "access-key-id " << o.accessKeyId << "\n"
        << "access-key-secret " << o.accessKeySecret << "\n"
        << "sts-access-key-id " << sts.AccessKeyId << "\n"
        << "sts-access-key-secret " << sts.AccessKeySecret << "\n"
        << "sts-security-token " << sts.SecurityToken << "\n"
        << "sts-expiration " << sts.Expiration << "\n"
        << "enterprise-access-token " << o.enterpriseAccessToken << "\n";
    if (o.https) out << "ca-file " << cloud.caFile() << "\n";
    out << "try: OSS_ACCESS_KEY_ID=" << o.accessKeyId << " OSS_ACCESS_KEY_SECRET=" << o.accessKeySecret
        << " quorvane upload FILE oss://" << o.bucket << "/ --endpoint " << cloud.endpoint() << " --region "
        << o.region << " --signature-version 4" << (o.https ? " --ca-file " + cloud.caFile() : std::string())
        << "\n"
        << "ready" << std::endl;
}

}  // namespace quorvane::app
