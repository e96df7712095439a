#pragma once

// A helper process driven line by line: commands go to its standard input, and its answers and the
// lines it prints by itself (a notification arriving, say) come from its standard output. Killed and
// reaped when the object goes, whatever happened.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Kiv::Testing
{
class ScriptedProcess
{
public:
    ScriptedProcess(const std::string& path, const std::vector<std::string>& arguments,
                    std::optional<uid_t> uid = std::nullopt)
    {
        std::vector<char*> argv{const_cast<char*>(path.c_str())};
        for (const std::string& argument : arguments)
        {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        int out[2];
        int in[2];
        if (pipe2(out, O_CLOEXEC) != 0 || pipe2(in, O_CLOEXEC) != 0)
        {
            ADD_FAILURE() << "pipe2 failed";
            return;
        }
        pid = fork();
        if (pid == 0)
        {
            dup2(out[1], STDOUT_FILENO);
            dup2(in[0], STDIN_FILENO);
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
        input = in[1];
        EXPECT_GT(pid, 0) << "fork failed";
    }
    ScriptedProcess(const ScriptedProcess&) = delete;
    ScriptedProcess& operator=(const ScriptedProcess&) = delete;
    ~ScriptedProcess()
    {
        Stop(SIGKILL);
        if (input >= 0)
        {
            close(input);
        }
        if (output >= 0)
        {
            close(output);
        }
    }

    pid_t GetPid() const { return pid; }

    void Send(const std::string& command)
    {
        const std::string line = command + "\n";
        EXPECT_EQ(write(input, line.data(), line.size()), static_cast<ssize_t>(line.size())) << command;
    }

    /// The first line, kept or new, that satisfies `predicate`; lines passed over are kept for later
    /// calls. Empty when none came within `timeout` or the process closed its output.
    std::string WaitFor(const std::function<bool(const std::string&)>& predicate,
                        std::chrono::milliseconds timeout = std::chrono::seconds(30))
    {
        for (auto it = kept.begin(); it != kept.end(); ++it)
        {
            if (predicate(*it))
            {
                std::string line = *it;
                kept.erase(it);
                return line;
            }
        }
        const auto deadline = std::chrono::steady_clock::now() + timeout;
        for (;;)
        {
            const std::string line = ReadLine(deadline);
            if (line.empty() || predicate(line))
            {
                return line;
            }
            kept.push_back(line);
        }
    }

    /// The next line that starts with `prefix`.
    std::string WaitForPrefix(const std::string& prefix)
    {
        return WaitFor([&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
    }

    /// Sends `command` and returns its answer, the next line that starts with "ok" or "error".
    std::string Ask(const std::string& command)
    {
        Send(command);
        return WaitFor([](const std::string& line)
                       { return line.rfind("ok", 0) == 0 || line.rfind("error", 0) == 0; });
    }

    /// Sends `signal` unless the process ended, and waits for its end; returns the wait status.
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
    std::string ReadLine(std::chrono::steady_clock::time_point deadline)
    {
        for (;;)
        {
            if (const auto end = buffered.find('\n'); end != std::string::npos)
            {
                std::string line = buffered.substr(0, end);
                buffered.erase(0, end + 1);
                return line;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd entry{output, POLLIN, 0};
            char chunk[4096];
            const ssize_t got = left.count() > 0 && poll(&entry, 1, static_cast<int>(left.count())) > 0
                                    ? read(output, chunk, sizeof chunk)
                                    : 0;
            if (got <= 0)
            {
                return {};
            }
            buffered.append(chunk, static_cast<std::size_t>(got));
        }
    }

    pid_t pid = -1;
    int input = -1;
    int output = -1;
    int status = -1;
    std::string buffered;
    std::deque<std::string> kept;
};
}  // namespace Kiv::Testing
