#pragma once

// A helper process of a multi-process test: started by fork and exec, with its standard output on a
// pipe, and always killed and reaped when the object goes.

#include "Support/Emulator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

class ChildProcess
{
public:
    /// Runs `path` with `arguments`, under the build's emulator if any unless `ofThisMachine`; as user and
    /// group `uid` when given; with its standard input on a pipe for WriteLine when `withInput`, else with
    /// this process's.
    ChildProcess(const std::string& path, const std::vector<std::string>& arguments,
                 std::optional<uid_t> uid = std::nullopt, bool withInput = false, bool ofThisMachine = false)
        : emulator(ofThisMachine ? std::vector<std::string>{} : Kiv::Testing::EmulatorCommand())
    {
        // Everything the child needs is made before fork: after it, this process's other threads may hold
        // locks that the child would wait for.
        std::vector<char*> argv;
        for (const std::string& word : emulator)
        {
            argv.push_back(const_cast<char*>(word.c_str()));
        }
        argv.push_back(const_cast<char*>(path.c_str()));
        for (const std::string& argument : arguments)
        {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        int out[2], in[2];
        if (pipe2(out, O_CLOEXEC) != 0 || pipe2(in, O_CLOEXEC) != 0)
        {
            ADD_FAILURE() << "pipe2 failed";
            return;
        }
        pid = fork();
        if (pid == 0)
        {
            dup2(out[1], STDOUT_FILENO);
            if (withInput)
            {
                dup2(in[0], STDIN_FILENO);
            }
            if (uid && (setgroups(0, nullptr) != 0 || setgid(*uid) != 0 || setuid(*uid) != 0))
            {
                _exit(126);
            }
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(out[1]);
        close(in[0]);
        output = out[0];
        input = in[1];  // unused without `withInput`
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess()
    {
        Stop(SIGKILL);
        close(input);
        close(output);
    }

    pid_t GetPid() const { return pid; }

    /// Writes `line` and its end to the process's standard input (made with `withInput`).
    void WriteLine(const std::string& line)
    {
        const std::string text = line + "\n";
        EXPECT_EQ(write(input, text.data(), text.size()), static_cast<ssize_t>(text.size())) << line;
    }

    /// The next line it prints, without its end; empty when none comes in time or the pipe closes. A line
    /// begun when the time runs out is kept for the next call.
    std::string ReadLine(std::chrono::milliseconds timeout = std::chrono::seconds(30))
    {
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (char c = 0; c != '\n'; partial += c)
        {
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd entry{output, POLLIN, 0};
            if (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0 ||
                read(output, &c, 1) != 1)
            {
                return "";
            }
        }
        std::string line = partial.substr(0, partial.size() - 1);
        partial.clear();
        return line;
    }

    /// Sends `signal` unless it ended, and waits for its end; returns the wait status.
    int Stop(int signal)
    {
        if (pid > 0 && status < 0)
        {
            kill(pid, signal);
            while (waitpid(pid, &status, 0) < 0 && errno == EINTR)
            {
            }
        }
        return status;
    }

private:
    std::vector<std::string> emulator;
    pid_t pid = -1;
    int input = -1;
    int output = -1;
    int status = -1;
    std::string partial;
};
