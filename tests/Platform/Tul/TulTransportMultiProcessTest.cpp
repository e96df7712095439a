#include "Platform/Tul/Support/EchoHostFixture.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <future>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;
using Echo::GetEcho;
using testing::HasSubstr;

namespace
{
template <class Matcher>
auto Lost(Matcher text)
{
    return testing::ThrowsMessage<Kiv::CommunicationException>(text);
}

using TulTransportMultiProcessTest = EchoHostFixture;
}  // namespace

TEST_F(TulTransportMultiProcessTest,
       CallsReachTheProviderUntilItsProcessDiesAndARestartedOneTakesOverItsEndpoint)
{
    settings.callTimeLimit = 120s;
    ServiceManager::Configure(settings);
    ChildProcess& host = StartHost("B");
    const auto echo = GetEcho("B");
    ASSERT_NE(echo, nullptr);
    EXPECT_EQ(echo->Add(40, 2), 42U);
    EXPECT_EQ(echo->Identify(), Kiv::String::Format("server {0} caller {1} {2} {3}", host.GetPid(), geteuid(),
                                                    getegid(), getpid()));
    Echo::EchoServiceFactory factory;
    EXPECT_THAT([&] { ServiceManager::PublishService("B", Echo::serviceName, factory); },
                testing::ThrowsMessage<Kiv::InvalidOperationException>(
                    HasSubstr("Provider 'B' is served by another process at '")));

    // A call in progress fails as soon as the host dies.
    const auto lost = Lost(HasSubstr("Connection to provider 'B' is lost"));
    auto running = std::async(std::launch::async, [&] { EXPECT_THAT([&] { echo->Sleep(100000); }, lost); });
    ASSERT_EQ(host.ReadLine(), "sleeping");
    const auto killed = std::chrono::steady_clock::now();
    host.Stop(SIGKILL);
    running.get();
    EXPECT_LT(std::chrono::steady_clock::now() - killed, 60s);  // long before the time limit
    EXPECT_THAT([&] { echo->Add(1, 2); }, lost);

    // Its endpoint is left behind, and a new host takes it over as stale.
    EXPECT_TRUE(std::filesystem::exists(GetEndpoint("B")));
    StartHost("B");
    const auto again = GetEcho("B");
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->Echo("back"), "back");
    EXPECT_THAT([&] { echo->Echo("old"); }, lost);  // nothing reconnects it
}

TEST_F(TulTransportMultiProcessTest, TheConnectionToADepartedProviderGoesWithTheLastProxyOnIt)
{
    settings.connectWait = 0s;  // the departed provider's endpoint is left behind
    ServiceManager::Configure(settings);
    const std::size_t before = Testing::CountClients();
    ChildProcess& host = StartHost("B");
    auto first = GetEcho("B");
    auto second = GetEcho("B");
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->Echo("shared"), "shared");
    EXPECT_EQ(Testing::CountClients(), before + 1);
    first.reset();
    host.Stop(SIGKILL);

    // The next look-up lets the transport's hold go; the proxy's hold stays until the proxy goes.
    EXPECT_EQ(GetEcho("B"), nullptr);
    EXPECT_EQ(Testing::CountClients(), before + 1);
    EXPECT_THAT([&] { second->Echo("gone"); }, Lost(HasSubstr("Connection to provider 'B' is lost")));
    second.reset();
    EXPECT_EQ(Testing::CountClients(), before);
}

TEST_F(TulTransportMultiProcessTest, FrameSizeAndCallTimeLimitsAreEnforcedOnBothSides)
{
    settings.maxFrameSize = 64 * 1024;
    settings.callTimeLimit = 2s;
    ServiceManager::Configure(settings);
    StartHost("Small", "32768");
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
    EXPECT_THAT([&] { large->Sleep(30000); },
                Lost("Connection to provider 'Large' is lost: the call timed out after 2000 ms"));
}
