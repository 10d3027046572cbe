#pragma once
// The bash completion script and the man page of `quorvane`, made from its CLI11 definitions at build
// time (`quorvane --generate bash-completion|man`), so neither can drift from the options.
#include <CLI/CLI.hpp>

#include <map>
#include <string>

namespace quorvane::app {

// `given`: the text of some subcommands made elsewhere (the demo's, by the program that defines it).
std::string bashCompletion(const CLI::App& app, const std::map<std::string, std::string>& givenCases = {});
std::string manPage(const CLI::App& app, const std::string& version,
                    const std::map<std::string, std::string>& givenSections = {});
// One subcommand's branch of the completion's `case`, and its man page sections (its subcommands' too).
std::string completionCase(const CLI::App& sub);
std::string manSections(const CLI::App& sub, const std::string& title);
// A man page of its own for a program whose whole command line is `app` (quorvane-cloud).
std::string programManPage(const CLI::App& app, const std::string& name, const std::string& version);

}  // namespace quorvane::app
