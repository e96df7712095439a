#pragma once

#include <fmt/ostream.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <vector>

namespace Kiv::System::Nm
{
/// A strongly typed identifier over a raw integer. Two ids over the same raw type but with different tags
/// are different types and do not convert into each other. The raw value 0 is the invalid id.
template <class T, class Tag>
class IdType
{
public:
    using type = T;

    constexpr IdType() noexcept = default;
    constexpr explicit IdType(T value) noexcept : value(value) {}

    constexpr T GetValue() const noexcept { return value; }

    constexpr bool operator==(const IdType& other) const noexcept { return value == other.value; }
    constexpr bool operator!=(const IdType& other) const noexcept { return value != other.value; }
    constexpr bool operator<(const IdType& other) const noexcept { return value < other.value; }

private:
    T value = 0;
};

/// Inserts the raw value as an unsigned number, so an id prints in decimal under the default flags.
template <class T, class Tag>
std::ostream& operator<<(std::ostream& out, const IdType<T, Tag>& id)
{
    return out << static_cast<unsigned long long>(id.GetValue());
}

struct NotificationNameIdTag
{
};
struct NotificationIdTag
{
};
struct PayloadTypeIdTag
{
};
struct NotificationDispatcherIdTag
{
};

using NotificationNameId = IdType<std::uint32_t, NotificationNameIdTag>;
using NotificationId = IdType<std::uint64_t, NotificationIdTag>;
using PayloadTypeId = IdType<std::uint16_t, PayloadTypeIdTag>;
using NotificationDispatcherId = IdType<std::uint16_t, NotificationDispatcherIdTag>;

// The widths are those of the wire and of the other processes, whatever the machine's word size.
static_assert(sizeof(NotificationNameId) == 4 && sizeof(NotificationId) == 8 && sizeof(PayloadTypeId) == 2 &&
                  sizeof(NotificationDispatcherId) == 2,
              "an id is exactly as wide as its raw value");

/// Ids cross the wire as plain numbers; these convert at the boundary, keeping the order.
template <class IdT>
std::vector<IdT> ConvertRawIdsToIdTypes(const std::vector<typename IdT::type>& rawIds)
{
    std::vector<IdT> ids;
    ids.reserve(rawIds.size());
    for (const auto raw : rawIds)
    {
        ids.emplace_back(raw);
    }
    return ids;
}

template <class IdT>
std::vector<typename IdT::type> ConvertIdTypesToRawIds(const std::vector<IdT>& ids)
{
    std::vector<typename IdT::type> rawIds;
    rawIds.reserve(ids.size());
    for (const auto& id : ids)
    {
        rawIds.push_back(id.GetValue());
    }
    return rawIds;
}
}  // namespace Kiv::System::Nm

/// The hash is the raw value itself.
template <class T, class Tag>
struct std::hash<Kiv::System::Nm::IdType<T, Tag>>
{
    std::size_t operator()(const Kiv::System::Nm::IdType<T, Tag>& id) const noexcept
    {
        return static_cast<std::size_t>(id.GetValue());
    }
};

template <class T, class Tag>
struct fmt::formatter<Kiv::System::Nm::IdType<T, Tag>> : fmt::ostream_formatter
{
};
