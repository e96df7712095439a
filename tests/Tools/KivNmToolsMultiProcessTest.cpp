#include "Platform/Tul/Support/ChildProcess.h"
#include "Platform/Tul/Support/RawConnection.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>

#include <sys/stat.h>
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

class KivNmToolsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char made[] = "/tmp/kivnm-tools-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        chmod(made, 0755);  // the tool run as another user makes its way to the endpoints
        static int tests = 0;
        system = "tools-" + std::to_string(getpid()) + "-" + std::to_string(++tests);
    }
    void TearDown() override
    {
        // Components before the broker's process, as a real system stops; then whatever is left is killed.
        for (auto it = processes.rbegin(); it != processes.rend(); ++it)
        {
            (*it)->Stop(SIGINT);
        }
        processes.clear();
        std::filesystem::remove_all(directory);
    }

    std::vector<std::string> SystemArgs() const { return {"--system", system, "--endpoints", directory}; }

    ChildProcess& Start(const char* program, std::vector<std::string> args)
    {
        const auto system = SystemArgs();
        args.insert(args.end(), system.begin(), system.end());
        processes.push_back(std::make_unique<ChildProcess>(program, args));
        return *processes.back();
    }

    /// Runs kivnm to its end.
    ToolResult Tool(const std::vector<std::string>& args, bool inThisSystem = true,
                    bool asStranger = false) const
    {
        std::string command =
            std::string(asStranger ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "") + KIVNM_CLI;
        if (inThisSystem)
        {
            for (const auto& arg : SystemArgs())
            {
                command += " '" + arg + "'";
            }
        }
        for (const auto& arg : args)
        {
            command += " '" + arg + "'";
        }
        command += " 2>&1";
        ToolResult result;
        FILE* pipe = popen(command.c_str(), "r");
        std::array<char, 4096> chunk{};
        while (std::fgets(chunk.data(), chunk.size(), pipe) != nullptr)
        {
            result.output += chunk.data();
        }
        const int status = pclose(pipe);
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return result;
    }

    static int ExitCode(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

    /// Reads lines until one satisfies `predicate`; false when the process has ended or fallen silent.
    template <class Predicate>
    static bool ReadUntil(ChildProcess& process, Predicate predicate)
    {
        for (int lines = 0; lines < 1000; ++lines)
        {
            const std::string line = process.ReadLine();
            if (line.empty())
            {
                return false;
            }
            if (predicate(line))
            {
                return true;
            }
        }
        return false;
    }

    std::string directory;
    std::string system;
    std::vector<std::unique_ptr<ChildProcess>> processes;
};
}  // namespace

TEST_F(KivNmToolsTest, TheDemoComponentsAndTheToolSeeTheSameNotificationsAndEveryoneStopsCleanly)
{
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

    EXPECT_TRUE(
        ReadUntil(monitor, [](const std::string& line)
                  { return line == "monitor: Demo.Plant.Temperature [Info] temperature = 20 degC"; }));
    Json reading;
    ASSERT_TRUE(ReadUntil(watch,
                          [&](const std::string& line)
                          {
                              reading = Json::parse(line);
                              return reading["name"] == "Demo.Plant.Pressure";
                          }));
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
    EXPECT_EQ(Tool({"state"}).output, "subscription state: checked\n");
    EXPECT_EQ(Tool({"state", "relaxed"}).output, "subscription state: relaxed\n");

    const auto sent = Tool({"send", "Demo.Cli.Hello", "hello from the shell", "--severity", "Warning"});
    EXPECT_EQ(sent.exitCode, 0) << sent.output;
    ASSERT_TRUE(ReadUntil(watch,
                          [&](const std::string& line)
                          {
                              reading = Json::parse(line);
                              return reading["name"] == "Demo.Cli.Hello";
                          }));
    EXPECT_EQ(reading["text"], "hello from the shell");
    EXPECT_EQ(reading["severity"], "Warning");
    EXPECT_EQ(reading["payloadType"], "Kiv::System::Nm::StringPayload");

    EXPECT_EQ(ExitCode(watch.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(sensor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(monitor.Stop(SIGINT)), 0);
    EXPECT_EQ(ExitCode(host.Stop(SIGTERM)), 0);
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}

TEST_F(KivNmToolsTest, WithoutARunningSystemOrWithABadCommandTheToolSaysSoAndFails)
{
    const auto none = Tool({"stats"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.output,
              "kivnm: no broker reachable for system '" + system + "' (endpoints in " + directory + ")\n");
    EXPECT_EQ(Tool({"watch", "A"}).exitCode, 1);
    const auto bad = Tool({"frobnicate"});
    EXPECT_EQ(bad.exitCode, 2);
    EXPECT_THAT(bad.output, HasSubstr("usage: kivnm"));
}

TEST_F(KivNmToolsTest, APolicyThatWithholdsSendingRefusesItAndStillAnswersQuestions)
{
    const std::string policy = directory + "/policy.xml";
    std::ofstream(policy)
        << "<TulPolicy>\n"
        << "  <Grant provider=\"Kiv\" service=\"Kiv.System.Nm.Services.INotificationManagerService\"\n"
        << "         operations=\"GetNotificationName GetNotificationNameId GetAllKnownNotificationNameIds "
           "GetNotificationRegistration GetPayloadTypeId GetPayloadTypeName "
           "GetNumberOfSubmittedNotifications RegisterNotification\"\n"
        << "         users=\"" << geteuid() << "\"/>\n"
        << "</TulPolicy>\n";
    ChildProcess& host =
        Start(KIVNM_HOST, {"--name", "Main", "--broker", "--start-after", "0", "--policy", policy});
    ASSERT_EQ(host.ReadLine(), "ready");

    EXPECT_EQ(Tool({"stats"}).output, "submitted notifications: 0\n");
    const auto refused = Tool({"send", "A.B", "text"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.output, HasSubstr("SendNotification"));
    EXPECT_EQ(Tool({"stats"}).output, "submitted notifications: 0\n");
    EXPECT_EQ(ExitCode(host.Stop(SIGINT)), 0);
}

TEST_F(KivNmToolsTest, AnotherUserIsRefusedUnderTheDefaultPolicyAndServedUnderOneThatGrantsIt)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "running a caller as another user needs root";
    }
    ChildProcess& strict = Start(KIVNM_HOST, {"--name", "Main", "--broker"});
    ASSERT_EQ(strict.ReadLine(), "ready");
    const auto refused = Tool({"stats"}, true, true);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.output, HasSubstr("Access denied to 'GetNumberOfSubmittedNotifications'"));
    EXPECT_THAT(refused.output, HasSubstr("uid 65534"));
    EXPECT_EQ(Tool({"stats"}).exitCode, 0);
    EXPECT_EQ(ExitCode(strict.Stop(SIGINT)), 0);

    const std::string policy = directory + "/policy.xml";
    std::ofstream(policy) << "<TulPolicy><Grant operations=\"*\" users=\"65534\"/></TulPolicy>\n";
    ChildProcess& granting = Start(KIVNM_HOST, {"--name", "Main", "--broker", "--policy", policy});
    ASSERT_EQ(granting.ReadLine(), "ready");
    const auto served = Tool({"send", "A.B", "from another user"}, true, true);
    EXPECT_EQ(served.exitCode, 0) << served.output;
    EXPECT_EQ(Tool({"stats"}, true, true).output, "submitted notifications: 1\n");
    EXPECT_EQ(ExitCode(granting.Stop(SIGINT)), 0);
}

TEST_F(KivNmToolsTest, TheBrokersProcessClosesRogueConnectionsWithAWarningAndServesOthersThroughout)
{
    const std::string log = directory + "/host.log";
    const std::string endpoint = directory + "/" + system + ".Kiv.sock";
    processes.push_back(std::make_unique<ChildProcess>(
        "/bin/sh",
        std::vector<std::string>{"-c", std::string("exec ") + KIVNM_HOST + " --name Main --broker --system " +
                                           system + " --endpoints " + directory + " 2>" + log}));
    ChildProcess& host = *processes.back();
    ASSERT_EQ(host.ReadLine(), "ready");
    auto served = [&] { return Tool({"stats"}).exitCode == 0; };

    RawWire::RawConnection silent(endpoint);  // connects and never sends: costs nobody anything
    const std::vector<RawWire::Bytes> rogue{
        RawWire::Bytes{'g', 'a', 'r', 'b', 'a', 'g', 'e', '!', 0, 0, 0, 0, 0xFF, 0xFF},
        RawWire::Frame(RawWire::invoke, 1, 1, 1, RawWire::Bytes(40, 7)),  // then cut short below
        []
        {
            auto frame = RawWire::Frame(RawWire::invoke, 1, 1, 1);
            frame[0] = frame[1] = frame[2] = 0xFF;  // a length far beyond the limit
            frame[3] = 0x7F;
            return frame;
        }(),
    };
    for (std::size_t i = 0; i < rogue.size(); ++i)
    {
        RawWire::RawConnection connection(endpoint);
        connection.Send(i == 1 ? RawWire::Bytes(rogue[i].begin(), rogue[i].begin() + 20) : rogue[i]);
        connection.EndSending();
        EXPECT_TRUE(connection.SeesEndOfStream()) << "rogue connection " << i;
        EXPECT_TRUE(served()) << "after rogue connection " << i;
    }
    {
        // Unknown handles and method ids are answered with a failure, and the connection stays usable.
        RawWire::RawConnection connection(endpoint);
        const auto body = connection.Call(RawWire::Frame(RawWire::invoke, 77, 88, 99));
        EXPECT_FALSE(body.empty());
        EXPECT_FALSE(connection.Call(RawWire::Frame(RawWire::invoke, 1, 200, 1)).empty());
    }
    EXPECT_TRUE(served());
    EXPECT_EQ(ExitCode(host.Stop(SIGINT)), 0);

    std::ifstream lines(log);
    int closed = 0;
    for (std::string line; std::getline(lines, line);)
    {
        closed += line.find("[warning] Closed the connection of pid") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(closed, 3);
}
