#include "Platform/Tul/Support/ChildProcess.h"
#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dirent.h>
#include <pwd.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <future>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;
using Echo::GetEcho;
using testing::HasSubstr;

namespace
{
/// The message of the CommunicationException that `call` must raise.
template <class Call>
std::string CommunicationFailure(Call call)
{
    try
    {
        call();
    }
    catch (const Kiv::CommunicationException& e)
    {
        return e.GetMessage();
    }
    return "no CommunicationException";
}

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

/// Each test has a system and an endpoint directory of its own, and its helper processes are killed and
/// reaped at its end whatever happens.
class TulTransportMultiProcessTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ServiceManager::Reset();
        char made[] = "/tmp/kiv-tul-test-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        directory = made;
        chmod(made, 0755);  // a helper running as another user makes its way to the endpoints
        settings.endpointDirectory = directory;
        static int tests = 0;  // a socket path has little room for a test's name
        settings.systemName = "mp-" + std::to_string(getpid()) + "-" + std::to_string(++tests);
        settings.connectWait = 20s;
        ServiceManager::Configure(settings);
    }

    void TearDown() override
    {
        ServiceManager::Reset();
        hosts.clear();
        std::filesystem::remove_all(directory);
    }

    void Reconfigure()
    {
        ServiceManager::Reset();
        ServiceManager::Configure(settings);
    }

    std::vector<std::string> Arguments(const char* mode, const std::string& provider) const
    {
        return {mode, directory, settings.systemName, provider};
    }

    /// The echo host serving `provider`, started; `ready` waits until it serves.
    ChildProcess& StartHost(const std::string& provider, std::vector<std::string> options = {},
                            bool ready = true)
    {
        std::vector<std::string> arguments = Arguments("serve", provider);
        arguments.insert(arguments.end(), options.begin(), options.end());
        hosts.push_back(std::make_unique<ChildProcess>(TUL_ECHO_HOST, arguments));
        if (ready)
        {
            EXPECT_EQ(hosts.back()->ReadLine(), "ready");
        }
        return *hosts.back();
    }

    bool HasEndpoint(const std::string& provider) const
    {
        return std::filesystem::exists(directory + "/" + settings.systemName + "." + provider + ".sock");
    }

    TulSettings settings;
    std::string directory;
    std::vector<std::unique_ptr<ChildProcess>> hosts;
    // Members, so that they outlive their publication, which ends in TearDown.
    Echo::EchoServiceFactory local;
    Echo::EchoServiceFactory guarded{true};
};
}  // namespace

TEST_F(TulTransportMultiProcessTest, CallReachesTheProviderProcessOnOneSharedConnection)
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
    struct OtherService : Echo::EchoProxyFactory
    {
        const char* GetServiceName() const override { return "Test.INotPublished"; }
    } other;
    EXPECT_EQ(ServiceManager::GetService("B", other), nullptr);
}

TEST_F(TulTransportMultiProcessTest, FailuresArriveAsExceptionsAndLeaveTheConnectionWorking)
{
    StartHost("B");
    const auto echo = GetEcho("B");
    auto thrown = [&](const char* typeName, const char* message) -> std::pair<std::string, std::string>
    {
        try
        {
            echo->Throw(typeName, message);
        }
        catch (const Kiv::Exception& e)
        {
            return {e.GetTypeName(), e.GetMessage()};
        }
        return {};
    };
    for (const char* typeName : {"Kiv::ArgumentException", "Kiv::InvalidOperationException",
                                 "Kiv::UnauthorizedAccessException", "Kiv::XmlException", "Kiv::Exception"})
    {
        EXPECT_EQ(thrown(typeName, "text with {0} braces"),
                  std::make_pair(std::string(typeName), std::string("text with {0} braces")));
    }
    EXPECT_EQ(thrown("Nm::NotRegisteredException", "own"),
              std::make_pair(std::string("Kiv::Exception"), std::string("own")));
    EXPECT_EQ(thrown("std::runtime_error", "standard"),
              std::make_pair(std::string("Kiv::Exception"), std::string("standard")));
    EXPECT_EQ(thrown("int", ""), std::make_pair(std::string("Kiv::Exception"),
                                                std::string("Unknown exception in a remote operation")));
    try
    {
        echo->Throw("nested", "inner text");
        ADD_FAILURE() << "no exception";
    }
    catch (const Kiv::InvalidOperationException& e)
    {
        ASSERT_NE(e.GetInnerException(), nullptr);
        EXPECT_EQ(e.GetInnerException()->GetTypeName(), "Kiv::ArgumentException");
        EXPECT_EQ(e.GetInnerException()->GetMessage(), "inner text");
    }

    auto& proxy = dynamic_cast<Echo::EchoServiceProxy&>(*echo);
    EXPECT_EQ(CommunicationFailure([&] { proxy.CallUnknown(99); }),
              "Remote call refused with error 0x40000003");
    EXPECT_EQ(CommunicationFailure([&] { proxy.CallUnknown(0); }),
              "Remote call refused with error 0x40000003");
    EXPECT_EQ(echo->Echo("still there"), "still there");
}

TEST_F(TulTransportMultiProcessTest, KilledPeerFailsWaitingAndLaterCallsAndItsStaleEndpointAllowsARestart)
{
    settings.callTimeLimit = 120s;
    Reconfigure();
    ChildProcess& host = StartHost("B");
    const auto echo = GetEcho("B");
    auto running =
        std::async(std::launch::async, [&] { return CommunicationFailure([&] { echo->Sleep(100000); }); });
    ASSERT_EQ(host.ReadLine(), "sleeping");
    auto waiting =
        std::async(std::launch::async, [&] { return CommunicationFailure([&] { echo->Echo("x"); }); });
    const auto killed = std::chrono::steady_clock::now();
    host.Stop(SIGKILL);
    EXPECT_THAT(running.get(), HasSubstr("Connection to provider 'B' is lost"));
    EXPECT_THAT(waiting.get(), HasSubstr("Connection to provider 'B' is lost"));
    EXPECT_LT(std::chrono::steady_clock::now() - killed, 60s);  // long before the time limit
    EXPECT_THAT(CommunicationFailure([&] { echo->Add(1, 2); }),
                HasSubstr("Connection to provider 'B' is lost"));

    EXPECT_TRUE(HasEndpoint("B"));
    StartHost("B");
    const auto again = GetEcho("B");
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->Echo("back"), "back");
    EXPECT_THAT(CommunicationFailure([&] { echo->Echo("old"); }),
                HasSubstr("is lost"));  // nothing reconnects it
}

TEST_F(TulTransportMultiProcessTest, CallTimeLimitFailsAHungCallAndBreaksTheConnection)
{
    settings.callTimeLimit = 500ms;
    Reconfigure();
    StartHost("B");
    const auto echo = GetEcho("B");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(CommunicationFailure([&] { echo->Sleep(30000); }),
              "Connection to provider 'B' is lost: the call timed out after 500 ms");
    EXPECT_LT(std::chrono::steady_clock::now() - start, 20s);
    EXPECT_THAT(CommunicationFailure([&] { echo->Echo("late"); }), HasSubstr("timed out after 500 ms"));

    // A new connection has a server thread of its own, next to the one still in the hung call.
    const auto fresh = GetEcho("B");
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(fresh->Echo("fresh"), "fresh");
}

TEST_F(TulTransportMultiProcessTest, ProviderMayCallBackIntoItsWaitingCaller)
{
    ServiceManager::PublishService("A", Echo::serviceName, local);
    StartHost("B");
    const auto b = GetEcho("B");
    EXPECT_EQ(b->CallBack("A", "round trip"), "round trip");
    EXPECT_EQ(b->CallBack("A", "and again"), "and again");
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
    EXPECT_EQ(CommunicationFailure([&] { small->Echo(Kiv::String(40000, 'a')); }),
              "Request of 40016 bytes exceeds the maximum frame size of 32768 bytes of provider 'Small'");
    EXPECT_EQ(CommunicationFailure([&] { small->Fill(40000); }),
              "Response of 40017 bytes exceeds the maximum frame size of 32768 bytes of provider 'Small'");
    EXPECT_EQ(CommunicationFailure([&] { large->Echo(Kiv::String(70000, 'a')); }),
              "Request of 70016 bytes to provider 'Large' exceeds the maximum frame size of 65536 bytes");
    EXPECT_EQ(CommunicationFailure([&] { large->Fill(70000); }),
              "Response of 70017 bytes from provider 'Large' exceeds the maximum frame size of 65536 bytes");
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
    StartHost("B", {"--guarded", "--policy", policy});
    const auto echo = GetEcho("B");
    EXPECT_EQ(echo->Echo("granted"), "granted");
    try
    {
        echo->Add(1, 2);
        ADD_FAILURE() << "not refused";
    }
    catch (const Kiv::UnauthorizedAccessException& e)
    {
        EXPECT_EQ(e.GetMessage(),
                  Kiv::String::Format("Access denied to 'Add' of service 'Test.IEchoService' of "
                                      "provider 'B' for uid {0} gid {1} pid {2}",
                                      geteuid(), getegid(), getpid()));
    }
}

TEST_F(TulTransportMultiProcessTest, DefaultAuthorizatorRefusesACallerOfAnotherUser)
{
    if (geteuid() != 0)
    {
        GTEST_SKIP() << "running a caller as another user needs root";
    }
    ServiceManager::PublishService("A", Echo::serviceName, guarded);
    std::vector<std::string> arguments = Arguments("call", "A");
    arguments.push_back("hi");
    ChildProcess nobody(TUL_ECHO_HOST, arguments, 65534);
    ChildProcess root(TUL_ECHO_HOST, arguments);
    EXPECT_EQ(nobody.ReadLine(),
              Kiv::String::Format("error Kiv::UnauthorizedAccessException: Access denied to 'Echo' "
                                  "of service 'Test.IEchoService' of provider 'A' for uid 65534 "
                                  "gid 65534 pid {0}",
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
    EXPECT_EQ(b->CallBack("A", "x"), "x");  // B connected to A: a connection thread here
    EXPECT_GE(CountThreads(), threadsBefore + 2);
    EXPECT_TRUE(HasEndpoint("A"));

    ServiceManager::Shutdown();
    EXPECT_EQ(CountThreads(), threadsBefore);
    EXPECT_EQ(CountTransportDescriptors(), descriptorsBefore);
    EXPECT_FALSE(HasEndpoint("A"));
    EXPECT_EQ(CommunicationFailure([&] { b->Echo("after"); }),
              "Connection to provider 'B' is lost: the service manager was shut down");

    EXPECT_EQ(host.Stop(SIGTERM), 0);  // the host's own Shutdown
    EXPECT_FALSE(HasEndpoint("B"));

    ServiceManager::PublishService("A", Echo::serviceName, local);
    EXPECT_TRUE(HasEndpoint("A"));
    EXPECT_EQ(GetEcho("A")->Echo("again"), "again");
}
