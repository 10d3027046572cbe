#pragma once
// The object-storage commands beside `upload` (see commands.h for how subcommands plug in), and what
// they share: the oss:// argument, and waiting for an operation while Ctrl-C may come.
#include <chrono>
#include <optional>
#include <string>

#include "commands.h"
#include "oss/oss_task.h"
#include "upload_session.h"
#include "upload_targets.h"

namespace quorvane::app {

Subcommand addLsCommand(CLI::App& app);
Subcommand addGetCommand(CLI::App& app);
Subcommand addRmCommand(CLI::App& app);
Subcommand addUploadsCommand(CLI::App& app);
Subcommand addVerifyCommand(CLI::App& app);
Subcommand addConfigCommand(CLI::App& app);
Subcommand addPresignCommand(CLI::App& app);

// "oss://BUCKET/KEY"; nullopt with `problem` set for anything else.
std::optional<OssUrl> storeUrl(const std::string& text, std::string& problem);

// Waits for the task; on Ctrl-C cancels the request and returns false (the task ends cancelled).
template <class T, class Request>
bool waitForTask(const typename oss::OSSTask<T>::Ptr& task, Request& request) {
    while (!task->waitFor(std::chrono::milliseconds(100)))
        if (interruptRequested()) {
            request.cancel();
            task->waitUntilFinished();
            return false;
        }
    return true;
}

}  // namespace quorvane::app
