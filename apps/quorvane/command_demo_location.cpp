// `quorvane demo location`: one fix through the façade, the position taken from --at or from the
// machine's configuration (QUORVANE_LOCATION / QUORVANE_LOCATION_FILE). Linux has no offline reverse
// geocoder, so the place fields stay empty and the coordinates come back converted to GCJ-02.
#include <atomic>
#include <cstdlib>
#include <chrono>
#include <iostream>
#include <memory>

#include "api/QuorvaneApiManager.h"
#include "commands.h"
#include "foundation/dispatch.h"
#include "platform/headless/headless_platform.h"
#include "platform/headless/headless_presenter.h"
#include "platform/linux/linux_location.h"
#include "platform/permissions.h"

namespace quorvane::app {
namespace {

int runLocationDemo(const std::string& at) {
    auto position = at.empty() ? platform::linux_impl::configuredPosition(std::getenv)
                               : platform::linux_impl::parseConfiguredPosition(at);
    if (!at.empty() && !position) {
        std::cerr << "demo location: --at wants \"latitude,longitude\" in degrees" << std::endl;
        return 2;
    }
    platform::headless::installHeadlessDevice();
    auto services = platform::PrivacyServices::current();
    services.location = std::make_shared<platform::linux_impl::LinuxLocationServices>(position);
    platform::PrivacyServices::setCurrent(services);

    auto screen = platform::headless::HeadlessPresenter::create();
    auto manager = std::make_shared<QuorvaneApiManager>();
    auto finished = std::make_shared<std::atomic<bool>>(false);
    auto succeeded = std::make_shared<std::atomic<bool>>(false);
    foundation::dispatch::main().async([manager, screen, finished, succeeded] {
        manager->getLocationWithController(
            screen,
            [finished, succeeded](const Value& result) {
                printDemoLine("getLocationWithController", {{"success", result}});
                *succeeded = true;
                *finished = true;
            },
            [finished](const Value& failure) {
                printDemoLine("getLocationWithController", {{"fail", failure}});
                *finished = true;
            });
    });
    bool done = foundation::MainLoop::instance().runUntil([finished] { return finished->load(); },
                                                          std::chrono::seconds(30));
    if (!done) std::cerr << "demo location: no answer from the location service" << std::endl;
    return done && *succeeded ? 0 : 1;
}

}  // namespace

Subcommand addDemoLocationCommand(CLI::App& demo) {
    auto at = std::make_shared<std::string>();
    CLI::App* location = demo.add_subcommand(
        "location", "One location fix as the façade's dictionary (position from --at or QUORVANE_LOCATION)");
    location->add_option("--at", *at, "\"latitude,longitude\" in WGS-84 degrees");
    return {location, [at] { return runLocationDemo(*at); }};
}

}  // namespace quorvane::app
