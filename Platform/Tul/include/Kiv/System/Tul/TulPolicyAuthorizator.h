#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>

#include <sys/types.h>
#include <vector>

namespace Kiv::System::Tul
{
/// A policy read from an XML file that grants operations to users and groups and refuses everything else:
///
///     <TulPolicy>
///       <Grant provider="Kiv" service="Kiv.System.Nm.Services.INotificationManagerService"
///              operations="GetNotificationName GetNotificationNameId" users="1000 alice" groups="adm"/>
///       <Grant operations="*" users="0"/>
///     </TulPolicy>
///
/// `operations` lists operation names, or "*" for all; `users` and `groups` list numeric ids or names,
/// and at least one of them must be there. `provider` and `service` limit a grant to one provider or
/// service; left out (or "*") they match all. A caller matches by its uid or by its primary gid. Names
/// are looked up when the file is read.
class KIV_API TulPolicyAuthorizator final : public ITulAuthorizator
{
public:
    /// Reads the policy. Raises XmlException with file and line for a file that can't be read, malformed
    /// XML, an unknown element or attribute, a missing attribute, and an unknown user or group name.
    explicit TulPolicyAuthorizator(const String& policyFile);

    bool IsAuthorized(const char* providerName, const char* serviceName, const char* methodName,
                      const TulCallerIdentity& caller) override;

    struct Grant
    {
        String provider;
        String service;
        std::vector<String> operations;
        std::vector<uid_t> users;
        std::vector<gid_t> groups;
    };

private:
    std::vector<Grant> grants;
};
}  // namespace Kiv::System::Tul
