#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>

#include <sys/types.h>
#include <unistd.h>

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
/// `operations` lists operation names, or "*" for all; `users` and `groups` list numeric ids (0 to
/// 4294967294) or names, and at least one of them must be there. `provider` and `service` limit a grant
/// to one provider or service; left out (or "*") they match all. A caller matches by its uid, its primary
/// gid or one of its supplementary groups. Names are looked up when the file is read.
///
/// `<InternalGrant users="..." groups="..."/>`, with `provider` and `service` as above, grants the
/// services without security stub (the system's internal ones) to processes of further users, for a
/// system whose processes run as several users: see GetInternalAuthorizator.
class KIV_API TulPolicyAuthorizator final : public ITulAuthorizator
{
public:
    /// Reads the policy. Raises XmlException with file, line and value for a path that is no readable
    /// regular file, malformed XML, an unknown element or attribute, a missing attribute, an id out of
    /// range or with trailing characters, an unknown user or group name, and an operation name that
    /// `knownOperations` lacks (when it isn't empty).
    explicit TulPolicyAuthorizator(const String& policyFile, const std::vector<String>& knownOperations = {});

    bool IsAuthorized(const char* providerName, const char* serviceName, const char* methodName,
                      const TulCallerIdentity& caller) override;

    /// The policy of the internal services (ServiceManager::SetInternalAuthorizator): this process's user,
    /// root, and whom the `InternalGrant`s name. Lives as long as this object.
    ITulAuthorizator& GetInternalAuthorizator() noexcept { return internalPolicy; }

    struct Grant
    {
        String provider;
        String service;
        std::vector<String> operations;
        std::vector<uid_t> users;
        std::vector<gid_t> groups;
    };

private:
    class InternalPolicy final : public ITulAuthorizator
    {
    public:
        bool IsAuthorized(const char* providerName, const char* serviceName, const char* methodName,
                          const TulCallerIdentity& caller) override;

        uid_t serverUid = geteuid();
        std::vector<Grant> grants;
    };

    std::vector<Grant> grants;
    InternalPolicy internalPolicy;
};
}  // namespace Kiv::System::Tul
