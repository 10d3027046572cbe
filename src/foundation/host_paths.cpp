#include "foundation/host_paths.h"

#include <unistd.h>

#include "foundation/temp_files.h"
#include "foundation/user_defaults.h"

namespace quorvane::foundation {
namespace {

std::string nonEmpty(const EnvironmentLookup& env, const char* name) {
    const char* value = env ? env(name) : nullptr;
    return value ? value : "";
}

}  // namespace

HostPaths hostPathsFrom(const EnvironmentLookup& env) {
    HostPaths paths;
    std::string base = nonEmpty(env, "QUORVANE_TMPDIR");
    if (base.empty()) base = nonEmpty(env, "TMPDIR");
    if (base.empty()) base = "/tmp";
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    paths.temporaryDirectory = base + "/quorvane-" + std::to_string(::getuid()) + "/";

    paths.userDefaultsFile = nonEmpty(env, "QUORVANE_DEFAULTS_FILE");
    if (paths.userDefaultsFile.empty()) {
        std::string config = nonEmpty(env, "XDG_CONFIG_HOME");
        if (config.empty()) {
            const std::string home = nonEmpty(env, "HOME");
            config = (home.empty() ? std::string("/tmp") : home) + "/.config";
        }
        paths.userDefaultsFile = config + "/quorvane/user-defaults.json";
    }
    return paths;
}

void useHostPaths(const HostPaths& paths) {
    setTemporaryDirectory(paths.temporaryDirectory);
    UserDefaults::setStandardPath(paths.userDefaultsFile);
}

}  // namespace quorvane::foundation
