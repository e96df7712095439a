#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>
#include <Kiv/System/Tul/TulDefaultAuthorizator.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>
#include <Kiv/System/Tul/TulServiceAuthorizator.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include <unistd.h>

using namespace Kiv::System::Tul;
using testing::ThrowsMessage;

namespace
{
/// A policy file with `content`, removed at the end.
class PolicyFile
{
public:
    explicit PolicyFile(const std::string& content)
        : path("/tmp/kiv-tul-policy-" + std::to_string(getpid()) + ".xml")
    {
        std::ofstream(path) << content;
    }
    ~PolicyFile() { std::remove(path.c_str()); }

    const std::string path;
};

/// The message of the XmlException that reading `content` raises.
std::string PolicyFailure(const std::string& content)
{
    const PolicyFile file(content);
    try
    {
        TulPolicyAuthorizator policy(file.path);
    }
    catch (const Kiv::XmlException& e)
    {
        return std::string(e.GetMessage()).replace(0, file.path.size(), "FILE");
    }
    return "no XmlException";
}
}  // namespace

TEST(TulAuthorizatorTest, DefaultGrantsTheServingUserAndRootOnly)
{
    TulDefaultAuthorizator authorizator(1000);
    EXPECT_TRUE(authorizator.IsAuthorized("Kiv", "S", "M", {1000, 5, 6}));
    EXPECT_TRUE(authorizator.IsAuthorized("Kiv", "S", "M", {0, 5, 6}));
    EXPECT_FALSE(authorizator.IsAuthorized("Kiv", "S", "M", {1001, 1000, 6}));
}

TEST(TulAuthorizatorTest, ServiceAuthorizatorChecksTheCurrentCallerAndNamesTheRefusal)
{
    const TulServiceAuthorizator guard("Kiv", "X", nullptr);                // the default authorizator
    EXPECT_NO_THROW(guard.AuthorizeServiceInvocation("SendNotification"));  // this process
    const TulCallerIdentity::Scope stranger({geteuid() + 4242, 77, 1234});
    EXPECT_THAT([&] { guard.AuthorizeServiceInvocation("SendNotification"); },
                ThrowsMessage<Kiv::UnauthorizedAccessException>(Kiv::String::Format(
                    "Access denied to 'SendNotification' of service 'X' of provider 'Kiv' "
                    "for uid {0} gid 77 pid 1234",
                    geteuid() + 4242)));
}

TEST(TulAuthorizatorTest, PolicyGrantsOperationsToUsersAndGroupsByIdOrName)
{
    const PolicyFile file(R"(<?xml version="1.0"?>
<TulPolicy>
  <!-- readers -->
  <Grant provider="Kiv" service="Info" operations="Get List" users="root 4000" groups="5000"/>
  <Grant operations="*" users="6000"/>
  <Grant service="*" operations="Send" groups="root"/>
</TulPolicy>)");
    TulPolicyAuthorizator policy(file.path);
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
}

TEST(TulAuthorizatorTest, MalformedPolicyRaisesXmlExceptionWithFileAndLine)
{
    EXPECT_EQ(PolicyFailure("<TulPolicy>\n  <Grant operations='A' users='0'>\n</TulPolicy>"),
              "FILE(3): Opening and ending tag mismatch: Grant line 2 and TulPolicy");
    EXPECT_EQ(PolicyFailure("<Policy/>"), "FILE(1): The document element must be 'TulPolicy'");
    EXPECT_EQ(PolicyFailure("<TulPolicy>\n\n  <Allow/>\n</TulPolicy>"), "FILE(3): Unknown element 'Allow'");
    EXPECT_EQ(PolicyFailure("<TulPolicy>\n<Grant operations='A' user='0'/></TulPolicy>"),
              "FILE(2): Unknown attribute 'user' of 'Grant'");
    EXPECT_EQ(PolicyFailure("<TulPolicy><Grant users='0'/></TulPolicy>"),
              "FILE(1): A 'Grant' needs the attribute 'operations'");
    EXPECT_EQ(PolicyFailure("<TulPolicy><Grant operations='A'/></TulPolicy>"),
              "FILE(1): A 'Grant' needs the attribute 'users' or 'groups'");
    EXPECT_EQ(PolicyFailure("<TulPolicy><Grant operations='A' users='no-such-user-kiv'/></TulPolicy>"),
              "FILE(1): Unknown user 'no-such-user-kiv'");
    EXPECT_THROW(TulPolicyAuthorizator("/nonexistent/policy.xml"), Kiv::XmlException);
}
