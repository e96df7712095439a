#include "Platform/Tul/Support/ChildProcess.h"
#include "Support/SystemDirectoryTest.h"
#include "Support/WaitFor.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

// Two systems, standing for two machines, each with a bridge to one real mosquitto of the test's own on a
// free loopback port.

using ::testing::HasSubstr;
using Json = nlohmann::json;

#ifndef KIVNM_BRIDGE
#define KIVNM_BRIDGE ""
#define BRIDGE_PEER ""
#endif

namespace
{
/// Binds (port 0: a free port, which it returns) or connects (true if something listens) on loopback.
int OnLoopback(int port, bool connectTo)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    socklen_t length = sizeof address;
    const int result = connectTo ? connect(fd, reinterpret_cast<sockaddr*>(&address), length) == 0
                                 : (bind(fd, reinterpret_cast<sockaddr*>(&address), length),
                                    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length),
                                    ntohs(address.sin_port));
    close(fd);
    return result;
}

std::string Read(const std::string& path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

int Count(const std::string& text, const std::string& part)
{
    int n = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    {
        ++n;
    }
    return n;
}

class KivNmBridgeTest : public Kiv::Testing::SystemDirectoryTest
{
protected:
    void SetUp() override
    {
        SystemDirectoryTest::SetUp();
        if (std::string(KIVNM_BRIDGE).empty())
        {
            GTEST_SKIP() << "kivnm-bridge is not built: libmosquitto is missing (scripts/install-deps.sh)";
        }
        if (!std::filesystem::exists(MOSQUITTO))
        {
            GTEST_SKIP() << "mosquitto is not installed (scripts/install-deps.sh installs it)";
        }
        port = OnLoopback(0, false);
    }

    void TearDown() override
    {
        processes.clear();
        mqtt.reset();
        SystemDirectoryTest::TearDown();
    }

    ChildProcess& Keep(std::unique_ptr<ChildProcess> process)
    {
        return *processes.emplace_back(std::move(process));
    }

    /// mosquitto on this test's port, with a persistent store so that sessions outlive a restart.
    void StartMqtt(const std::string& extra = "")
    {
        const std::string config = directory + "/mosquitto.conf";
        std::ofstream(config) << "listener " << port << " 127.0.0.1\npersistence true\npersistence_location "
                              << directory
                              << "/\nlog_dest none\n"
                              // Started by root, it would write its store as the user mosquitto, who may
                              // not write here.
                              << "user " << (geteuid() == 0 ? "root" : "mosquitto") << "\n"
                              << (extra.empty() ? "allow_anonymous true\n" : extra);
        // This machine's own mosquitto, also when the programs under test run under an emulator.
        mqtt = std::make_unique<ChildProcess>(MOSQUITTO, std::vector<std::string>{"-c", config}, std::nullopt,
                                              false, true);
        ASSERT_TRUE(Kiv::Testing::WaitFor([&] { return OnLoopback(port, true) == 1; }));
    }

    /// The main process of system `name`, which delivers from SIGUSR1 on.
    ChildProcess& Host(const std::string& name)
    {
        ChildProcess& host = Keep(std::make_unique<ChildProcess>(
            KIVNM_HOST, std::vector<std::string>{"--name", "Main", "--broker", "--start-on-signal",
                                                 "--system", system + name, "--endpoints", directory}));
        EXPECT_EQ(host.ReadLine(), "ready");
        return host;
    }

    static void Dispatch(ChildProcess& host)
    {
        kill(host.GetPid(), SIGUSR1);
        EXPECT_EQ(host.ReadLine(), "dispatching");
    }

    ChildProcess& Peer(const std::string& name, const std::string& command = "")
    {
        ChildProcess& peer = Keep(std::make_unique<ChildProcess>(
            BRIDGE_PEER,
            std::vector<std::string>{"--system", system + name, "--endpoints", directory, "--name",
                                     "Peer" + std::to_string(processes.size())},
            std::nullopt, true));
        if (!command.empty())
        {
            peer.WriteLine(command);
            EXPECT_EQ(peer.ReadLine(), "ok") << command;
        }
        return peer;
    }

    /// The settings file of the bridge of system `name`: this test's MQTT broker and `body`.
    std::string Settings(const std::string& name, const std::string& body, const std::string& broker = "")
    {
        const std::string path = directory + "/bridge-" + name + ".xml";
        std::ofstream(path) << "<?xml version=\"1.0\"?>\n<KivNmBridgeSettings>\n  <Broker port=\"" << port
                            << "\" clientId=\"" << system << name << "\" " << broker << "/>\n"
                            << body << "</KivNmBridgeSettings>\n";
        return path;
    }

    /// kivnm-bridge in system `name`, its log in Log(name), which starts empty.
    ChildProcess& Bridge(const std::string& name, const std::string& settings)
    {
        std::filesystem::remove(Log(name));
        return Keep(std::make_unique<ChildProcess>(
            "/bin/sh",
            std::vector<std::string>{"-c", "exec " + Kiv::Testing::EmulatorPrefix() + KIVNM_BRIDGE +
                                               " --settings " + settings + " --system " + system + name +
                                               " --endpoints " + directory + " 2>>" + Log(name)},
            std::nullopt, false, true));
    }

    std::string Log(const std::string& name) const { return directory + "/bridge-" + name + ".log"; }

    /// Waits for `bridge` to say that it is ready and, unless `refused` holds a text of its log, connected;
    /// a refused one must end with code 1 and that text in its log.
    void Expect(ChildProcess& bridge, const std::string& refused = "")
    {
        EXPECT_EQ(bridge.ReadLine(), "ready");
        if (refused.empty())
        {
            EXPECT_EQ(bridge.ReadLine(), "connected");
            return;
        }
        EXPECT_EQ(bridge.ReadLine(), "");  // its end, or the time limit for one that hangs on
        EXPECT_EQ(bridge.Stop(SIGKILL), 1 << 8) << refused;
        EXPECT_THAT(Read(Log("a")), HasSubstr(refused));
    }

    /// The notifications that `watcher` prints, by their text, until one of each name in `last` has come.
    static std::map<std::string, std::vector<Json>> Until(ChildProcess& watcher, std::set<std::string> last)
    {
        std::map<std::string, std::vector<Json>> seen;
        for (std::string line; !last.empty() && !(line = watcher.ReadLine()).empty();)
        {
            const Json notification = Json::parse(line);
            seen[notification["text"].get<std::string>()].push_back(notification);
            last.erase(notification["name"].get<std::string>());
        }
        return seen;
    }

    int port = 0;
    std::unique_ptr<ChildProcess> mqtt;
    std::vector<std::unique_ptr<ChildProcess>> processes;
};
}  // namespace

TEST_F(KivNmBridgeTest, TwoSystemsThatExportAndImportTheSameSubtreeGetEachNotificationOnceWithItsValues)
{
    StartMqtt();
    const std::string both = "  <Export name=\"Demo\"/>\n  <Import topic=\"kiv/+/Demo/#\"/>\n";
    ChildProcess& hostA = Host("a");
    ChildProcess& hostB = Host("b");
    ChildProcess& bridgeA = Bridge("a", Settings("a", both));
    ChildProcess& bridgeB = Bridge("b", Settings("b", both));
    Expect(bridgeA);
    Expect(bridgeB);
    ChildProcess& watchA = Peer("a", "subscribe Demo");
    ChildProcess& watchB = Peer("b", "subscribe Demo");
    Dispatch(hostA);
    Dispatch(hostB);

    // Both directions at once, and a payload with a field of every type that crosses processes.
    ChildProcess& sendA = Peer("a");
    ChildProcess& sendB = Peer("b");
    sendA.WriteLine("send Demo.Plant.Temperature Warning 20 text");
    sendB.WriteLine("send Demo.Line.Speed Info 20 text");
    EXPECT_EQ(sendA.ReadLine(), "ok");
    EXPECT_EQ(sendB.ReadLine(), "ok");
    sendA.WriteLine("send Demo.Plant.Types Error 1 all");
    const Json sent = Json::parse(sendA.ReadLine());
    EXPECT_EQ(sendA.ReadLine(), "ok");
    sendA.WriteLine("send Demo.Plant.End Info 1 text");
    EXPECT_EQ(sendA.ReadLine(), "ok");
    sendB.WriteLine("send Demo.Line.End Info 1 text");
    EXPECT_EQ(sendB.ReadLine(), "ok");

    // A notification sent again, here or over MQTT, would come before the last one of its name.
    auto seenA = Until(watchA, {"Demo.Plant.End", "Demo.Line.End"});
    auto seenB = Until(watchB, {"Demo.Plant.End", "Demo.Line.End"});
    ASSERT_EQ(seenA.size(), 43u);
    ASSERT_EQ(seenB.size(), 43u);
    for (const auto& [text, copies] : seenB)
    {
        ASSERT_EQ(copies.size(), 1u) << text;
        ASSERT_EQ(seenA[text].size(), 1u) << text;
        // Name, severity, payload type, time stamp, fields and text: the same on both sides.
        EXPECT_EQ(copies[0], seenA[text][0]);
    }
    const Json& types = seenB["(no text form)"][0];
    EXPECT_EQ(types["fields"], sent["sent"]);
    EXPECT_EQ(types["timestamp"], sent["timestamp"]);
    EXPECT_EQ(types["payloadType"], "Test::EveryType");
    EXPECT_EQ(types["severity"], "Error");
    EXPECT_EQ(seenB["Demo.Plant.Temperature #7"][0]["severity"], "Warning");
    EXPECT_EQ(seenB["Demo.Plant.Temperature #7"][0]["payloadType"], "Kiv::System::Nm::StringPayload");

    for (ChildProcess* process : {&bridgeA, &bridgeB})
    {
        EXPECT_EQ(process->Stop(SIGINT), 0);
    }
    EXPECT_THAT(Read(Log("a")), HasSubstr("stopped: exported 22, imported 21, dropped 0"));
}

TEST_F(KivNmBridgeTest, TheMqttBrokerStoppedAndRestartedMidStreamLosesNothingAtQos1)
{
    StartMqtt();
    ChildProcess& hostA = Host("a");
    ChildProcess& hostB = Host("b");
    Expect(Bridge("a", Settings("a", "  <Export name=\"Demo.Plant\"/>\n")));
    Expect(Bridge("b", Settings("b", "  <Import topic=\"kiv/#\"/>\n")));
    ChildProcess& watchB = Peer("b", "subscribe Demo");
    ChildProcess& sendA = Peer("a");
    Dispatch(hostA);
    Dispatch(hostB);

    constexpr int total = 300;
    sendA.WriteLine("send Demo.Plant.Flow Info " + std::to_string(total) + " text 5");
    std::map<std::string, int> seen;
    const auto take = [&]
    {
        const std::string line = watchB.ReadLine();
        ++seen[line.empty() ? "" : Json::parse(line)["text"].get<std::string>()];
        return !line.empty();
    };
    while (seen.size() < 30 && take())
    {
    }
    EXPECT_EQ(mqtt->Stop(SIGTERM), 0);
    ASSERT_TRUE(
        Kiv::Testing::WaitFor([&] { return Read(Log("a")).find("disconnected") != std::string::npos; }));
    StartMqtt();
    while (seen.size() < total && take())
    {
    }
    sendA.WriteLine("send Demo.Plant.End Info 1 text");
    while (seen.count("Demo.Plant.End #0") == 0 && take())
    {
    }
    EXPECT_EQ(seen.count(""), 0u) << Read(Log("a")) << Read(Log("b"));
    for (int i = 0; i < total; ++i)
    {
        EXPECT_EQ(seen["Demo.Plant.Flow #" + std::to_string(i)], 1) << i;
    }
    // One line for each change of state, none for each attempt to reconnect.
    const std::string log = Read(Log("a"));
    EXPECT_EQ(Count(log, "disconnected from the MQTT broker"), 1) << log;
    EXPECT_EQ(Count(log, "connected to the MQTT broker"), 2) << log;
}

TEST_F(KivNmBridgeTest, WhileTheMqttBrokerIsAwayTheBridgeKeepsItsBufferAndCountsWhatItDropped)
{
    // The importing side's persistent session exists before the broker goes away.
    StartMqtt();
    ChildProcess& hostA = Host("a");
    ChildProcess& hostB = Host("b");
    Expect(Bridge("b", Settings("b", "  <Import topic=\"kiv/#\"/>\n")));
    EXPECT_EQ(mqtt->Stop(SIGTERM), 0);

    ChildProcess& bridgeA =
        Bridge("a", Settings("a",
                             "  <Export name=\"Demo\"/>\n  <Buffer notifications=\"5\"/>\n"
                             "  <Reconnect minSeconds=\"1\" maxSeconds=\"2\"/>\n"));
    ASSERT_EQ(bridgeA.ReadLine(), "ready");
    ChildProcess& watchB = Peer("b", "subscribe Demo");
    ChildProcess& sendA = Peer("a");
    Dispatch(hostA);
    Dispatch(hostB);
    sendA.WriteLine("send Demo.Plant.Flow Info 8 text");
    EXPECT_EQ(sendA.ReadLine(), "ok");
    ASSERT_TRUE(Kiv::Testing::WaitFor([&] { return Read(Log("a")).find("is full") != std::string::npos; }));
    StartMqtt();
    ASSERT_EQ(bridgeA.ReadLine(), "connected");
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(Json::parse(watchB.ReadLine())["text"], "Demo.Plant.Flow #" + std::to_string(i));
    }
    ASSERT_TRUE(Kiv::Testing::WaitFor(
        [&] { return Read(Log("a")).find("3 notifications were dropped") != std::string::npos; }))
        << Read(Log("a"));
}

TEST_F(KivNmBridgeTest, ABadSettingAndAWrongPasswordAreClearErrors)
{
    const std::string passwords = directory + "/passwords";
    ASSERT_EQ(std::system(("mosquitto_passwd -c -b " + passwords + " plant right >/dev/null").c_str()), 0);
    StartMqtt("allow_anonymous false\npassword_file " + passwords + "\n");
    Host("a");
    const auto secret = [&](const std::string& name, const std::string& text)
    {
        const std::string path = directory + "/" + name;
        std::ofstream(path) << text << "\n";
        chmod(path.c_str(), 0600);
        return path;
    };
    const std::string credentials = "  <Credentials user=\"plant\" passwordFile=\"";
    // A bad setting ends the bridge before it is ready.
    for (const auto& [body, broker, error] : std::vector<std::array<std::string, 3>>{
             {"", "qos=\"2\"", ".xml(3): element 'Broker': bad value '2' of attribute 'qos'"},
             {"  <Export name=\"Demo..Plant\"/>\n", "",
              ".xml(4): element 'Export': bad value 'Demo..Plant'"}})
    {
        ChildProcess& bridge = Bridge("a", Settings("a", body, broker));
        EXPECT_EQ(bridge.ReadLine(), "") << error;
        EXPECT_EQ(bridge.Stop(SIGKILL), 1 << 8) << error;
        EXPECT_THAT(Read(Log("a")), HasSubstr(error));
    }
    Expect(Bridge("a", Settings("a", credentials + secret("wrong", "wrong") + "\"/>\n")),
           "refused the connection: Connection Refused: not authorised");
    ChildProcess& bridge = Bridge("a", Settings("a", credentials + secret("right", "right") + "\"/>\n"));
    Expect(bridge);
    EXPECT_EQ(bridge.Stop(SIGINT), 0);
    EXPECT_THAT(Read(Log("a")), HasSubstr("connected to the MQTT broker"));
}

TEST_F(KivNmBridgeTest, TlsWithTheRightAuthorityConnectsAndWithAnotherIsAClearError)
{
    if (std::system("command -v openssl >/dev/null") != 0)
    {
        GTEST_SKIP() << "openssl is not installed (scripts/install-deps.sh installs it)";
    }
    // An authority that signed the MQTT broker's certificate, and one that did not.
    const std::string d = directory + "/";
    const std::string make =
        "cd " + d +
        " && openssl req -x509 -newkey rsa:2048 -nodes -keyout ca.key -out ca.crt -days 2 -subj /CN=ca"
        " && openssl req -newkey rsa:2048 -nodes -keyout broker.key -out broker.csr -subj /CN=127.0.0.1"
        " && echo subjectAltName=IP:127.0.0.1 > ext && openssl x509 -req -in broker.csr -CA ca.crt -CAkey "
        "ca.key"
        " -CAcreateserial -out broker.crt -days 2 -extfile ext"
        " && openssl req -x509 -newkey rsa:2048 -nodes -keyout other.key -out other.crt -days 2 -subj "
        "/CN=other"
        " && chmod 644 broker.key >/dev/null 2>&1";
    ASSERT_EQ(std::system((make + " 2>/dev/null").c_str()), 0);
    StartMqtt("allow_anonymous true\ncafile " + d + "ca.crt\ncertfile " + d + "broker.crt\nkeyfile " + d +
              "broker.key\n");
    Host("a");
    const auto tls = [&](const std::string& authority) -> ChildProcess&
    { return Bridge("a", Settings("a", "  <Tls caFile=\"" + d + authority + ".crt\"/>\n")); };
    ChildProcess& trusting = tls("ca");
    Expect(trusting);
    EXPECT_EQ(trusting.Stop(SIGINT), 0);
    Expect(tls("other"),
           "TLS with the MQTT broker 127.0.0.1:" + std::to_string(port) +
               " failed: OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed");
}
