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

std::string xdgHome(const EnvironmentLookup& env, const char* variable, const char* underHome) {
    if (auto home = nonEmpty(env, variable); !home.empty()) return home;
    const std::string home = nonEmpty(env, "HOME");
    return home.empty() ? home : home + underHome;
}

}  // namespace

std::string xdgConfigHome(const EnvironmentLookup& env) { return xdgHome(env, "XDG_CONFIG_HOME", "/.config"); }
std::string xdgCacheHome(const EnvironmentLookup& env) { return xdgHome(env, "XDG_CACHE_HOME", "/.cache"); }

HostPaths hostPathsFrom(const EnvironmentLookup& env) {
    HostPaths paths;
    std::string base = nonEmpty(env, "QUORVANE_TMPDIR");
    if (base.empty()) base = nonEmpty(env, "TMPDIR");
    if (base.empty()) base = "/tmp";
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    paths.temporaryDirectory = base + "/quorvane-" + std::to_string(::getuid()) + "/";

    paths.userDefaultsFile = nonEmpty(env, "QUORVANE_DEFAULTS_FILE");
    if (paths.userDefaultsFile.empty()) {
        std::string config = xdgConfigHome(env);
        if (config.empty()) config = "/tmp/.config";
        paths.userDefaultsFile = config + "/quorvane/user-defaults.json";
    }
    return paths;
}

void useHostPaths(const HostPaths& paths) {
    setTemporaryDirectory(paths.temporaryDirectory);
    UserDefaults::setStandardPath(paths.userDefaultsFile);
}

}  // namespace quorvane::foundation
