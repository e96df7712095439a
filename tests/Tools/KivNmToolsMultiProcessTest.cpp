#include "Platform/Tul/Support/ChildProcess.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include <sys/wait.h>
#include <unistd.h>

// The programs of a running system, each in a process of its own: the host with the broker, the two demo
// components, and the command-line tool, in a system and endpoint directory of the test's own.

using ::testing::HasSubstr;
using Json = nlohmann::json;

namespace
{
struct ToolResult
{
    int exitCode = -1;
    std::string output;  // stdout and stderr together, in order
};

int ExitCode(int status)
{
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class KivNmToolsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char made[] = "/tmp/kivnm-tools-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        static int tests = 0;
        system = "tools-" + std::to_string(getpid()) + "-" + std::to_string(++tests);
    }
    void TearDown() override
    {
        processes.clear();
        std::filesystem::remove_all(directory);
    }

    ChildProcess& Start(const char* program, std::vector<std::string> args)
    {
        args.insert(args.end(), {"--system", system, "--endpoints", directory});
        return *processes.emplace_back(std::make_unique<ChildProcess>(program, args));
    }

    /// Runs kivnm in this test's system to its end.
    ToolResult Tool(const std::vector<std::string>& args) const
    {
        std::string command =
            std::string(KIVNM_CLI) + " --system '" + system + "' --endpoints '" + directory + "'";
        for (const auto& arg : args)
        {
            command += " '" + arg + "'";
        }
        ToolResult result;
        FILE* pipe = popen((command + " 2>&1").c_str(), "r");
        char chunk[4096];
        while (std::fgets(chunk, sizeof chunk, pipe) != nullptr)
        {
            result.output += chunk;
        }
        result.exitCode = ExitCode(pclose(pipe));
        return result;
    }

    /// The next line of `process` that parses as a notification of `name`; empty when none comes.
    static Json NextNotification(ChildProcess& process, const std::string& name)
    {
        for (std::string line = process.ReadLine(); !line.empty(); line = process.ReadLine())
        {
            if (Json reading = Json::parse(line); reading["name"] == name)
            {
                return reading;
            }
        }
        return {};
    }

    std::string directory;
    std::string system;
    std::vector<std::unique_ptr<ChildProcess>> processes;
};
}  // namespace

TEST_F(KivNmToolsTest, TheDemoComponentsAndTheToolSeeTheSameNotificationsAndEveryoneStopsCleanly)
{
    const auto none = Tool({"stats"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.output,
              "kivnm: no broker reachable for system '" + system + "' (endpoints in " + directory + ")\n");
    const auto bad = Tool({"frobnicate"});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_THAT(bad.output, HasSubstr("usage: kivnm"));

    ChildProcess& host = Start(KIVNM_HOST, {"--name", "Main", "--broker", "--start-on-signal"});
    ASSERT_EQ(host.ReadLine(), "ready");
    ChildProcess& monitor = Start(DEMO_MONITOR, {});
    ASSERT_EQ(monitor.ReadLine(), "monitor ready");
    ChildProcess& sensor = Start(DEMO_SENSOR, {"--period-ms", "100"});
    ASSERT_EQ(sensor.ReadLine(), "sensor ready");
    ChildProcess& watch = Start(KIVNM_CLI, {"--json", "watch", "Demo.Plant", "Demo.Cli"});
    // The set-up window: everyone has joined once the tool's process is listed.
    for (int i = 0;
         i < 300 && Tool({"list"}).output.find("ExceptionDuringNotify.kivnm-watch") == std::string::npos; ++i)
    {
        usleep(100 * 1000);
    }
    kill(host.GetPid(), SIGUSR1);
    ASSERT_EQ(host.ReadLine(), "dispatching");

    std::string line;
    while (!(line = monitor.ReadLine()).empty() &&
           line != "monitor: Demo.Plant.Temperature [Info] temperature = 20 degC")
    {
    }
    EXPECT_FALSE(line.empty()) << "the monitor saw no temperature";
    Json reading = NextNotification(watch, "Demo.Plant.Pressure");
    EXPECT_EQ(reading["payloadType"], "Demo::PlantReading");
    EXPECT_EQ(reading["severity"], "Info");
    EXPECT_THAT(reading["text"].get<std::string>(), HasSubstr("pressure = "));

    const auto list = Tool({"list", "registered"});
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(list.output, HasSubstr("Registered    Info      Demo.Plant.Temperature"));
    const auto show = Json::parse(Tool({"--json", "show", "Demo.Plant.Pressure"}).output);
    EXPECT_EQ(show["sender"], "Sensor");
    EXPECT_EQ(show["status"], "Registered");
    EXPECT_THAT(Tool({"types"}).output, HasSubstr("Demo::PlantReading"));
    EXPECT_GT(Json::parse(Tool({"--json", "stats"}).output)["submitted"].get<int>(), 0);
    const auto unknown = Tool({"show", "No.Such.Name"});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_EQ(unknown.output,
              "kivnm: The supplied notification name is unknown. (argument 'notificationName', "
              "value 'No.Such.Name')\n");
    EXPECT_EQ(Tool({"state"}).output, "subscription state: checked\n");
    EXPECT_EQ(Tool({"state", "relaxed"}).output, "subscription state: relaxed\n");

    const auto sent = Tool({"send", "Demo.Cli.Hello", "hello from the shell", "--severity", "Warning"});
    EXPECT_EQ(sent.exitCode, 0) << sent.output;
    reading = NextNotification(watch, "Demo.Cli.Hello");
    EXPECT_EQ(reading["text"], "hello from the shell");
    EXPECT_EQ(reading["severity"], "Warning");
    EXPECT_EQ(reading["payloadType"], "Kiv::System::Nm::StringPayload");

    EXPECT_EQ(ExitCode(watch.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(sensor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(monitor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(host.Stop(SIGTERM)), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}
