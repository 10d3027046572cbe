#pragma once
// Where a host keeps this library's files: its temporary directory and its user-defaults file. The
// library reads no environment variable; a host that wants the conventional ones resolves them here,
// with its own lookup (getenv in a program, a table in tests), and hands the result over once.
#include <functional>
#include <string>

namespace quorvane::foundation {

using EnvironmentLookup = std::function<const char*(const char*)>;

struct HostPaths {
    std::string temporaryDirectory;  // with a trailing '/'
    std::string userDefaultsFile;
};

// The XDG base directories a host's files go under: $XDG_CONFIG_HOME (or $XDG_CACHE_HOME) when set,
// else $HOME/.config (or $HOME/.cache); empty when neither names one.
std::string xdgConfigHome(const EnvironmentLookup& env);
std::string xdgCacheHome(const EnvironmentLookup& env);

// $QUORVANE_TMPDIR, else $TMPDIR, else /tmp, plus "/quorvane-<uid>/"; $QUORVANE_DEFAULTS_FILE, else
// ($XDG_CONFIG_HOME, else $HOME/.config)/quorvane/user-defaults.json.
HostPaths hostPathsFrom(const EnvironmentLookup& env);
// Makes them the process's temporary directory and user-defaults file.
void useHostPaths(const HostPaths& paths);

}  // namespace quorvane::foundation
