#pragma once

// A system of NmProbe processes with a system name and an endpoint directory of the test's own; the
// processes are killed and reaped, and the directory removed, when the test ends.

#include <Support/ScriptedProcess.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace Kiv::Testing
{
class ProbeSystem : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char made[] = "/tmp/kiv-nm-system-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        chmod(made, 0755);  // a process of another user makes its way to the endpoints
        static int tests = 0;
        system = "nm-" + std::to_string(getpid()) + "-" + std::to_string(++tests);
    }
    void TearDown() override
    {
        processes.clear();
        std::filesystem::remove_all(directory);
    }

    /// A probe process named `name`; `callTimeLimitMs` bounds each of its remote calls.
    ScriptedProcess& Start(const std::string& name, std::optional<uid_t> uid = std::nullopt,
                           std::optional<int> callTimeLimitMs = std::nullopt)
    {
        std::vector<std::string> arguments{system, directory, name};
        if (callTimeLimitMs)
        {
            arguments.push_back(std::to_string(*callTimeLimitMs));
        }
        processes.push_back(std::make_unique<ScriptedProcess>(NM_PROBE, arguments, uid));
        return *processes.back();
    }

    /// The next notification line for subscription `name`, without the prefix: "<full name> <text>".
    static std::string Notified(ScriptedProcess& process, const std::string& name)
    {
        const std::string prefix = "notify " + name + " ";
        const std::string line = process.WaitForPrefix(prefix);
        return line.empty() ? "(nothing)" : line.substr(prefix.size());
    }

    std::string directory;
    std::string system;
    std::vector<std::unique_ptr<ScriptedProcess>> processes;
};
}  // namespace Kiv::Testing
