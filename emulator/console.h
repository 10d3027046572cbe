#pragma once
// The console: a page at /_console/ showing buckets, objects, open uploads, videos, images and the last
// requests, refreshed by a little script from /_console/state.json; and /_console/faults, where a
// script adds faults while the cloud runs (POST, a fault script as --faults takes, Content-Type
// application/json), reads what is pending and what fired (GET), or clears the pending ones (DELETE).
// Its own requests are neither logged nor recorded, and it answers loopback peers only unless the
// options say otherwise.
#include <httplib.h>

#include "emulator/emulator_impl.h"

namespace quorvane::emulator {

inline constexpr const char* kConsolePrefix = "/_console";

// `reader` is set for methods that may carry a body.
void serveConsole(CloudEmulator::Impl& impl, const httplib::Request& req, httplib::Response& res,
                  const httplib::ContentReader* reader);
// The console's data as JSON text.
std::string consoleState(CloudEmulator::Impl& impl);
extern const char* const kConsolePage;

}  // namespace quorvane::emulator
