#pragma once
// The upload and local-cloud subcommands (see commands.h for how subcommands plug in).
#include <string>
#include <vector>

#include "commands.h"

namespace quorvane::app {

// `quorvane upload FILE...`: uploads through the resumable upload engine, to a local cloud started
// in-process or to the services named by options.
Subcommand addUploadCommand(CLI::App& app);

// The command line as given (after the program name), for the resume hint.
void setCommandArguments(std::vector<std::string> arguments);

// `quorvane cloud`: runs the local cloud for other clients until Ctrl-C.
Subcommand addCloudCommand(CLI::App& app);

}  // namespace quorvane::app
