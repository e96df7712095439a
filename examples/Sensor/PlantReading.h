#pragma once

#include <Nm/SpecializedPayload.h>

#include <Kiv/System/Tul/TulType.h>

namespace Demo
{
/// A measured value of the plant: what was measured, the number and its unit. Its text form, made by
/// the format string in field 0 (whose arguments are fields 1, 2 and 3), reads "temperature = 21.5 degC".
class PlantReading : public Kiv::System::Nm::SpecializedPayload<PlantReading>
{
public:
    PlantReading(const char* quantity, double value, const char* unit) : SpecializedPayload("{0} = {1} {2}")
    {
        using Kiv::System::Tul::TulType;
        payload.SetFieldValue(payload.AddField(TulType::String), Kiv::System::Nm::TulVariant<512>(quantity));
        payload.SetFieldValue(payload.AddField(TulType::Real64), Kiv::System::Nm::TulVariant<512>(value));
        payload.SetFieldValue(payload.AddField(TulType::String), Kiv::System::Nm::TulVariant<512>(unit));
    }
};
}  // namespace Demo
