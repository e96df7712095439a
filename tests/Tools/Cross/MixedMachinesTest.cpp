#include "Platform/Tul/Support/ChildProcess.h"
#include "Support/SystemDirectoryTest.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <memory>

#include <sys/wait.h>

// One system of two kinds of machine code on this machine: the broker's process and the command-line tool
// are this machine's own programs (KIV_NATIVE_TOOLS_DIR, of the native build), the two demo components are
// of the cross-compiled build and run under the emulator. Every value crosses the sockets between them.

using Json = nlohmann::json;

namespace
{
class MixedMachinesTest : public Kiv::Testing::SystemDirectoryTest
{
protected:
    void SetUp() override
    {
        SystemDirectoryTest::SetUp();
        for (const char* program : {"kivnm-host", "kivnm"})
        {
            if (!std::filesystem::exists(native / program))
            {
                GTEST_SKIP() << (native / program).string()
                             << " is missing: build the native programs first (cmake --preset default && "
                                "cmake --build --preset default --target kivnm-host kivnm)";
            }
        }
    }
    void TearDown() override
    {
        processes.clear();
        SystemDirectoryTest::TearDown();
    }

    ChildProcess& Start(const std::string& program, std::vector<std::string> args, bool ofThisMachine)
    {
        args.insert(args.end(), {"--system", system, "--endpoints", directory});
        return *processes.emplace_back(
            std::make_unique<ChildProcess>(program, args, std::nullopt, false, ofThisMachine));
    }

    /// The next line of `process` that satisfies `wanted`; empty when none comes.
    template <class Predicate>
    static std::string NextLine(ChildProcess& process, Predicate wanted)
    {
        std::string line;
        while (!(line = process.ReadLine()).empty() && !wanted(line))
        {
        }
        return line;
    }

    static int ExitCode(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

    const std::filesystem::path native = KIV_NATIVE_TOOLS_DIR;
    std::vector<std::unique_ptr<ChildProcess>> processes;
};
}  // namespace

TEST_F(MixedMachinesTest, ComponentsOfTheTargetExchangeNotificationsThroughABrokerOfThisMachine)
{
    ChildProcess& host =
        Start(native / "kivnm-host", {"--name", "Main", "--broker", "--start-on-signal"}, true);
    ASSERT_EQ(host.ReadLine(), "ready");
    ChildProcess& monitor = Start(DEMO_MONITOR, {}, false);
    ASSERT_EQ(monitor.ReadLine(), "monitor ready");
    ChildProcess& sensor = Start(DEMO_SENSOR, {"--period-ms", "100"}, false);
    ASSERT_EQ(sensor.ReadLine(), "sensor ready");
    ChildProcess& watch = Start(native / "kivnm", {"--json", "watch", "Demo.Plant"}, true);
    kill(host.GetPid(), SIGUSR1);
    ASSERT_EQ(host.ReadLine(), "dispatching");

    // From the emulated sensor through this machine's broker to the emulated monitor ...
    EXPECT_FALSE(NextLine(monitor, [](const std::string& line)
                          { return line == "monitor: Demo.Plant.Temperature [Info] temperature = 20 degC"; })
                     .empty());
    // ... and to this machine's tool, with the payload type and the fields as the sensor wrote them.
    const std::string line =
        NextLine(watch, [](const std::string& l) { return Json::parse(l)["name"] == "Demo.Plant.Pressure"; });
    ASSERT_FALSE(line.empty());
    const Json reading = Json::parse(line);
    EXPECT_EQ(reading["payloadType"], "Demo::PlantReading");
    // The time stamp is a 64-bit value of the 32-bit sender: it reads as this year's.
    const std::time_t now = std::time(nullptr);
    EXPECT_EQ(reading["time"].get<std::string>().substr(0, 5),
              std::to_string(1900 + std::gmtime(&now)->tm_year) + "-");
    EXPECT_NE(reading["text"].get<std::string>().find("pressure = "), std::string::npos) << line;

    EXPECT_EQ(ExitCode(watch.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(sensor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(monitor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(host.Stop(SIGTERM)), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}
