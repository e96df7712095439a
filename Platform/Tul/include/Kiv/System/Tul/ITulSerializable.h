#pragma once

#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
class TulReader;
class TulWriter;

/// A record that writes and reads its own fields. The caller writes the structure header around it.
class KIV_API ITulSerializable
{
public:
    virtual ~ITulSerializable();
    virtual void Serialize(TulWriter& writer) const = 0;
    virtual void Deserialize(TulReader& reader) = 0;

protected:
    ITulSerializable() = default;
    ITulSerializable(const ITulSerializable&) = default;
    ITulSerializable& operator=(const ITulSerializable&) = default;
};
}  // namespace Kiv::System::Tul
