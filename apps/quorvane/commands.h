#pragma once
// The command-line host's subcommands. Each one lives in its own command_<name>.cpp, adds itself to
// the app, and hands back what to run when it is chosen; main.cpp lists those of `quorvane`, and
// demo_main.cpp the demo, which is a program of its own (quorvane-demo).
#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

#include "foundation/value.h"

namespace quorvane::app {

struct Subcommand {
    CLI::App* command = nullptr;
    std::function<int()> run;  // the process exit status
};

// Runs a few façade operations on the headless device and prints one JSON line per result.
Subcommand addDemoCommand(CLI::App& app);
// `demo location`, a subcommand of the demo.
Subcommand addDemoLocationCommand(CLI::App& demo);
// `demo record`, `demo scan`, `demo photo`: capture on this machine's devices (or FFmpeg inputs).
std::vector<Subcommand> addDemoCaptureCommands(CLI::App& demo);
// One JSON line {"op": op, ...fields} on standard output.
void printDemoLine(const std::string& op, const Value& fields);

}  // namespace quorvane::app
