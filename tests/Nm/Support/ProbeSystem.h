#pragma once

// A system of NmProbe processes with a system name and an endpoint directory of the test's own. A probe
// takes commands on its standard input; its answers and the lines it prints by itself (a notification
// arriving) come from its standard output. The processes are killed and reaped, and the directory
// removed, when the test ends, whatever happened.

#include "Platform/Tul/Support/ChildProcess.h"

#include <gtest/gtest.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>

#include <unistd.h>

namespace Kiv::Testing
{
class Probe : public ChildProcess
{
public:
    explicit Probe(const std::vector<std::string>& arguments)
        : ChildProcess(NM_PROBE, arguments, std::nullopt, true)
    {
    }

    /// The answer to the oldest command not yet answered: a line that starts with "ok" or "error".
    std::string Answer()
    {
        return WaitFor([](const std::string& line) { return line.rfind("notify ", 0) != 0; });
    }

    std::string Ask(const std::string& command)
    {
        WriteLine(command);
        return Answer();
    }

    /// The next notification for subscription `name`, as "<full name> <text>".
    std::string Notified(const std::string& name)
    {
        const std::string prefix = "notify " + name + " ";
        const std::string line = WaitFor([&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
        return line.empty() ? "(nothing)" : line.substr(prefix.size());
    }

private:
    /// The first line, kept or new, that satisfies `predicate`; lines passed over are kept for later
    /// calls. Empty when none came within 30 seconds or the process closed its output.
    std::string WaitFor(const std::function<bool(const std::string&)>& predicate)
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
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        for (std::string line;; kept.push_back(line))
        {
            line = ReadLine(std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now()));
            if (line.empty() || predicate(line))
            {
                return line;
            }
        }
    }

    std::deque<std::string> kept;
};

class ProbeSystem : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char made[] = "/tmp/kiv-nm-system-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        static int tests = 0;
        system = "nm-" + std::to_string(getpid()) + "-" + std::to_string(++tests);
    }
    void TearDown() override
    {
        processes.clear();
        std::filesystem::remove_all(directory);
    }

    Probe& Start(const std::string& name)
    {
        return *processes.emplace_back(
            std::make_unique<Probe>(std::vector<std::string>{system, directory, name}));
    }

    std::string directory;
    std::string system;
    std::vector<std::unique_ptr<Probe>> processes;
};
}  // namespace Kiv::Testing
