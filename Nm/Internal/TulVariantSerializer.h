#pragma once

#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>
#include <Kiv/Export.h>
#include <Kiv/System/Tul/TulReader.h>
#include <Kiv/System/Tul/TulWriter.h>

#include <type_traits>
#include <vector>

namespace Kiv::System::Nm::Internal
{
/// Writes and reads variants as elements of a message: the object type, then the value, with no tag in
/// front. Records and services share this one form so that every process agrees on it.
///
/// The two directions differ on purpose: Alias32 and the Alias64 codes go out as they are and come back
/// as Int32 and Int64, and Version and Guid can be written but not read. Struct and Array are headers
/// only; whatever follows them on the wire is read as further elements.
class KIV_API TulVariantSerializer final
{
public:
    using Variant = TulVariant<512>;

    TulVariantSerializer() = delete;

    /// One element. Throws NotSupportedException for a code that has no wire form and for a DateTime of
    /// kind Unspecified. Stores the writer in a Struct or Array value.
    static void WriteElement(Tul::TulWriter& writer, const Variant& value);

    /// One element. Throws NotSupportedException for a code that has no wire form and for a DateTime of
    /// kind Unspecified, NotImplementedException for Version and Guid. Struct and Array values remember
    /// the reader.
    static Variant ReadElement(Tul::TulReader& reader);

    /// A vector as an array of objects: tags Array and Object, the length, then the elements.
    static void WritePayload(Tul::TulWriter& writer, const std::vector<Variant>& payload);

    /// Appends the elements of an array of objects to `payload`, which it reserves for all of them first.
    /// Raises ArgumentException, before reserving, when they would take more memory than
    /// ServiceManager::GetMaxPayloadMemory allows.
    static void ReadPayload(Tul::TulReader& reader, std::vector<Variant>& payload);

    /// The wire has no form for a time of unknown kind; throws NotSupportedException for it.
    static void EnsureDateTimeKindIsSpecified(const DateTime& value);

    /// A fixed field of a record: its tag, then the scalar as it lies in memory.
    template <class T>
    static void WriteTaggedValue(Tul::TulWriter& writer, TulType tag, const T& value)
    {
        static_assert(std::is_arithmetic_v<T>, "a plain number of 1, 2, 4 or 8 bytes");
        writer.WriteTag(tag);
        writer.WriteDataInternal(&value, sizeof value);
    }

    template <class T>
    static T ReadTaggedValue(Tul::TulReader& reader, TulType tag)
    {
        static_assert(std::is_arithmetic_v<T>, "a plain number of 1, 2, 4 or 8 bytes");
        T value{};
        reader.ReadTag(tag);
        reader.ReadDataInternal(&value, sizeof value);
        return value;
    }
};
}  // namespace Kiv::System::Nm::Internal
