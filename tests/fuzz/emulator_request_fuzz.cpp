// Feeds arbitrary bytes to the emulator as one HTTP request: request line, headers, dates, query
// strings, signatures and bodies, through every service. The first byte picks an emulator that checks
// signatures or one that accepts any, so the handlers behind the checks are reached too. Any crash or
// sanitizer report is a bug.
#include <cstddef>
#include <cstdint>
#include <string>

#include "emulator/cloud_emulator.h"

using quorvane::emulator::CloudEmulator;
using quorvane::emulator::EmulatorOptions;

namespace {

CloudEmulator& emulator(bool verify) {
    auto make = [](bool verifySignatures) {
        EmulatorOptions options;
        options.verifySignatures = verifySignatures;
        options.threads = 1;
        auto* cloud = new CloudEmulator(options);  // lives as long as the process
        if (!cloud->start()) __builtin_trap();
        return cloud;
    };
    static CloudEmulator* checking = make(true);
    static CloudEmulator* trusting = make(false);
    return verify ? *checking : *trusting;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    static unsigned runs = 0;
    auto& cloud = emulator(data[0] & 1);
    if (++runs % 256 == 0) cloud.reset();  // what the inputs stored would otherwise only grow
    std::string request(reinterpret_cast<const char*>(data + 1), size - 1);
    (void)cloud.answerRawRequest(request);
    return 0;
}
