#pragma once
// The command-line host's subcommands. Each one lives in its own command_<name>.cpp, adds itself to
// the app, and hands back what to run when it is chosen; main.cpp lists them.
#include <CLI/CLI.hpp>

#include <functional>

namespace quorvane::app {

struct Subcommand {
    CLI::App* command = nullptr;
    std::function<int()> run;  // the process exit status
};

// Runs a few façade operations on the headless device and prints one JSON line per result.
Subcommand addDemoCommand(CLI::App& app);

}  // namespace quorvane::app
