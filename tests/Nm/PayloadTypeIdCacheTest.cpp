#include <Nm/AppDomainSingleton.h>
#include <Nm/Internal/NotificationBroker/NotificationBroker.h>
#include <Nm/SpecializedPayload.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>

#include <gtest/gtest.h>

// A payload class asks the broker for its id once per setup of the process, and again after a new one.

using namespace Kiv::System::Nm;
using Broker = Kiv::System::Nm::Internal::NotificationBroker::NotificationBroker;

namespace
{
class CachedPayload : public SpecializedPayload<CachedPayload>
{
public:
    CachedPayload() : SpecializedPayload("") {}
};
}  // namespace

TEST(PayloadTypeIdCacheTest, TheIdIsAskedForOncePerSetupOfTheProcess)
{
    Kiv::System::Commons::AppDomain::Create("ProcessA");
    AppDomainSingleton<Broker>::CreateInstance(4u);
    // Another type first, so that this one's id in the first broker is not the first handed out.
    AppDomainSingleton<Broker>::GetInstance().GetPayloadTypeId("Some.Other.Type");
    const PayloadTypeId first = CachedPayload::GetPayloadTypeId();
    EXPECT_EQ(AppDomainSingleton<Broker>::GetInstance().GetPayloadTypeName(first),
              CachedPayload::GetPayloadTypeName());

    // With the broker gone the id is still known: it is not asked for again.
    AppDomainSingleton<Broker>::DisposeInstance();
    EXPECT_EQ(CachedPayload::GetPayloadTypeId(), first);
    EXPECT_EQ(CachedPayload().GetId(), first);

    // A new broker hands out ids afresh, and the class asks it.
    AppDomainSingleton<Broker>::CreateInstance(4u);
    const PayloadTypeId second = CachedPayload::GetPayloadTypeId();
    EXPECT_NE(second, first);
    EXPECT_EQ(AppDomainSingleton<Broker>::GetInstance().GetPayloadTypeName(second),
              CachedPayload::GetPayloadTypeName());
    AppDomainSingleton<Broker>::DisposeInstance();
    Kiv::System::Commons::AppDomain::Dispose();
    Kiv::System::Tul::ServiceManager::Reset();
}
