#pragma once

// A system of NmProbe processes with a system name and an endpoint directory of the test's own. A probe
// takes commands on its standard input and answers each with a line on its standard output. The
// processes are killed and reaped, and the directory removed, when the test ends, whatever happened.

#include "Platform/Tul/Support/ChildProcess.h"
#include "Support/SystemDirectoryTest.h"

#include <gtest/gtest.h>

#include <filesystem>
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

    std::string Ask(const std::string& command)
    {
        WriteLine(command);
        return ReadLine();
    }

    /// The next notification for subscription `name`, as "ok <full name> <text>".
    std::string Notified(const std::string& name) { return Ask("next " + name); }
};

class ProbeSystem : public SystemDirectoryTest
{
protected:
    void TearDown() override
    {
        processes.clear();
        SystemDirectoryTest::TearDown();
    }

    /// A probe named `name`, with the call time limit given in milliseconds or else the default.
    Probe& Start(const std::string& name, const std::string& callTimeLimitMs = {})
    {
        std::vector<std::string> arguments{system, directory, name};
        if (!callTimeLimitMs.empty())
        {
            arguments.push_back(callTimeLimitMs);
        }
        return *processes.emplace_back(std::make_unique<Probe>(arguments));
    }

    std::vector<std::unique_ptr<Probe>> processes;
};
}  // namespace Kiv::Testing
