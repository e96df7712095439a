#include "Platform/Tul/Support/EchoHostFixture.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>

#include <pwd.h>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;
using Echo::GetEcho;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace
{
/// What /proc/self/fd holds of the transport's kinds: sockets and event descriptors.
int CountTransportDescriptors()
{
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        count += target.rfind("socket:", 0) == 0 || target == "anon_inode:[eventfd]" ? 1 : 0;
    }
    return count;
}

int CountThreads()
{
    const auto tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<int>(std::distance(begin(tasks), end(tasks)));
}

template <class Matcher>
auto Lost(Matcher text)
{
    return ThrowsMessage<Kiv::CommunicationException>(text);
}

class TulTransportMultiProcessTest : public EchoHostFixture
{
protected:
    // Members, so that they outlive their publication, which ends in TearDown.
    Echo::EchoServiceFactory local;
    Echo::EchoServiceFactory guarded{true};
};
}  // namespace

TEST_F(TulTransportMultiProcessTest, CallsReachTheProviderProcessOnOneSharedConnectionAndFailuresComeBack)
{
    // Asked for right away: the connect wait covers the host's start.
    ChildProcess& host = StartHost("B", {}, false);
    const auto echo = GetEcho("B");
    ASSERT_NE(echo, nullptr);
    EXPECT_EQ(echo->Echo("hello"), "hello");
    EXPECT_EQ(echo->Echo(""), "");
    EXPECT_EQ(echo->Add(40, 2), 42U);
    const Echo::Identity identity = echo->Identify();
    EXPECT_EQ(identity.serverPid, static_cast<std::uint32_t>(host.GetPid()));
    EXPECT_EQ(identity.callerPid, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(identity.callerUid, geteuid());
    EXPECT_EQ(identity.callerGid, getegid());

    const auto second = GetEcho("B");
    EXPECT_EQ(&dynamic_cast<Echo::EchoServiceProxy&>(*second).GetClient(),
              &dynamic_cast<Echo::EchoServiceProxy&>(*echo).GetClient());
    Echo::EchoProxyFactory other("Test.INotPublished");
    EXPECT_EQ(ServiceManager::GetService("B", other), nullptr);

    EXPECT_THAT([&] { echo->Throw("Kiv::XmlException", "text with {0} braces"); },
                ThrowsMessage<Kiv::XmlException>("text with {0} braces"));
    EXPECT_THAT([&] { echo->Throw("Kiv::ArgumentException", "argument"); },
                ThrowsMessage<Kiv::ArgumentException>("argument"));
    EXPECT_EQ(echo->Echo("still there"), "still there");
}

TEST_F(TulTransportMultiProcessTest, KilledPeerFailsWaitingAndLaterCallsAndItsStaleEndpointAllowsARestart)
{
    settings.callTimeLimit = 120s;
    Reconfigure();
    ChildProcess& host = StartHost("B");
    const auto echo = GetEcho("B");
    const auto lost = Lost(HasSubstr("Connection to provider 'B' is lost"));
    auto running = std::async(std::launch::async, [&] { EXPECT_THAT([&] { echo->Sleep(100000); }, lost); });
    ASSERT_EQ(host.ReadLine(), "sleeping");
    auto waiting = std::async(std::launch::async, [&] { EXPECT_THAT([&] { echo->Echo("x"); }, lost); });
    const auto killed = std::chrono::steady_clock::now();
    host.Stop(SIGKILL);
    running.get();
    waiting.get();
    EXPECT_LT(std::chrono::steady_clock::now() - killed, 60s);  // long before the time limit
    EXPECT_THAT([&] { echo->Add(1, 2); }, lost);

    EXPECT_TRUE(std::filesystem::exists(GetEndpoint("B")));
    StartHost("B");
    const auto again = GetEcho("B");
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->Echo("back"), "back");
    EXPECT_THAT([&] { echo->Echo("old"); }, lost);  // nothing reconnects it
}

TEST_F(TulTransportMultiProcessTest, CallTimeLimitFailsAHungCallAndBreaksTheConnection)
{
    settings.callTimeLimit = 500ms;
    Reconfigure();
    StartHost("B");
    const auto echo = GetEcho("B");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT([&] { echo->Sleep(30000); },
                Lost("Connection to provider 'B' is lost: the call timed out after 500 ms"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    EXPECT_THAT([&] { echo->Echo("late"); }, Lost(HasSubstr("timed out after 500 ms")));

    // A new connection has a server thread of its own, next to the one still in the hung call.
    const auto fresh = GetEcho("B");
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->Echo("fresh"), "fresh");
}

TEST_F(TulTransportMultiProcessTest, MaximumFrameSizeIsEnforcedOnBothSides)
{
    settings.maxFrameSize = 64 * 1024;
    Reconfigure();
    StartHost("Small", {"--max-frame", "32768"});
    StartHost("Large");
    const auto small = GetEcho("Small");
    const auto large = GetEcho("Large");
    // Frame: 12 header bytes; a text is a 4-byte length and its bytes; a response starts with 1 byte.
    EXPECT_THAT(
        [&] { small->Echo(Kiv::String(40000, 'a')); },
        Lost("Request of 40016 bytes exceeds the maximum frame size of 32768 bytes of provider 'Small'"));
    EXPECT_THAT(
        [&] { small->Fill(40000); },
        Lost("Response of 40017 bytes exceeds the maximum frame size of 32768 bytes of provider 'Small'"));
    EXPECT_THAT(
        [&] { large->Echo(Kiv::String(70000, 'a')); },
        Lost("Request of 70016 bytes to provider 'Large' exceeds the maximum frame size of 65536 bytes"));
    EXPECT_THAT(
        [&] { large->Fill(70000); },
        Lost("Response of 70017 bytes from provider 'Large' exceeds the maximum frame size of 65536 bytes"));
    EXPECT_EQ(small->Echo(Kiv::String(30000, 'a')).size(), 30000U);
    EXPECT_EQ(large->Fill(3), "xxx");
}

TEST_F(TulTransportMultiProcessTest, PolicyFromAFileGrantsByNameAndRefusesTheRest)
{
    const std::string policy = directory + "/policy.xml";
    std::ofstream(policy) << "<TulPolicy>\n"
                          << "  <Grant service='Test.IEchoService' operations='Echo Identify' users='"
                          << getpwuid(geteuid())->pw_name << "'/>\n"
                          << "  <Grant operations='*' groups='65533'/>\n"
                          << "</TulPolicy>\n";
    StartHost("B", {"--policy", policy});
    const auto echo = GetEcho("B");
    EXPECT_EQ(echo->Echo("granted"), "granted");
    EXPECT_THAT([&] { echo->Add(1, 2); },
                ThrowsMessage<Kiv::UnauthorizedAccessException>(Kiv::String::Format(
                    "Access denied to 'Add' of service 'Test.IEchoService' of provider 'B' "
                    "for uid {0} gid {1} pid {2}",
                    geteuid(), getegid(), getpid())));
}

TEST_F(TulTransportMultiProcessTest, DefaultAuthorizatorRefusesACallerOfAnotherUser)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "running a caller as another user needs root";
    }
    ServiceManager::PublishService("A", Echo::serviceName, guarded);
    ChildProcess nobody(TUL_ECHO_HOST, Arguments("call", "A", {"hi"}), 65534);
    ChildProcess root(TUL_ECHO_HOST, Arguments("call", "A", {"hi"}));
    EXPECT_EQ(
        nobody.ReadLine(),
        Kiv::String::Format("error Kiv::UnauthorizedAccessException: Access denied to 'Echo' of service "
                            "'Test.IEchoService' of provider 'A' for uid 65534 gid 65534 pid {0}",
                            nobody.GetPid()));
    EXPECT_EQ(root.ReadLine(), "ok hi");
}

TEST_F(TulTransportMultiProcessTest, ShutdownLeavesNoThreadDescriptorOrEndpointAndASecondSetupWorks)
{
    const int threadsBefore = CountThreads();
    const int descriptorsBefore = CountTransportDescriptors();
    ServiceManager::PublishService("A", Echo::serviceName, local);
    ChildProcess& host = StartHost("B");
    const auto b = GetEcho("B");
    EXPECT_EQ(b->CallBack("A", "x"), "x");  // into its waiting caller: a connection thread here
    EXPECT_GE(CountThreads(), threadsBefore + 2);
    EXPECT_TRUE(std::filesystem::exists(GetEndpoint("A")));

    ServiceManager::Shutdown();
    EXPECT_EQ(CountThreads(), threadsBefore);
    EXPECT_EQ(CountTransportDescriptors(), descriptorsBefore);
    EXPECT_FALSE(std::filesystem::exists(GetEndpoint("A")));
    EXPECT_THAT([&] { b->Echo("after"); },
                Lost("Connection to provider 'B' is lost: the service manager was shut down"));

    EXPECT_EQ(host.Stop(SIGTERM), 0);  // the host's own Shutdown
    EXPECT_FALSE(std::filesystem::exists(GetEndpoint("B")));

    ServiceManager::PublishService("A", Echo::serviceName, local);
    EXPECT_TRUE(std::filesystem::exists(GetEndpoint("A")));
    EXPECT_EQ(GetEcho("A")->Echo("again"), "again");
}
