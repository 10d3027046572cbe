#include "cli/cli_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <thread>

extern char** environ;

namespace quorvane::testing {

CliProcess::CliProcess(std::vector<std::string> args, std::vector<std::pair<std::string, std::string>> env) {
    // Everything the child needs is built before fork: the test process has threads, so the child
    // may only call async-signal-safe functions.
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry)
        if (std::none_of(env.begin(), env.end(),
                         [&](const auto& e) { return std::string(*entry).starts_with(e.first + "="); }))
            environment.push_back(*entry);
    for (const auto& [name, value] : env) environment.push_back(name + "=" + value);
    std::vector<char*> argv, envp;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    out_ = out[0];
    err_ = err[0];
}

CliProcess::~CliProcess() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0) close(out_);
    if (err_ >= 0) close(err_);
}

// Reads whatever is ready on stdout and stderr; false once stdout has ended or time ran out.
bool CliProcess::fill(std::chrono::steady_clock::time_point deadline) {
    while (!outClosed_) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) return false;
        pollfd fds[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
        int ready = poll(fds, err_ >= 0 ? 2 : 1, static_cast<int>(left.count()));
        if (ready <= 0) continue;
        char buffer[65536];
        if (err_ >= 0 && (fds[1].revents & (POLLIN | POLLHUP))) {
            auto n = read(err_, buffer, sizeof buffer);
            if (n > 0) errors_.append(buffer, static_cast<std::size_t>(n));
            else { close(err_); err_ = -1; }
        }
        if (fds[0].revents & (POLLIN | POLLHUP)) {
            auto n = read(out_, buffer, sizeof buffer);
            if (n <= 0) outClosed_ = true;
            else pending_.append(buffer, static_cast<std::size_t>(n));
            return true;
        }
    }
    return false;
}

std::optional<std::string> CliProcess::readLine(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        auto end = pending_.find('\n');
        if (end != std::string::npos) {
            std::string line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            lines_.push_back(line);
            return line;
        }
        if (!fill(deadline)) {
            if (outClosed_ && !pending_.empty()) {
                lines_.push_back(pending_);
                return std::exchange(pending_, {});
            }
            return std::nullopt;
        }
    }
}

std::optional<std::string> CliProcess::readUntil(const std::function<bool(const std::string&)>& match,
                                                 std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (auto line = readLine(std::chrono::duration_cast<std::chrono::milliseconds>(
               deadline - std::chrono::steady_clock::now()))) {
        if (match(*line)) return line;
    }
    return std::nullopt;
}

void CliProcess::signal(int signo) {
    if (pid_ > 0) kill(pid_, signo);
}

int CliProcess::wait(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (readLine(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now())))
        continue;
    while (err_ >= 0 && std::chrono::steady_clock::now() < deadline) {
        char buffer[4096];
        auto n = read(err_, buffer, sizeof buffer);
        if (n > 0) errors_.append(buffer, static_cast<std::size_t>(n));
        else { close(err_); err_ = -1; }
    }
    while (pid_ > 0 && std::chrono::steady_clock::now() < deadline) {
        int status = 0;
        pid_t done = waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            pid_ = -1;
            if (WIFEXITED(status)) return WEXITSTATUS(status);
            if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return -1;
}

}  // namespace quorvane::testing
