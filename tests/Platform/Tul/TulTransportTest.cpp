#include "Platform/Tul/Support/EchoService.h"

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulDefaultAuthorizator.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>
#include <Kiv/System/Tul/TulServiceAuthorizator.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <tuple>
#include <vector>

using namespace Kiv::System::Tul;
using namespace std::chrono_literals;
using testing::ThrowsMessage;
using Bytes = std::vector<std::uint8_t>;

namespace
{
constexpr auto utf8 = TulStringEncoding::Utf8;

// A message that uses every write call, and its reading call for call, which checks every value; on a
// message cut short it raises at the first read that finds the end.
void WriteSample(TulWriter& w)
{
    const std::uint32_t number = 0x04030201;
    const std::int32_t negative = -7;
    w.WriteBeginStruct(6);
    w.WriteTag(TulType::UInt32);
    w.WriteDataInternal(&number, 4);
    w.WriteTag(TulType::DateTime);
    w.WriteDateTime(Kiv::DateTime::FromRawValue(0x4000000000000005));
    w.WriteStringInternal(std::string(511, 'x').c_str(), 512, utf8, true);  // the longest that fits
    w.WriteTag(TulType::Array);
    w.WriteTag(TulType::Object);
    w.WriteArrayLength(5);
    w.WriteObjectType(TulType::Int32);
    w.WriteDataInternal(&negative, 4);
    w.WriteObjectString("hello", utf8);
    w.WriteObjectType(TulType::String36);
    w.WriteStringInternal("c", 2, utf8, false);  // fits with its NUL
    w.WriteBeginStruct(2);
    w.WriteArrayInformation({28, 1, 3, 0});
    w.WriteConfirmation(false);
    w.WriteConfirmation(true);
}

void ReadSample(TulReader& r)
{
    std::uint32_t number = 0;
    std::int32_t negative = 0;
    char text[512];
    r.ReadBeginStruct(6);
    r.ReadTag(TulType::UInt32);
    r.ReadDataInternal(&number, 4);
    EXPECT_EQ(number, 0x04030201u);
    r.ReadTag(TulType::DateTime);
    EXPECT_EQ(r.ReadDateTime().GetRawValue(), 0x4000000000000005u);
    r.ReadStringInternal(text, sizeof text, utf8, true);
    EXPECT_EQ(std::string(text), std::string(511, 'x'));
    r.ReadTag(TulType::Array);
    r.ReadTag(TulType::Object);
    EXPECT_EQ(r.ReadArrayLength(), 5u);
    EXPECT_EQ(r.ReadObjectType(), TulType::Int32);
    r.ReadDataInternal(&negative, 4);
    EXPECT_EQ(negative, -7);
    EXPECT_EQ(r.ReadObjectType(), TulType::String);
    r.ReadStringInternal(text, sizeof text, utf8, false);
    EXPECT_STREQ(text, "hello");
    EXPECT_EQ(r.ReadObjectType(), TulType::String36);
    r.ReadStringInternal(text, 2, utf8, false);
    EXPECT_STREQ(text, "c");
    EXPECT_EQ(r.ReadObjectType(), TulType::Struct);
    EXPECT_EQ(r.ReadFieldCount(), 2u);
    EXPECT_EQ(r.ReadObjectType(), TulType::Array);
    EXPECT_EQ(r.ReadArrayInformation(), (TulArrayInformation{28, 1, 3, 0}));
    EXPECT_FALSE(r.ReadConfirmation());
    EXPECT_TRUE(r.ReadConfirmation());
}

Bytes SampleMessage()
{
    RemotingWriter writer;
    WriteSample(writer);
    return writer.GetBuffer();
}

/// Runs `read` on a reader over a heap copy of exactly `bytes`, so that the address sanitizer sees a read
/// past the end.
void ReadCopy(const Bytes& bytes, const std::function<void(TulReader&)>& read)
{
    const auto copy = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), copy.get());
    RemotingReader reader(copy.get(), bytes.size());
    read(reader);
}

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

const std::string policyPath = "/tmp/kiv-tul-policy-" + std::to_string(getpid()) + ".xml";

TulPolicyAuthorizator ReadPolicy(const std::string& content, const std::vector<Kiv::String>& operations = {})
{
    std::ofstream(policyPath) << content;
    return TulPolicyAuthorizator(policyPath, operations);
}

/// Each test starts from nothing and leaves the settings it found.
class TulTransportTest : public ::testing::Test
{
protected:
    void SetUp() override { Kiv::System::Tul::Testing::UseNewTransport(); }
    void TearDown() override
    {
        Kiv::System::Tul::Testing::UseNewTransport();
        ServiceManager::Configure(original);
        std::filesystem::remove(policyPath);
    }

    const TulSettings original = ServiceManager::GetSettings();
    Echo::EchoServiceFactory factory, other;
    TulDefaultAuthorizator policy{0};
};
using ServiceManagerTest = TulTransportTest;
using TulAuthorizatorTest = TulTransportTest;
}  // namespace

TEST(RemotingTest, EveryWriteHasAFixedByteFormAndReadsBackWithItsValue)
{
    // clang-format off
    Bytes expected = {
        18, 6, 0, 0, 0,
        9, 1, 2, 3, 4,
        23, 5, 0, 0, 0, 0, 0, 0, 0x40,
        19, 0xFF, 1, 0, 0};
    expected.insert(expected.end(), 511, 'x');
    const Bytes rest = {
        20, 28, 5, 0, 0, 0,
        8, 0xF9, 0xFF, 0xFF, 0xFF,
        19, 5, 0, 0, 0, 'h', 'e', 'l', 'l', 'o',
        36, 1, 0, 0, 0, 'c',
        18, 2, 0, 0, 0,
        20, 28, 0, 0, 0, 1, 0, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0,
        0, 1};
    // clang-format on
    expected.insert(expected.end(), rest.begin(), rest.end());
    EXPECT_EQ(SampleMessage(), expected);

    RemotingReader reader(expected.data(), expected.size());
    ReadSample(reader);
    EXPECT_TRUE(reader.IsAtEnd());

    // A text that doesn't fit its capacity with its NUL is refused, without reading past its buffer.
    const auto unterminated = std::make_unique<char[]>(8);
    std::memset(unterminated.get(), 'z', 8);
    RemotingWriter writer;
    EXPECT_THROW(writer.WriteStringInternal(unterminated.get(), 8, utf8, false), Kiv::ArgumentException);
    EXPECT_EQ(writer.GetSize(), 0u);
}

TEST(RemotingReaderHostileInputTest, EveryTruncationOfAValidMessageRaises)
{
    const Bytes message = SampleMessage();
    for (std::size_t length = 0; length < message.size(); ++length)
    {
        EXPECT_THAT([&] { ReadCopy(Bytes(message.begin(), message.begin() + length), ReadSample); },
                    testing::Throws<Kiv::CommunicationException>())
            << length;
    }
}

TEST(RemotingReaderHostileInputTest, MalformedPartsRaiseWithOffsetExpectedAndFound)
{
    using Read = std::function<void(TulReader&)>;
    char text[512];
    const Read string = [&text](TulReader& r) { r.ReadStringInternal(text, sizeof text, utf8, true); };
    const Read length = [](TulReader& r) { r.ReadArrayLength(); };
    const Read structure = [](TulReader& r) { r.ReadBeginStruct(6); };
    Bytes longString{19, 0x58, 0x02, 0, 0};  // 600 bytes
    longString.resize(5 + 600, 'a');
    const std::tuple<Bytes, Read, std::string> cases[] = {
        {{9, 19},
         [](TulReader& r) { r.ReadTag(TulType::UInt32), r.ReadTag(TulType::UInt32); },
         "1: expected tag UInt32, found tag String"},
        {{200}, [](TulReader& r) { r.ReadTag(TulType::Bool); }, "0: expected tag Bool, found tag 200"},
        {{18, 5, 0, 0, 0}, structure, "1: expected a structure of 6 fields, found 5 fields"},
        // Only the object type read just before stands in for a header's code.
        {{18, 6, 0, 0, 0, 6, 0, 0, 0},
         [](TulReader& r) { r.ReadObjectType(), r.ReadFieldCount(), r.ReadFieldCount(); },
         "5: expected object type Struct, found object type Int16"},
        {{2}, [](TulReader& r) { r.ReadConfirmation(); }, "0: expected a confirmation of 0 or 1, found 2"},
        {{4, 0, 0, 0, 1, 2, 3}, length, "0: expected an array length of at most 3, found 4"},
        {longString, string, "1: expected a string of at most 511 bytes, found a string of 600 bytes"},
        {{19, 8, 0, 0},
         string,
         "1: expected string length of 4 bytes, found the end of the message after 3 bytes"},
        {{19, 10, 0, 0, 0, 'a', 'b', 'c'},
         string,
         "5: expected string of 10 bytes, found the end of the message after 3 bytes"},
    };
    for (const auto& [bytes, read, message] : cases)
    {
        std::memset(text, 'q', sizeof text);
        EXPECT_THAT([&] { ReadCopy(bytes, read); },
                    ThrowsMessage<Kiv::CommunicationException>("Malformed message at offset " + message));
    }
    EXPECT_EQ(text[0], '\0');  // a string read that fails leaves its buffer terminated
    // The capacity counts the NUL: 3 characters don't fit 3 bytes.
    EXPECT_THROW(ReadCopy({3, 0, 0, 0, 'a', 'b', 'c'},
                          [&text](TulReader& r) { r.ReadStringInternal(text, 3, utf8, false); }),
                 Kiv::CommunicationException);
}

TEST_F(ServiceManagerTest, EachCallerGetsAServiceMadeByTheFactoryPublishedUnderTheNames)
{
    ServiceManager::PublishService("ProcessA", Echo::serviceName, factory);
    ServiceManager::PublishService("ProcessB", Echo::serviceName, other);
    EXPECT_EQ(Echo::GetEcho("ProcessA")->Echo("a"), "a");
    EXPECT_EQ(Echo::GetEcho("ProcessA")->Echo("a"), "a");
    EXPECT_EQ(Echo::GetEcho("ProcessB")->Echo("b"), "b");
    EXPECT_EQ(factory.made, 2);
    EXPECT_EQ(other.made, 1);
    Echo::EchoProxyFactory otherService("Test.IOtherService");
    EXPECT_EQ(ServiceManager::GetService("ProcessA", otherService), nullptr);

    // Publishing again replaces, for that provider only; the factory gets the installed policy.
    ServiceManager::PublishService("ProcessB", Echo::serviceName, factory);
    EXPECT_EQ(ServiceManager::SetAuthorizator(&policy), nullptr);
    EXPECT_EQ(Echo::GetEcho("ProcessB")->Echo("b"), "b");
    EXPECT_EQ(factory.made, 3);
    EXPECT_EQ(factory.lastAuthorizator, &policy);

    Kiv::System::Tul::Testing::UseNewTransport();  // withdraws publications and policy
    EXPECT_EQ(Echo::GetEcho("ProcessA"), nullptr);
    EXPECT_EQ(ServiceManager::SetAuthorizator(nullptr), nullptr);
    EXPECT_THROW(ServiceManager::PublishService(nullptr, Echo::serviceName, factory), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::PublishService("Kiv", "", factory), Kiv::ArgumentException);
    EXPECT_THROW(ServiceManager::GetService(nullptr, otherService), Kiv::ArgumentException);
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
    EXPECT_FALSE(allowed("Other", "Info", "Get", {4000, 1, 1}));
    EXPECT_FALSE(allowed("Kiv", "Info", "Put", {4000, 1, 1}));
    EXPECT_TRUE(allowed("Any", "Thing", "Whatever", {6000, 1, 1}));
    EXPECT_TRUE(allowed("Any", "Thing", "Send", {1, 0, 1}));  // group "root" by name
    EXPECT_FALSE(allowed("Any", "Thing", "Send", {1, 1, 1}));

    const std::pair<const char*, const char*> mistakes[] = {
        {"<Policy/>", "(1): The document element must be 'TulPolicy'"},
        {"<TulPolicy>\n\n  <Allow/>\n</TulPolicy>", "(3): Unknown element 'Allow'"},
        {"<TulPolicy>\n<Grant operations='A' user='0'/></TulPolicy>",
         "(2): Unknown attribute 'user' of 'Grant'"},
        {"<TulPolicy><Grant users='0'/></TulPolicy>", "(1): A 'Grant' needs the attribute 'operations'"},
        {"<TulPolicy><Grant operations='A'/></TulPolicy>",
         "(1): A 'Grant' needs the attribute 'users' or 'groups'"},
        {"<TulPolicy><Grant operations='A' users='no-such-user-kiv'/></TulPolicy>",
         "(1): Unknown user 'no-such-user-kiv'"},
        {"<TulPolicy><InternalGrant operations='*' users='0'/></TulPolicy>",
         "(1): An 'InternalGrant' grants all operations and takes no attribute 'operations'"},
        // Ids that would mean someone else, or abort the reader.
        {"<TulPolicy>\n<Grant operations='A' users='4294968297'/></TulPolicy>",
         "(2): Invalid user id '4294968297': an id is a number from 0 to 4294967294"},
        {"<TulPolicy><Grant operations='A' users='99999999999999999999'/></TulPolicy>",
         "(1): Invalid user id '99999999999999999999': an id is a number from 0 to 4294967294"},
        {"<TulPolicy><Grant operations='A' groups='4294967295'/></TulPolicy>",
         "(1): Invalid group id '4294967295': an id is a number from 0 to 4294967294"},
        {"<TulPolicy><Grant operations='A' users='1000x'/></TulPolicy>",
         "(1): Invalid user id '1000x': an id is a number from 0 to 4294967294"},
        {"<TulPolicy><Grant operations='A Sned' users='0'/></TulPolicy>", "(1): Unknown operation 'Sned'"}};
    for (const auto& [content, message] : mistakes)
    {
        EXPECT_THAT(
            [&] {
                ReadPolicy(content, {"A", "Send"});
            },
            ThrowsMessage<Kiv::XmlException>(policyPath + message));
    }
    EXPECT_THROW(TulPolicyAuthorizator("/nonexistent/policy.xml"), Kiv::XmlException);
    EXPECT_THAT([] { TulPolicyAuthorizator("/tmp"); },
                ThrowsMessage<Kiv::XmlException>("/tmp(0): The policy file is not a regular file"));

    // Internal services: this process's user and root always, and whom an InternalGrant names, also by a
    // supplementary group; the public service's grants are another matter.
    auto internal = ReadPolicy("<TulPolicy><InternalGrant users='4000' groups='5000'/></TulPolicy>");
    ITulAuthorizator& guard = internal.GetInternalAuthorizator();
    EXPECT_TRUE(guard.IsAuthorized("Kiv", "S", "M", {geteuid(), 1, 1}));
    EXPECT_TRUE(guard.IsAuthorized("Kiv", "S", "M", {0, 1, 1}));
    EXPECT_TRUE(guard.IsAuthorized("Kiv", "S", "M", {4000, 1, 1}));
    EXPECT_TRUE(guard.IsAuthorized("Kiv", "S", "M", {4001, 1, 1, {7, 5000}}));
    EXPECT_FALSE(guard.IsAuthorized("Kiv", "S", "M", {4001, 1, 1, {7}}));
    EXPECT_FALSE(internal.IsAuthorized("Kiv", "S", "M", {4000, 1, 1}));
}

TEST(TulExceptionRegistryTest, FailureReportRebuildsClassMessageAndInnerOnesAndRefusesAMalformedOne)
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

    // A class of its own, registered, with its inner exception.
    TulExceptionRegistry::Register<OwnException>();
    OwnException own("own");
    own.SetInnerException(Kiv::ArgumentException("inner"));
    EXPECT_EQ(RoundTrip([&] { own.Rethrow(); }),
              OwnException().GetTypeName() + ": own < Kiv::ArgumentException: inner");

    // A chain from the wire is cut at 32 levels, the outermost kept, whatever length a sender claims.
    std::unique_ptr<Kiv::Exception> chain = std::make_unique<Kiv::Exception>("level 0");
    for (int level = 1; level < 40; ++level)
    {
        auto outer = std::make_unique<OwnException>("level {0}", level);
        outer->SetInnerException(*chain);
        chain = std::move(outer);
    }
    const std::string deep = RoundTrip([&] { chain->Rethrow(); });
    EXPECT_EQ(std::count(deep.begin(), deep.end(), '<'), 31) << deep;
    EXPECT_THAT(deep, ::testing::StartsWith(OwnException().GetTypeName() + ": level 39 < "));

    for (const Bytes& report : {Bytes{0, 0, 0, 0}, Bytes{1, 0, 0, 0, 200}})
    {
        RemotingReader reader(report.data(), report.size());
        EXPECT_THROW(TulExceptionRegistry::Throw(reader), Kiv::CommunicationException);
    }
}

TEST_F(TulTransportTest, MarshalledCallsGoThroughAStubAndCheckHowTheirContextIsUsedAndFixTheSettings)
{
    TulSettings settings = original;
    settings.marshalLocalCalls = true;
    ServiceManager::Configure(settings);
    ServiceManager::SetAuthorizator(&policy);
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    ServiceManager::PublishService("P", "Test.ISecond", factory);
    const auto echo = Echo::GetEcho("P");
    auto& proxy = dynamic_cast<Echo::EchoServiceProxy&>(*echo);
    TulClient& client = proxy.GetClient();
    EXPECT_THAT([&] { echo->Throw("Kiv::XmlException", "text"); }, ThrowsMessage<Kiv::XmlException>("text"));
    EXPECT_EQ(factory.lastAuthorizator, &policy);  // the server's stub too gets the installed policy
    // While connections are open the settings are fixed.
    EXPECT_THROW(ServiceManager::Configure(original), Kiv::InvalidOperationException);

    EXPECT_THROW(TulClientContext{client}, Kiv::InvalidOperationException);  // outside a transaction
    client.BeginTransaction(proxy);
    EXPECT_THROW(client.BeginTransaction(proxy), Kiv::InvalidOperationException);  // inside one
    client.EndTransaction(proxy);
    EXPECT_THAT([&] { proxy.Ask(6, 5U); },  // its result left unread
                ThrowsMessage<Kiv::CommunicationException>(
                    "The response of method 6 from provider 'P' has 9 bytes left unread"));
    EXPECT_EQ(echo->Fill(2), "xx");  // the whole response was read, so the connection is in step

    proxy.RefreshServiceHandle();
    EXPECT_EQ(proxy.GetServiceHandle(), 1);
    EXPECT_EQ(client.GetServiceHandle(proxy.GetProviderHandle(), "Test.ISecond"), 2);
}

TEST_F(TulTransportTest, ATransactionHandedOnLeavesNothingToUseBehindAndGivesTheConnectionBackOnce)
{
    TulSettings settings = original;
    settings.marshalLocalCalls = true;
    ServiceManager::Configure(settings);
    ServiceManager::PublishService("P", Echo::serviceName, factory);
    const auto echo = Echo::GetEcho("P");
    TulClient& client = dynamic_cast<Echo::EchoServiceProxy&>(*echo).GetClient();
    TulClient::Transaction taken = Testing::TakeTransaction(client);
    TulClient::Transaction holder = std::move(taken);
    const std::vector<std::function<void()>> uses{
        [&] { taken.StartRequest(); },
        [&] { taken.GetWriter(); },
        [&] { taken.SendRequest(1, 1, 1); },
        [&] { taken.ReceiveResponse(); },
        [&] { taken.GetBody(); },
        [&] { taken.Resolve(Echo::serviceName); },
        [&] { taken.Break("x"); },
        [&] { taken.GetProviderName(); },
    };
    for (std::size_t i = 0; i < uses.size(); ++i)
    {
        EXPECT_THAT(uses[i], ThrowsMessage<Kiv::InvalidOperationException>(
                                 "The transaction was handed on and holds no connection"))
            << "use " << i;
    }
    EXPECT_EQ(holder.Resolve(Echo::serviceName), (std::pair<std::uint16_t, std::uint16_t>(1, 1)));
    EXPECT_THROW(echo->Echo("held"), Kiv::InvalidOperationException);  // by this very thread
    taken = std::move(holder);
    {
        const TulClient::Transaction last = std::move(taken);
    }
    EXPECT_EQ(echo->Echo("free"), "free");
}

TEST_F(TulTransportTest, AStoppedTransportLetsGoOfItsConnectionsWithTheirLastProxyAndANewOneServes)
{
    TulSettings settings = original;
    settings.marshalLocalCalls = true;
    const std::size_t before = Testing::CountClients();
    for (const bool ownTransport : {false, true})
    {
        ServiceManager::Configure(settings);
        ServiceManager::PublishService("P", Echo::serviceName, factory);
        auto echo = Echo::GetEcho("P");
        ASSERT_NE(echo, nullptr);
        EXPECT_EQ(echo->Echo("served"), "served");
        EXPECT_EQ(Testing::CountClients(), before + 1);
        ownTransport ? Testing::UseNewTransport(settings) : ServiceManager::Shutdown();
        EXPECT_THAT([&] { echo->Echo("late"); },
                    ThrowsMessage<Kiv::CommunicationException>(
                        "Connection to provider 'P' is lost: the service manager was shut down"));
        echo.reset();
        EXPECT_EQ(Testing::CountClients(), before) << "own transport " << ownTransport;
    }
}

TEST_F(TulTransportTest, SettingsWithoutMeaningAreRefused)
{
    const std::vector<std::function<void(TulSettings&)>> mistakes{
        [](TulSettings& s) { s.systemName = ""; },      [](TulSettings& s) { s.endpointDirectory = ""; },
        [](TulSettings& s) { s.maxFrameSize = 63; },    [](TulSettings& s) { s.callTimeLimit = -1ms; },
        [](TulSettings& s) { s.maxPayloadMemory = 0; },
    };
    for (std::size_t i = 0; i < mistakes.size(); ++i)
    {
        TulSettings settings = original;
        mistakes[i](settings);
        EXPECT_THROW(ServiceManager::Configure(settings), Kiv::ArgumentException) << "mistake " << i;
    }
}
