#pragma once

// The JSON form in which a notification leaves its system: everything that the other side needs to
// rebuild the same typed payload, and the rendered text for readers that only show it. The document is
// described by notification.schema.json beside this file.

#include <Nm/Notification.h>
#include <Nm/Severity.h>
#include <Nm/TulVariant.h>

#include <Kiv/DateTime.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace KivBridge
{
using Json = nlohmann::ordered_json;
using Variant = Kiv::System::Nm::TulVariant<512>;

/// A document that is not a notification of this form: its reason, for one log line.
struct FormatError : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// What the JSON form carries beside the payload fields.
struct NotificationHeader
{
    std::string origin;  // the system that exported it
    std::string bridge;  // the bridge that exported it, unique per run
    std::string name;
    std::uint64_t id = 0;
    Kiv::DateTime timestamp;
    Kiv::System::Nm::Severity severity = Kiv::System::Nm::Severity::Info;
    std::string sender;
    std::string payloadType;
    std::string text;
};

/// One payload field as {"type": ..., "value": ...}; raises FormatError for a type without a JSON form.
Json FieldToJson(const Variant& field);
/// The field back from its JSON form; raises FormatError for anything it does not recognise.
Variant FieldFromJson(const Json& field);

Json ToJson(const NotificationHeader& header, const std::vector<Variant>& fields);
/// Raises FormatError naming the first thing wrong.
void FromJson(const Json& document, NotificationHeader& header, std::vector<Variant>& fields);

/// "2026-11-21T08:15:30.1234567Z" and back; the kind is Utc for "Z", Local for an offset (whose digits
/// are the wall clock of the sender), as DateTime::ToIso8601String writes them.
Kiv::DateTime ParseIso8601(const std::string& text);
}  // namespace KivBridge
