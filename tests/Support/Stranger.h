#pragma once

// A hostile local user for the security tests: a child forked from the test that drops to uid and gid
// 65534 (with the supplementary groups given, else none) and runs a function, which reports through
// lines on a pipe. Dropping to another user needs root; elsewhere the tests skip.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#define KIV_SKIP_UNLESS_ROOT()                                                                      \
    if (geteuid() != 0)                                                                             \
    {                                                                                               \
        GTEST_SKIP() << "the attacks run as uid 65534, which only root can switch to; run as root"; \
    }

namespace Kiv::Testing
{
constexpr uid_t strangerUid = 65534;

class Stranger
{
public:
    /// Runs `attack` as uid 65534; what it writes to the descriptor it gets comes out of ReadLine.
    explicit Stranger(const std::function<void(int out)>& attack, const std::vector<gid_t>& groups = {})
    {
        int out[2];
        if (pipe2(out, O_CLOEXEC) != 0)
        {
            ADD_FAILURE() << "pipe2 failed";
            return;
        }
        pid = fork();
        if (pid == 0)
        {
            close(out[0]);
            if (setgroups(groups.size(), groups.data()) != 0 || setgid(strangerUid) != 0 ||
                setuid(strangerUid) != 0)
            {
                _exit(126);
            }
            attack(out[1]);
            _exit(0);
        }
        close(out[1]);
        output = out[0];
    }
    Stranger(const Stranger&) = delete;
    Stranger& operator=(const Stranger&) = delete;
    ~Stranger()
    {
        Stop();
        close(output);
    }

    /// The next line, without its end; empty when none comes within `timeout` or the child ended.
    std::string ReadLine(std::chrono::milliseconds timeout = std::chrono::seconds(60))
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        std::string line;
        for (char c = 0;;)
        {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd entry{output, POLLIN, 0};
            if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0 ||
                read(output, &c, 1) != 1 || c == '\n')
            {
                return line;
            }
            line += c;
        }
    }

    /// Kills the child unless it ended, and reaps it.
    void Stop()
    {
        if (pid > 0)
        {
            kill(pid, SIGKILL);
            while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR)
            {
            }
            pid = -1;
        }
    }

    /// Writes `line` and its end to `out`: the child's report.
    static void Report(int out, const std::string& line)
    {
        const std::string text = line + "\n";
        [[maybe_unused]] const ssize_t written = write(out, text.data(), text.size());
    }

private:
    pid_t pid = -1;
    int output = -1;
};

/// What `attack` reports, run as uid 65534 to its end: its first line.
inline std::string AsStranger(const std::function<std::string()>& attack,
                              const std::vector<gid_t>& groups = {})
{
    Stranger stranger([&](int out) { Stranger::Report(out, attack()); }, groups);
    return stranger.ReadLine();
}
}  // namespace Kiv::Testing
