#pragma once

#include <Nm/Internal/NotificationBroker/IdGenerator.h>

#include <optional>
#include <unordered_map>
#include <utility>

namespace Kiv::System::Nm::Internal
{
/// The base of the id-keyed tables. The derived class brings its own mutex (it decides what else that
/// mutex guards) and its static, never-returning On... hooks, found through TDerived without virtuals.
template <class TId, class TValue, class TDerived, class TContainer = std::unordered_map<TId, TValue>>
class Repository
{
public:
    using IdType = TId;
    using ValueType = TValue;
    using Container = TContainer;
    using Entry = typename Container::value_type;

    /// A predicate over a (key, value) row that compares the value with ==.
    static auto PredicateEqualsValue(const TValue& value)
    {
        return [&value](const Entry& entry) { return entry.second == value; };
    }

protected:
    Repository() = default;
    ~Repository() = default;

    /// The first row in container order that satisfies `predicate`, or nothing.
    template <class Predicate>
    std::optional<TId> FindFirst(Predicate predicate) const
    {
        for (const Entry& entry : container)
        {
            if (predicate(entry))
            {
                return entry.first;
            }
        }
        return std::nullopt;
    }

    Container container;
    NotificationBroker::IdGenerator<TId> idGenerator;
};
}  // namespace Kiv::System::Nm::Internal
