#pragma once

// A helper process driven line by line: commands go to its standard input, and its answers and the
// lines it prints by itself (a notification arriving, say) come from its standard output. Killed and
// reaped when the object goes, whatever happened.

#include "Platform/Tul/Support/ChildProcess.h"

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Kiv::Testing
{
class ScriptedProcess
{
public:
    ScriptedProcess(const std::string& path, const std::vector<std::string>& arguments,
                    std::optional<uid_t> uid = std::nullopt)
        : process(path, arguments, uid, true)
    {
    }

    pid_t GetPid() const { return process.GetPid(); }
    void Send(const std::string& command) { process.WriteLine(command); }

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
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            const std::string line = left.count() > 0 ? process.ReadLine(left) : std::string();
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
    int Stop(int signal) { return process.Stop(signal); }

private:
    ChildProcess process;
    std::deque<std::string> kept;
};
}  // namespace Kiv::Testing
