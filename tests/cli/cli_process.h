#pragma once
// Runs the built `quorvane` program as a child process: arguments, extra environment, its standard
// output read line by line as it comes, a signal to it, and its exit status.
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quorvane::testing {

class CliProcess {
public:
    CliProcess(std::vector<std::string> args, std::vector<std::pair<std::string, std::string>> env);
    ~CliProcess();  // kills a child still running
    CliProcess(const CliProcess&) = delete;
    CliProcess& operator=(const CliProcess&) = delete;

    // The next line of standard output; nullopt at its end or when `timeout` passes first.
    std::optional<std::string> readLine(std::chrono::milliseconds timeout);
    // Reads lines until `match` accepts one (returned) or output ends / time runs out.
    std::optional<std::string> readUntil(const std::function<bool(const std::string&)>& match,
                                         std::chrono::milliseconds timeout);
    void signal(int signo);
    // Reads what is left, then waits; the exit status, 128+N after signal N, -1 on timeout.
    int wait(std::chrono::milliseconds timeout);

    const std::vector<std::string>& lines() const { return lines_; }  // every stdout line so far
    const std::string& errors() const { return errors_; }            // stderr, complete after wait

private:
    bool fill(std::chrono::steady_clock::time_point deadline);
    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    std::string pending_;
    std::string errors_;
    std::vector<std::string> lines_;
    bool outClosed_ = false;
};

}  // namespace quorvane::testing
