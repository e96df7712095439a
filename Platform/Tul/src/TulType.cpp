#include <Kiv/System/Tul/TulGuid.h>
#include <Kiv/System/Tul/TulType.h>
#include <Kiv/System/Tul/TulVersion.h>
#include <Kiv/System/Tul/TulWriter.h>

namespace Kiv::System::Tul
{
const char* GetTulTypeName(TulType type) noexcept
{
    switch (type)
    {
    case TulType::None: return "None";
    case TulType::Void: return "Void";
    case TulType::Bool: return "Bool";
    case TulType::Char: return "Char";
    case TulType::Int8: return "Int8";
    case TulType::UInt8: return "UInt8";
    case TulType::Int16: return "Int16";
    case TulType::UInt16: return "UInt16";
    case TulType::Int32: return "Int32";
    case TulType::UInt32: return "UInt32";
    case TulType::Int64: return "Int64";
    case TulType::UInt64: return "UInt64";
    case TulType::Real32: return "Real32";
    case TulType::Real64: return "Real64";
    case TulType::Struct: return "Struct";
    case TulType::String: return "String";
    case TulType::Array: return "Array";
    case TulType::DateTime: return "DateTime";
    case TulType::Version: return "Version";
    case TulType::Guid: return "Guid";
    case TulType::String26: return "String26";
    case TulType::Object: return "Object";
    case TulType::String36: return "String36";
    case TulType::Alias32: return "Alias32";
    case TulType::Alias64: return "Alias64";
    case TulType::Unset: return "Unset";
    }
    return nullptr;
}

std::ostream& operator<<(std::ostream& out, TulType type)
{
    const char* name = GetTulTypeName(type);
    if (name != nullptr)
    {
        return out << name;
    }
    return out << static_cast<unsigned>(type);
}

String TulVersion::ToString() const
{
    return String(fmt::format("{}.{}.{}.{}", major, minor, build, revision));
}

void TulVersion::Write(TulWriter& writer) const
{
    for (const std::uint16_t part : {major, minor, build, revision})
    {
        writer.WriteDataInternal(&part, sizeof part);
    }
}

void TulGuid::Write(TulWriter& writer) const
{
    writer.WriteDataInternal(bytes.data(), bytes.size());
}

String TulGuid::ToString() const
{
    String text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes.size(); ++i)
    {
        if (i == 4 || i == 6 || i == 8 || i == 10)
        {
            text += '-';
        }
        text += fmt::format("{:02x}", bytes[i]);
    }
    return text;
}
}  // namespace Kiv::System::Tul
