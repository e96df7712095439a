#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <filesystem>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;
using testing::HasSubstr;

namespace
{
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

using Kiv::Exception;  // the family's macro takes the base's plain name

class OwnException : public Exception
{
    KIV_EXCEPTION_MEMBERS(OwnException, Exception)
};

/// `error` written as a failure report and thrown back from it.
void RoundTrip(const Kiv::Exception& error)
{
    RemotingWriter writer;
    try
    {
        error.Rethrow();
    }
    catch (...)
    {
        TulExceptionRegistry::Write(writer, std::current_exception());
    }
    RemotingReader reader(writer.GetData(), writer.GetSize());
    TulExceptionRegistry::Throw(reader);
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
        try
        {
            RoundTrip(*made);
        }
        catch (const Kiv::Exception& e)
        {
            EXPECT_EQ(e.GetTypeName(), typeName);
            EXPECT_EQ(e.GetMessage(), "text {0}");
        }
    }

    TulExceptionRegistry::Register<OwnException>();
    std::unique_ptr<Exception> chain = std::make_unique<Exception>("level 0");
    for (int level = 1; level < 40; ++level)
    {
        auto outer = std::make_unique<OwnException>("level {0}", level);
        outer->SetInnerException(*chain);
        chain = std::move(outer);
    }
    try
    {
        RoundTrip(*chain);
        ADD_FAILURE() << "not thrown";
    }
    catch (const OwnException& e)
    {
        int levels = 0;
        for (const Kiv::Exception* level = &e; level != nullptr; level = level->GetInnerException(), ++levels)
        {
            EXPECT_EQ(level->GetMessage(), Kiv::String::Format("level {0}", 39 - levels));
        }
        EXPECT_EQ(levels, 32);
    }
}

TEST(TulExceptionRegistryTest, MalformedReportIsACommunicationFailure)
{
    RemotingWriter writer;
    writer.WriteArrayLength(0);
    RemotingReader empty(writer.GetData(), writer.GetSize());
    EXPECT_THROW(TulExceptionRegistry::Throw(empty), Kiv::CommunicationException);
    writer.Reset();
    writer.WriteArrayLength(1);
    writer.WriteArrayLength(200);
    RemotingReader cut(writer.GetData(), writer.GetSize());
    EXPECT_THROW(TulExceptionRegistry::Throw(cut), Kiv::CommunicationException);
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
    try
    {
        ServiceManager::PublishService("Busy", Echo::serviceName, factory);
        ADD_FAILURE() << "not refused";
    }
    catch (const Kiv::InvalidOperationException& e)
    {
        EXPECT_THAT(e.GetMessage(), HasSubstr("Provider 'Busy' is served by another process at '"));
    }
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
    EXPECT_EQ(CommunicationFailure(
                  [&]
                  {
                      proxy.Call(
                          6, [](TulWriter& w) { Echo::Put(w, 5U); }, [](TulReader&) {});
                  }),
              "The response of method 6 from provider 'P' has 9 bytes left unread");
    EXPECT_EQ(echo->Fill(2), "xx");  // the whole response was read, so the connection is in step

    proxy.RefreshServiceHandle();
    EXPECT_EQ(proxy.GetServiceHandle(), 1);
    EXPECT_EQ(client.GetServiceHandle(proxy.GetProviderHandle(), "Test.ISecond"), 2);
    EXPECT_THROW(client.GetServiceHandle(proxy.GetProviderHandle(), "Test.INone"),
                 Kiv::InvalidOperationException);
    EXPECT_FALSE(client.IsBroken());
}
