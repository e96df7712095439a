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
        system = "tools-" + std::to_string(getpid());
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

    /// Runs kivnm in this test's system to its end: its output, stdout and stderr together, and its exit
    /// code in `exitCode`.
    std::string Tool(const std::vector<std::string>& args)
    {
        std::string command =
            std::string(KIVNM_CLI) + " --system '" + system + "' --endpoints '" + directory + "'";
        for (const auto& arg : args)
        {
            command += " '" + arg + "'";
        }
        std::string output;
        FILE* pipe = popen((command + " 2>&1").c_str(), "r");
        char chunk[4096];
        while (std::fgets(chunk, sizeof chunk, pipe) != nullptr)
        {
            output += chunk;
        }
        exitCode = ExitCode(pclose(pipe));
        return output;
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

    std::string directory;
    std::string system;
    std::vector<std::unique_ptr<ChildProcess>> processes;
    int exitCode = -1;
};
}  // namespace

TEST_F(KivNmToolsTest, TheDemoComponentsAndTheToolSeeTheSameNotificationsAndEveryoneStopsCleanly)
{
    EXPECT_EQ(Tool({"stats"}),
              "kivnm: no broker reachable for system '" + system + "' (endpoints in " + directory + ")\n");
    EXPECT_EQ(exitCode, 1);
    EXPECT_THAT(Tool({"frobnicate"}), HasSubstr("usage: kivnm"));
    EXPECT_EQ(exitCode, 2);

    ChildProcess& host = Start(KIVNM_HOST, {"--name", "Main", "--broker", "--start-on-signal"});
    ASSERT_EQ(host.ReadLine(), "ready");
    ChildProcess& monitor = Start(DEMO_MONITOR, {});
    ASSERT_EQ(monitor.ReadLine(), "monitor ready");
    ChildProcess& sensor = Start(DEMO_SENSOR, {"--period-ms", "100"});
    ASSERT_EQ(sensor.ReadLine(), "sensor ready");
    ChildProcess& watch = Start(KIVNM_CLI, {"--json", "watch", "Demo.Plant", "Demo.Cli"});
    // The set-up window: everyone has joined once the tool's process is listed.
    for (int i = 0; i < 300 && Tool({"list"}).find("ExceptionDuringNotify.kivnm-watch") == std::string::npos;
         ++i)
    {
        usleep(100 * 1000);
    }
    kill(host.GetPid(), SIGUSR1);
    ASSERT_EQ(host.ReadLine(), "dispatching");

    EXPECT_FALSE(NextLine(monitor, [](const std::string& line)
                          { return line == "monitor: Demo.Plant.Temperature [Info] temperature = 20 degC"; })
                     .empty());
    const auto notificationOf = [](const std::string& name)
    { return [name](const std::string& line) { return Json::parse(line)["name"] == name; }; };
    Json reading = Json::parse(NextLine(watch, notificationOf("Demo.Plant.Pressure")));
    EXPECT_EQ(reading["payloadType"], "Demo::PlantReading");
    EXPECT_THAT(reading["text"].get<std::string>(), HasSubstr("pressure = "));

    EXPECT_THAT(Tool({"list", "registered"}), HasSubstr("Registered    Info      Demo.Plant.Temperature"));
    EXPECT_EQ(exitCode, 0);
    const auto show = Json::parse(Tool({"--json", "show", "Demo.Plant.Pressure"}));
    EXPECT_EQ(show["sender"], "Sensor");
    EXPECT_EQ(show["status"], "Registered");
    EXPECT_EQ(Tool({"show", "No.Such.Name"}),
              "kivnm: The supplied notification name is unknown. (argument "
              "'notificationName', value 'No.Such.Name')\n");
    EXPECT_EQ(exitCode, 1);
    EXPECT_GT(Json::parse(Tool({"--json", "stats"}))["submitted"].get<int>(), 0);
    EXPECT_EQ(Tool({"state"}), "subscription state: checked\n");

    const auto sent = Tool({"send", "Demo.Cli.Hello", "hello from the shell", "--severity", "Warning"});
    EXPECT_EQ(exitCode, 0) << sent;
    reading = Json::parse(NextLine(watch, notificationOf("Demo.Cli.Hello")));
    EXPECT_EQ(reading["text"], "hello from the shell");
    EXPECT_EQ(reading["severity"], "Warning");
    EXPECT_EQ(reading["payloadType"], "Kiv::System::Nm::StringPayload");

    EXPECT_EQ(ExitCode(watch.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(sensor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(monitor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(host.Stop(SIGTERM)), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}
