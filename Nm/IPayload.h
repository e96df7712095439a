#pragma once

#include <Nm/IdType.h>
#include <Nm/TulVariant.h>

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <vector>

namespace Kiv::System::Nm
{
/// What a sender hands to the system: a payload type and a list of self-describing fields. Field 0 is the
/// format string of the payload's text form; the other fields are its arguments.
class KIV_API IPayload
{
public:
    virtual ~IPayload();

    virtual PayloadTypeId GetId() const = 0;
    /// The payload type name, e.g. "Kiv::System::Nm::StringPayload".
    virtual String GetName() const = 0;
    /// What a send of this payload carries.
    virtual const std::vector<TulVariant<512>>& GetAsRawPayloadType() const = 0;
    virtual String ToString() const = 0;
};
}  // namespace Kiv::System::Nm
