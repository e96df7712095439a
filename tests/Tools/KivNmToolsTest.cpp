#include "Platform/Tul/Support/ChildProcess.h"
#include "Platform/Tul/Support/RawConnection.h"
#include "Support/SystemDirectoryTest.h"
#include "Support/WaitFor.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <tuple>

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

class KivNmToolsTest : public Kiv::Testing::SystemDirectoryTest
{
protected:
    void TearDown() override
    {
        processes.clear();
        SystemDirectoryTest::TearDown();
    }

    ChildProcess& Start(const char* program, std::vector<std::string> args)
    {
        args.insert(args.end(), {"--system", system, "--endpoints", directory});
        return *processes.emplace_back(std::make_unique<ChildProcess>(program, args));
    }

    /// `program` with `args` in this test's system, its stderr to `redirect` (by default into stdout).
    ChildProcess& Shell(const char* program, const std::string& args, const std::string& redirect = "2>&1")
    {
        const std::string line = "exec " + Kiv::Testing::EmulatorPrefix() + program + " " + args +
                                 " --system " + system + " --endpoints " + directory + " " + redirect;
        return *processes.emplace_back(std::make_unique<ChildProcess>(
            "/bin/sh", std::vector<std::string>{"-c", line}, std::nullopt, false, true));
    }

    /// The shell command that runs `program` with `args`, each quoted.
    static std::string Command(const std::string& program, const std::vector<std::string>& args)
    {
        std::string command = Kiv::Testing::EmulatorPrefix() + program;
        for (const auto& arg : args)
        {
            command += " '" + arg + "'";
        }
        return command;
    }

    /// Runs kivnm in this test's system to its end, as this user or as nobody (uid 65534).
    std::string Tool(std::vector<std::string> args, bool asNobody = false)
    {
        args.insert(args.begin(), {"--system", system, "--endpoints", directory});
        return Run(std::string(asNobody ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "") +
                   Command(KIVNM_CLI, args));
    }

    /// Runs `command` to its end: its output, stdout and stderr together, and its exit code in `exitCode`.
    std::string Run(const std::string& command)
    {
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

    /// The set-up window ends once everyone has joined: the watching tool's process is listed last.
    bool WatcherJoined()
    {
        return Kiv::Testing::WaitFor(
            [&] { return Tool({"list"}).find("ExceptionDuringNotify.kivnm-watch") != std::string::npos; });
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
    ASSERT_TRUE(WatcherJoined());
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

    for (ChildProcess* program : {&watch, &sensor, &monitor, &host})
    {
        EXPECT_EQ(ExitCode(program->Stop(program == &host ? SIGTERM : SIGINT)), 0);
    }
    EXPECT_TRUE(std::filesystem::is_empty(directory));
}

TEST_F(KivNmToolsTest, AnotherUserIsRefusedUnderTheDefaultPolicyAndServedUnderOneThatGrantsIt)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "running a caller as another user needs root";
    }
    ChildProcess& strict = Start(KIVNM_HOST, {"--name", "Main", "--broker"});
    ASSERT_EQ(strict.ReadLine(), "ready");
    const std::string refused = Tool({"stats"}, true);
    EXPECT_EQ(exitCode, 1);
    EXPECT_THAT(refused, HasSubstr("Access denied to 'GetNumberOfSubmittedNotifications'"));
    EXPECT_THAT(refused, HasSubstr("uid 65534"));
    Tool({"stats"});
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(ExitCode(strict.Stop(SIGINT)), 0);

    const std::string policy = directory + "/policy.xml";
    std::ofstream(policy) << "<TulPolicy><Grant operations=\"*\" users=\"65534\"/></TulPolicy>\n";
    ChildProcess& granting = Start(KIVNM_HOST, {"--name", "Main", "--broker", "--policy", policy});
    ASSERT_EQ(granting.ReadLine(), "ready");
    const std::string served = Tool({"send", "A.B", "from another user"}, true);
    EXPECT_EQ(exitCode, 0) << served;
    EXPECT_EQ(Tool({"stats"}, true), "submitted notifications: 1\n");
    // Root's kivnm asks the system's own information service once; the other user, whom only the public
    // service admits, gets the same list by asking id after id.
    const std::string types = Tool({"types"});
    EXPECT_THAT(types, HasSubstr("Kiv::System::Nm::StringPayload"));
    EXPECT_EQ(Tool({"types"}, true), types);
    EXPECT_EQ(ExitCode(granting.Stop(SIGINT)), 0);
}

TEST_F(KivNmToolsTest, TheBrokersProcessClosesRogueConnectionsWithAWarningAndServesOthersThroughout)
{
    const std::string log = directory + "/host.log";
    const std::string endpoint = directory + "/" + system + ".Kiv.sock";
    ChildProcess& host = Shell(KIVNM_HOST, "--name Main --broker", "2>" + log);
    ASSERT_EQ(host.ReadLine(), "ready");
    auto served = [&]
    {
        Tool({"stats"});
        return exitCode == 0;
    };

    RawWire::RawConnection silent(endpoint);  // connects and never sends: costs nobody anything
    auto oversized = RawWire::Frame(RawWire::invoke, 1, 1, 1);
    oversized[0] = oversized[1] = oversized[2] = 0xFF;  // a length far beyond the limit
    oversized[3] = 0x7F;
    const auto whole = RawWire::Frame(RawWire::invoke, 1, 1, 1, RawWire::Bytes(40, 7));
    const std::vector<RawWire::Bytes> rogue{
        RawWire::Bytes{'g', 'a', 'r', 'b', 'a', 'g', 'e', '!', 0, 0, 0, 0, 0xFF, 0xFF},
        RawWire::Bytes(whole.begin(), whole.begin() + 20),  // cut short
        oversized,
    };
    for (std::size_t i = 0; i < rogue.size(); ++i)
    {
        RawWire::RawConnection connection(endpoint);
        connection.Send(rogue[i]);
        connection.EndSending();
        EXPECT_TRUE(connection.SeesEndOfStream()) << "rogue connection " << i;
        EXPECT_TRUE(served()) << "after rogue connection " << i;
    }
    {
        // Unknown handles and method ids are answered with a failure, and the connection stays usable.
        RawWire::RawConnection connection(endpoint);
        EXPECT_FALSE(connection.Call(RawWire::Frame(RawWire::invoke, 77, 88, 99)).empty());
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

TEST_F(KivNmToolsTest, WrongCommandLinesAreToldInOneLineWithCodeTwoAndHelpWorksEverywhere)
{
    const std::string longText(24528, 'a');
    const std::vector<std::tuple<std::string, std::vector<std::string>, std::string>> rows{
        {KIVNM_HOST, {"--name", "X", "--start-after", "abc"}, "--start-after takes a number from 0 to 86400"},
        {KIVNM_HOST, {"--name", "X", "--start-after", "nan"}, "not 'nan'"},
        {KIVNM_HOST, {"--name", "X", "--call-time-limit", "0"}, "--call-time-limit takes a number"},
        {DEMO_SENSOR, {"--period-ms", "abc"}, "--period-ms takes a number from 1"},
        {DEMO_MONITOR, {"--frequency", "1"}, "unknown option --frequency"},
        {KIVNM_CLI, {"show", "99999999999999999999"}, "at most 4294967295"},
        {KIVNM_CLI, {"show", "4294967297"}, "at most 4294967295"},
        {KIVNM_CLI, {"send", "A.B", "x", "--severity"}, "--severity needs a value"},
        {KIVNM_CLI, {"send", "A.B", "x", "--severity", "Internal"}, "unknown severity Internal"},
        {KIVNM_CLI, {"list", "registered", "extra"}, "wrong arguments: list"},
        {KIVNM_CLI, {"send", "A.B", longText}, "a notification holds at most 24527"},
        {KIVNM_CLI, {"--system"}, "--system needs a value"},
    };
    for (const auto& [program, args, message] : rows)
    {
        const std::string command = Command(program, args);
        const std::string output = Run(command);
        EXPECT_EQ(exitCode, 2) << command.substr(0, 200);
        EXPECT_THAT(output.substr(0, output.find('\n')), HasSubstr(message)) << command.substr(0, 200);
    }
    for (const std::string program : {KIVNM_HOST, KIVNM_CLI, DEMO_SENSOR, DEMO_MONITOR})
    {
        EXPECT_THAT(Run(Command(program, {"--help"})), ::testing::StartsWith("usage: ")) << program;
        EXPECT_EQ(exitCode, 0) << program;
    }
}

TEST_F(KivNmToolsTest, ALongTextArrivesWholeAndWhenTheBrokerDiesEveryProgramEndsWithOneLine)
{
    ChildProcess& host = Start(KIVNM_HOST, {"--name", "Main", "--broker", "--start-on-signal"});
    ASSERT_EQ(host.ReadLine(), "ready");
    ChildProcess& monitor = Shell(DEMO_MONITOR, "");
    ASSERT_EQ(monitor.ReadLine(), "monitor ready");
    ChildProcess& sensor = Shell(DEMO_SENSOR, "--period-ms 50");
    ASSERT_EQ(sensor.ReadLine(), "sensor ready");
    ChildProcess& watch = Shell(KIVNM_CLI, "--json watch Demo.Cli");
    ASSERT_TRUE(WatcherJoined());
    kill(host.GetPid(), SIGUSR1);
    ASSERT_EQ(host.ReadLine(), "dispatching");
    const std::string longText(24527, 'x');
    Tool({"send", "Demo.Cli.Long", longText});
    ASSERT_EQ(exitCode, 0);
    EXPECT_EQ(Json::parse(watch.ReadLine())["text"], longText);

    host.Stop(SIGKILL);
    for (ChildProcess* program : {&monitor, &sensor, &watch})
    {
        const std::string line = NextLine(
            *program, [](const std::string& l) { return l.find("broker is gone") != std::string::npos; });
        EXPECT_THAT(line, HasSubstr("the notification broker is gone: "));
        EXPECT_EQ(ExitCode(program->Stop(line.empty() ? SIGKILL : 0)), 1);
    }
}

TEST_F(KivNmToolsTest, StoppingWithTheBrokersQueueFullEndsEveryProgramWithoutACrash)
{
    // The broker never delivers and holds two notifications: the sensor's non-blocking sends are retried.
    const std::string settings = directory + "/small.xml";
    std::ofstream(settings) << "<NotificationManagerSettingsDocument><NotificationBroker queueLength=\"2\"/>"
                               "</NotificationManagerSettingsDocument>";
    ChildProcess& host =
        Shell(KIVNM_HOST, "--name Main --broker --start-on-signal --stop-limit 2 --settings " + settings);
    ASSERT_EQ(NextLine(host, [](const std::string& line) { return line == "ready"; }), "ready");
    ChildProcess& sensor = Start(DEMO_SENSOR, {"--period-ms", "10"});
    ASSERT_EQ(sensor.ReadLine(), "sensor ready");
    ASSERT_TRUE(Kiv::Testing::WaitFor(
        [&] {
            return Json::parse(Tool({"--json", "stats"}))["submitted"] >= 2;
        }))
        << "the broker's queue never filled";
    EXPECT_EQ(ExitCode(sensor.Stop(SIGINT)), 0);
    // The broker's thread never ran: its stop waits for room in the full queue for good, so the host gives
    // up after its stop limit, saying so.
    kill(host.GetPid(), SIGTERM);
    const std::string last =
        NextLine(host, [](const std::string& line)
                 { return line == "stopped" || line.find("stopping took") != std::string::npos; });
    EXPECT_THAT(last, HasSubstr("the notifications still queued or in retry are dropped"));
    EXPECT_EQ(ExitCode(host.Stop(0)), 1);

    std::ofstream(settings) << "<NotificationManagerSettingsDocument><NotificationBroker queueLength=\"-1\"/>"
                               "</NotificationManagerSettingsDocument>";
    EXPECT_EQ(
        Run(Kiv::Testing::EmulatorPrefix() + KIVNM_HOST + " --name Main --broker --settings " + settings),
        "kivnm-host: set-up failed: a queue length of 4294967295 in " + settings + " is more than 1048576\n");
    EXPECT_EQ(exitCode, 1);
}
