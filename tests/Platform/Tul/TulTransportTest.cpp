#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/un.h>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace
{
using Kiv::Exception;  // the family's macro takes the base's plain name

class OwnException : public Exception
{
    KIV_EXCEPTION_MEMBERS(OwnException, Exception)
};

/// "type: message" of the exception that the failure report of what `raise` throws is read back as, and
/// of each of its inner ones, joined by " < ".
std::string RoundTrip(const std::function<void()>& raise)
{
    RemotingWriter writer;
    try
    {
        raise();
    }
    catch (...)
    {
        TulExceptionRegistry::Write(writer, std::current_exception());
    }
    RemotingReader reader(writer.GetData(), writer.GetSize());
    try
    {
        TulExceptionRegistry::Throw(reader);
    }
    catch (const Exception& e)
    {
        std::string text;
        for (const Exception* level = &e; level != nullptr; level = level->GetInnerException())
        {
            text += (text.empty() ? "" : " < ") + level->GetTypeName() + ": " + level->GetMessage();
        }
        return text;
    }
    return "not thrown";
}

/// A socket bound at the endpoint of `provider` in the current system; listening or left as a crashed
/// process leaves it.
int BindEndpoint(const std::string& provider, bool listening)
{
    const TulSettings settings = ServiceManager::GetSettings();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path =
        settings.endpointDirectory + "/" + settings.systemName + "." + provider + ".sock";
    std::strcpy(address.sun_path, path.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0) << path;
    if (listening)
    {
        listen(fd, 1);
        return fd;
    }
    close(fd);
    return -1;
}

class TulTransportTest : public ::testing::Test
{
protected:
    void SetUp() override { ServiceManager::Reset(); }
    void TearDown() override
    {
        ServiceManager::Reset();
        ServiceManager::Configure(original);
    }

    void Configure(void (*change)(TulSettings&))
    {
        TulSettings settings = original;
        change(settings);
        ServiceManager::Configure(settings);
    }

    const TulSettings original = ServiceManager::GetSettings();
    Echo::EchoServiceFactory factory;
};
}  // namespace

TEST(TulExceptionRegistryTest, FailureReportRebuildsClassMessageAndInnerChain)
{
    for (const char* typeName :
         {"Kiv::Exception", "Kiv::ArgumentException", "Kiv::ArgumentOutOfRangeException",
          "Kiv::InvalidOperationException", "Kiv::InvalidCastException", "Kiv::NotSupportedException",
          "Kiv::NotImplementedException", "Kiv::UnauthorizedAccessException", "Kiv::CommunicationException",
          "Kiv::XmlException"})
    {
        const auto made = TulExceptionRegistry::Create(typeName, "text {0}");
        EXPECT_EQ(made->GetTypeName(), typeName);
        EXPECT_EQ(RoundTrip([&] { made->Rethrow(); }), std::string(typeName) + ": text {0}");
    }
    // What the registry doesn't know arrives as the family's base.
    EXPECT_EQ(TulExceptionRegistry::Create("Nm::NotRegisteredException", "own")->GetTypeName(),
              "Kiv::Exception");
    EXPECT_EQ(RoundTrip([] { throw std::runtime_error("standard"); }), "Kiv::Exception: standard");
    EXPECT_EQ(RoundTrip([] { throw 42; }), "Kiv::Exception: Unknown exception in a remote operation");

    // A chain keeps its outermost 32 levels.
    TulExceptionRegistry::Register<OwnException>();
    std::unique_ptr<Exception> chain = std::make_unique<Exception>("level 0");
    for (int level = 1; level < 40; ++level)
    {
        auto outer = std::make_unique<OwnException>("level {0}", level);
        outer->SetInnerException(*chain);
        chain = std::move(outer);
    }
    const std::string own = OwnException().GetTypeName() + ": level ";
    std::string expected = own + "39";
    for (int level = 38; level >= 8; --level)
    {
        expected += " < " + own + std::to_string(level);
    }
    EXPECT_EQ(RoundTrip([&] { chain->Rethrow(); }), expected);
}

TEST(TulExceptionRegistryTest, MalformedReportIsACommunicationFailure)
{
    for (const std::vector<std::uint8_t>& report :
         {std::vector<std::uint8_t>{0, 0, 0, 0}, std::vector<std::uint8_t>{1, 0, 0, 0, 200, 0, 0, 0}})
    {
        RemotingReader reader(report.data(), report.size());
        EXPECT_THROW(TulExceptionRegistry::Throw(reader), Kiv::CommunicationException);
    }
}

TEST_F(TulTransportTest, SettingsAreCheckedAndFixedWhileServing)
{
    EXPECT_THROW(Configure([](TulSettings& s) { s.systemName = ""; }), Kiv::ArgumentException);
    EXPECT_THROW(Configure([](TulSettings& s) { s.maxFrameSize = 63; }), Kiv::ArgumentException);
    EXPECT_THROW(Configure([](TulSettings& s) { s.callTimeLimit = -1ms; }), Kiv::ArgumentException);
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    EXPECT_THROW(Configure([](TulSettings& s) { s.callTimeLimit = 1s; }), Kiv::InvalidOperationException);
    ServiceManager::Shutdown();
    Configure([](TulSettings& s) { s.callTimeLimit = 1s; });
    EXPECT_EQ(ServiceManager::GetSettings().callTimeLimit, 1s);
}

TEST_F(TulTransportTest, StaleEndpointIsReplacedAndALiveOneRefused)
{
    Configure([](TulSettings& s) { s.marshalLocalCalls = true; });
    BindEndpoint("Stale", false);
    ServiceManager::PublishService("Stale", Echo::serviceName, factory);
    EXPECT_EQ(Echo::GetEcho("Stale")->Echo("through the socket"), "through the socket");

    const int live = BindEndpoint("Busy", true);
    EXPECT_THAT([&] { ServiceManager::PublishService("Busy", Echo::serviceName, factory); },
                ThrowsMessage<Kiv::InvalidOperationException>(
                    HasSubstr("Provider 'Busy' is served by another process at '")));
    close(live);
    ServiceManager::PublishService("Busy", Echo::serviceName, factory);  // the live one has gone
}

TEST_F(TulTransportTest, UnreachableProviderGivesNullAfterTheConnectWait)
{
    Configure([](TulSettings& s) { s.connectWait = 300ms; });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Echo::GetEcho("Nobody"), nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
}

TEST_F(TulTransportTest, MarshalledCallChecksHowItsContextIsUsed)
{
    Configure([](TulSettings& s) { s.marshalLocalCalls = true; });
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    ServiceManager::PublishService("P", "Test.ISecond", factory);
    const auto echo = Echo::GetEcho("P");
    auto& proxy = dynamic_cast<Echo::EchoServiceProxy&>(*echo);
    TulClient& client = proxy.GetClient();
    EXPECT_EQ(echo->Identify().callerPid, static_cast<std::uint32_t>(getpid()));

    EXPECT_THROW(TulClientContext{client}, Kiv::InvalidOperationException);  // outside a transaction
    EXPECT_THROW(proxy.Call(
                     1, [&](TulWriter&) { client.BeginTransaction(proxy); }, [](TulReader&) {}),
                 Kiv::InvalidOperationException);  // a transaction inside one
    EXPECT_THAT([&] { proxy.Ask(6, 5U); },         // its result left unread
                ThrowsMessage<Kiv::CommunicationException>(
                    "The response of method 6 from provider 'P' has 9 bytes left unread"));
    EXPECT_EQ(echo->Fill(2), "xx");  // the whole response was read, so the connection is in step

    proxy.RefreshServiceHandle();
    EXPECT_EQ(proxy.GetServiceHandle(), 1);
    EXPECT_EQ(client.GetServiceHandle(proxy.GetProviderHandle(), "Test.ISecond"), 2);
    EXPECT_THROW(client.GetServiceHandle(proxy.GetProviderHandle(), "Test.INone"),
                 Kiv::InvalidOperationException);
    EXPECT_FALSE(client.IsBroken());
}
