#pragma once
// The upload and local-cloud subcommands (see commands.h for how subcommands plug in).
#include "commands.h"

namespace quorvane::app {

// `quorvane upload FILE...`: uploads through the resumable upload engine, to a local cloud started
// in-process or to the services named by options.
Subcommand addUploadCommand(CLI::App& app);

// `quorvane cloud`: runs the local cloud for other clients until Ctrl-C.
Subcommand addCloudCommand(CLI::App& app);

}  // namespace quorvane::app
