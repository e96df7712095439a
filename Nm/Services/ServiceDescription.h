#pragma once

// What the descriptions of this library's services share: their wire form and their defaults.

#include <Nm/Notification.h>
#include <Nm/NotificationRegistrationInfo.h>
#include <Nm/Services/Wire.h>

#include <Kiv/System/Tul/TulServiceBases.h>
#include <Kiv/System/Tul/TulServiceDescription.h>

namespace Kiv::System::Nm::Services
{
// The frame's bases, under the names the services of this library know them by.
using Tul::TulServiceFactoryBase;
using Tul::TulServiceProxyBase;
using Tul::TulServiceProxyFactoryBase;
using Tul::TulServiceSecurityStubBase;
using Tul::TulServiceStubBase;

/// The wire form of Wire.h, for the frame's templates.
struct WireCodec
{
    template <class T>
    static void Write(Tul::TulWriter& writer, const T& value)
    {
        Wire::Write(writer, value);
    }
    template <class T>
    static void Read(Tul::TulReader& reader, T& value)
    {
        Wire::Read(reader, value);
    }
};

/// A service of this library: published by the provider "Kiv" and not guarded, unless its description
/// says otherwise.
template <class TInterface>
struct ServiceDescription
{
    using Interface = TInterface;
    using Codec = WireCodec;
    static constexpr const char* providerName = "Kiv";
    static constexpr bool guarded = false;
};
}  // namespace Kiv::System::Nm::Services
