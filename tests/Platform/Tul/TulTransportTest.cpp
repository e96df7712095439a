#include "Platform/Tul/Support/EchoService.h"
#include "Platform/Tul/Support/RawConnection.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulDefaultAuthorizator.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>
#include <Kiv/System/Tul/TulServiceAuthorizator.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>

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

/// The failure report of what `raise` throws, read back (see RawWire::FailureIn).
std::string RoundTrip(const std::function<void()>& raise)
{
    RemotingWriter writer;
    writer.WriteConfirmation(true);
    try
    {
        raise();
    }
    catch (...)
    {
        TulExceptionRegistry::Write(writer, std::current_exception());
    }
    return RawWire::FailureIn(writer.GetBuffer());
}

const std::string policyPath = "/tmp/kiv-tul-policy-" + std::to_string(getpid()) + ".xml";

TulPolicyAuthorizator ReadPolicy(const std::string& content)
{
    std::ofstream(policyPath) << content;
    return TulPolicyAuthorizator(policyPath);
}

/// Each test starts from nothing and leaves the settings it found.
class TulTransportTest : public ::testing::Test
{
protected:
    void SetUp() override { ServiceManager::Reset(); }
    void TearDown() override
    {
        ServiceManager::Reset();
        ServiceManager::Configure(original);
        std::filesystem::remove(policyPath);
    }

    void Configure(void (*change)(TulSettings&))
    {
        TulSettings settings = original;
        change(settings);
        ServiceManager::Configure(settings);
    }

    /// Whether `provider` gives a working echo service that `maker` has just made.
    static bool MadeBy(const char* provider, Echo::EchoServiceFactory& maker)
    {
        const int before = maker.made;
        const auto echo = Echo::GetEcho(provider);
        return echo != nullptr && echo->Echo("x") == "x" && maker.made == before + 1;
    }

    const TulSettings original = ServiceManager::GetSettings();
    Echo::EchoServiceFactory factory, other;
    TulDefaultAuthorizator policy{0};
};
using ServiceManagerTest = TulTransportTest;
using TulAuthorizatorTest = TulTransportTest;
}  // namespace

TEST_F(ServiceManagerTest, EachCallerGetsAServiceMadeByTheFactoryPublishedUnderTheNames)
{
    ServiceManager::PublishService("ProcessA", Echo::serviceName, factory);
    ServiceManager::PublishService("ProcessB", Echo::serviceName, other);
    EXPECT_TRUE(MadeBy("ProcessA", factory));
    EXPECT_TRUE(MadeBy("ProcessA", factory));
    EXPECT_TRUE(MadeBy("ProcessB", other));
    EXPECT_EQ(Echo::GetEcho("Other"), nullptr);
    EXPECT_EQ(Echo::GetEcho(""), nullptr);
    Echo::EchoProxyFactory otherService("Test.IOtherService");
    EXPECT_EQ(ServiceManager::GetService("ProcessA", otherService), nullptr);

    // Publishing again replaces, for that provider only; the factory gets the installed policy.
    ServiceManager::PublishService("ProcessB", Echo::serviceName, factory);
    EXPECT_EQ(ServiceManager::SetAuthorizator(&policy), nullptr);
    EXPECT_TRUE(MadeBy("ProcessB", factory));
    EXPECT_TRUE(MadeBy("ProcessA", factory));
    EXPECT_EQ(other.made, 1);
    EXPECT_EQ(factory.lastAuthorizator, &policy);

    ServiceManager::Reset();  // withdraws publications and policy
    EXPECT_EQ(Echo::GetEcho("ProcessA"), nullptr);
    EXPECT_EQ(ServiceManager::SetAuthorizator(nullptr), nullptr);
    EXPECT_THROW(ServiceManager::PublishService(nullptr, Echo::serviceName, factory), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", "", factory), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::GetService(nullptr, otherService), Kiv::ArgumentException);
}

TEST(TulCallerIdentityTest, InProcessCallerIsThisProcessAndScopesNestPerThread)
{
    const TulCallerIdentity self{geteuid(), getegid(), getpid()};
    EXPECT_EQ(TulCallerIdentity::GetProcessIdentity(), self);
    {
        const TulCallerIdentity::Scope outer({1001, 1002, 1003});
        {
            const TulCallerIdentity::Scope inner({2001, 2002, 2003});
            EXPECT_EQ(TulCallerIdentity::GetCurrent(), (TulCallerIdentity{2001, 2002, 2003}));
        }
        EXPECT_EQ(TulCallerIdentity::GetCurrent(), (TulCallerIdentity{1001, 1002, 1003}));
        std::thread([&self] { EXPECT_EQ(TulCallerIdentity::GetCurrent(), self); }).join();
    }
    EXPECT_EQ(TulCallerIdentity::GetCurrent(), self);
}

TEST_F(TulAuthorizatorTest, DefaultGrantsTheServingUserAndRootAndTheServiceAuthorizatorNamesTheRefusal)
{
    TulDefaultAuthorizator authorizator(1000);
    EXPECT_TRUE(authorizator.IsAuthorized("Kiv", "S", "M", {1000, 5, 6}));
    EXPECT_TRUE(authorizator.IsAuthorized("Kiv", "S", "M", {0, 5, 6}));
    EXPECT_FALSE(authorizator.IsAuthorized("Kiv", "S", "M", {1001, 1000, 6}));

    const TulServiceAuthorizator guard("Kiv", "X", nullptr);                // the default authorizator
    EXPECT_NO_THROW(guard.AuthorizeServiceInvocation("SendNotification"));  // this process
    const TulCallerIdentity::Scope stranger({geteuid() + 4242, 77, 1234});
    EXPECT_THAT([&] { guard.AuthorizeServiceInvocation("SendNotification"); },
                ThrowsMessage<Kiv::UnauthorizedAccessException>(Kiv::String::Format(
                    "Access denied to 'SendNotification' of service 'X' of provider 'Kiv' "
                    "for uid {0} gid 77 pid 1234",
                    geteuid() + 4242)));
}

TEST_F(TulAuthorizatorTest, PolicyGrantsOperationsToUsersAndGroupsByIdOrNameAndReportsMistakesWithTheLine)
{
    auto policy = ReadPolicy(R"(<?xml version="1.0"?>
<TulPolicy>
  <!-- readers -->
  <Grant provider="Kiv" service="Info" operations="Get List" users="root 4000" groups="5000"/>
  <Grant operations="*" users="6000"/>
  <Grant service="*" operations="Send" groups="root"/>
</TulPolicy>)");
    auto allowed =
        [&](const char* provider, const char* service, const char* method, TulCallerIdentity caller)
    { return policy.IsAuthorized(provider, service, method, caller); };
    EXPECT_TRUE(allowed("Kiv", "Info", "Get", {0, 1, 1}));  // "root" by name
    EXPECT_TRUE(allowed("Kiv", "Info", "List", {4000, 1, 1}));
    EXPECT_TRUE(allowed("Kiv", "Info", "Get", {1, 5000, 1}));
    EXPECT_FALSE(allowed("Kiv", "Info", "Put", {4000, 1, 1}));
    EXPECT_FALSE(allowed("Other", "Info", "Get", {4000, 1, 1}));
    EXPECT_FALSE(allowed("Kiv", "Other", "Get", {4000, 1, 1}));
    EXPECT_TRUE(allowed("Any", "Thing", "Whatever", {6000, 1, 1}));
    EXPECT_TRUE(allowed("Any", "Thing", "Send", {1, 0, 1}));  // group "root" by name
    EXPECT_FALSE(allowed("Any", "Thing", "Send", {1, 1, 1}));

    const std::pair<const char*, const char*> mistakes[] = {
        {"<TulPolicy>\n  <Grant operations='A' users='0'>\n</TulPolicy>",
         "(3): Opening and ending tag mismatch: Grant line 2 and TulPolicy"},
        {"<Policy/>", "(1): The document element must be 'TulPolicy'"},
        {"<TulPolicy>\n\n  <Allow/>\n</TulPolicy>", "(3): Unknown element 'Allow'"},
        {"<TulPolicy>\n<Grant operations='A' user='0'/></TulPolicy>",
         "(2): Unknown attribute 'user' of 'Grant'"},
        {"<TulPolicy><Grant users='0'/></TulPolicy>", "(1): A 'Grant' needs the attribute 'operations'"},
        {"<TulPolicy><Grant operations='A'/></TulPolicy>",
         "(1): A 'Grant' needs the attribute 'users' or 'groups'"},
        {"<TulPolicy><Grant operations='A' users='no-such-user-kiv'/></TulPolicy>",
         "(1): Unknown user 'no-such-user-kiv'"}};
    for (const auto& [content, message] : mistakes)
    {
        EXPECT_THAT([&] { ReadPolicy(content); }, ThrowsMessage<Kiv::XmlException>(policyPath + message));
    }
    EXPECT_THROW(TulPolicyAuthorizator("/nonexistent/policy.xml"), Kiv::XmlException);
}

TEST(TulExceptionRegistryTest, FailureReportRebuildsClassMessageAndInnerChainAndRefusesAMalformedOne)
{
    for (const char* typeName :
         {"Kiv::Exception", "Kiv::ArgumentException", "Kiv::ArgumentOutOfRangeException",
          "Kiv::InvalidOperationException", "Kiv::InvalidCastException", "Kiv::NotSupportedException",
          "Kiv::NotImplementedException", "Kiv::UnauthorizedAccessException", "Kiv::CommunicationException",
          "Kiv::XmlException"})
    {
        EXPECT_EQ(RoundTrip([&] { TulExceptionRegistry::Create(typeName, "text {0}")->Rethrow(); }),
                  std::string(typeName) + ": text {0}");
    }
    // What the registry doesn't know arrives as the family's base.
    EXPECT_EQ(RoundTrip([] { TulExceptionRegistry::Create("Nm::Unknown", "own")->Rethrow(); }),
              "Kiv::Exception: own");
    EXPECT_EQ(RoundTrip([] { throw std::runtime_error("standard"); }), "Kiv::Exception: standard");
    EXPECT_EQ(RoundTrip([] { throw 42; }), "Kiv::Exception: Unknown exception in a remote operation");

    // A chain keeps its outermost 32 levels.
    TulExceptionRegistry::Register<OwnException>();
    std::unique_ptr<Exception> chain = std::make_unique<Exception>("level 0");
    const std::string own = OwnException().GetTypeName() + ": level ";
    std::string expected;
    for (int level = 1; level < 40; ++level)
    {
        auto outer = std::make_unique<OwnException>("level {0}", level);
        outer->SetInnerException(*chain);
        chain = std::move(outer);
        expected = level < 8 ? "" : own + std::to_string(level) + (expected.empty() ? "" : " < ") + expected;
    }
    EXPECT_EQ(RoundTrip([&] { chain->Rethrow(); }), expected);

    for (const RawWire::Bytes& report : {RawWire::Bytes{1, 0, 0, 0, 0}, RawWire::Bytes{1, 1, 0, 0, 0, 200}})
    {
        EXPECT_THAT(RawWire::FailureIn(report), testing::StartsWith("Kiv::CommunicationException: "));
    }
}

TEST_F(TulTransportTest, SettingsAreCheckedAndFixedWhileServingAndAnUnreachableProviderIsWaitedFor)
{
    EXPECT_THROW(Configure([](TulSettings& s) { s.systemName = ""; }), Kiv::ArgumentException);
    EXPECT_THROW(Configure([](TulSettings& s) { s.maxFrameSize = 63; }), Kiv::ArgumentException);
    EXPECT_THROW(Configure([](TulSettings& s) { s.callTimeLimit = -1ms; }), Kiv::ArgumentException);
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    EXPECT_THROW(Configure([](TulSettings& s) { s.connectWait = 300ms; }), Kiv::InvalidOperationException);
    ServiceManager::Shutdown();
    Configure([](TulSettings& s) { s.connectWait = 300ms; });

    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Echo::GetEcho("Nobody"), nullptr);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 300ms);
}

TEST_F(TulTransportTest, MarshalledCallsGoThroughAStubAndCheckHowTheirContextIsUsed)
{
    Configure([](TulSettings& s) { s.marshalLocalCalls = true; });
    ServiceManager::SetAuthorizator(&policy);
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    ServiceManager::PublishService("P", "Test.ISecond", factory);
    const auto echo = Echo::GetEcho("P");
    auto& proxy = dynamic_cast<Echo::EchoServiceProxy&>(*echo);
    TulClient& client = proxy.GetClient();
    EXPECT_THAT(echo->Identify(), testing::EndsWith(Kiv::String::Format(" {0}", getpid())));
    EXPECT_EQ(factory.lastAuthorizator, &policy);  // the server's stub too gets the installed policy
    EXPECT_THAT([&] { echo->Throw("Kiv::XmlException", "text"); }, ThrowsMessage<Kiv::XmlException>("text"));

    EXPECT_THROW(TulClientContext{client}, Kiv::InvalidOperationException);  // outside a transaction
    client.BeginTransaction(proxy);
    EXPECT_THROW(client.BeginTransaction(proxy), Kiv::InvalidOperationException);  // inside one
    client.EndTransaction(proxy);
    EXPECT_THROW(client.EndTransaction(proxy), Kiv::InvalidOperationException);
    EXPECT_THAT([&] { proxy.Ask(6, 5U); },  // its result left unread
                ThrowsMessage<Kiv::CommunicationException>(
                    "The response of method 6 from provider 'P' has 9 bytes left unread"));
    EXPECT_EQ(echo->Fill(2), "xx");  // the whole response was read, so the connection is in step

    proxy.RefreshServiceHandle();
    EXPECT_EQ(proxy.GetServiceHandle(), 1);
    EXPECT_EQ(client.GetServiceHandle(proxy.GetProviderHandle(), "Test.ISecond"), 2);
    EXPECT_THROW(client.GetServiceHandle(proxy.GetProviderHandle(), "Test.INone"),
                 Kiv::InvalidOperationException);
}
