#pragma once
// The bash completion script and the man page of `quorvane`, made from its CLI11 definitions at build
// time (`quorvane --generate bash-completion|man`), so neither can drift from the options.
#include <CLI/CLI.hpp>

#include <string>

namespace quorvane::app {

std::string bashCompletion(const CLI::App& app);
std::string manPage(const CLI::App& app, const std::string& version);

}  // namespace quorvane::app
