#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/Services/INotificationManagerService.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceFactory.h>
#include <Nm/Services/NotificationManagerServiceFactory.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>
#include <Nm/Services/ServiceFetch.h>
#include <Nm/Services/ServiceValues.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>
#include <Kiv/System/Tul/ITulServiceStub.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulServerContext.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

// The stubs of every service over a broker in this process, with a policy that refuses every guarded
// operation.

using namespace Kiv::System;
using ::testing::HasSubstr;

namespace
{
struct RefuseAll : Tul::ITulAuthorizator
{
    bool IsAuthorized(const char*, const char*, const char*, const Tul::TulCallerIdentity&) override
    {
        return false;
    }
};

class ServiceStubTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        auto settings = Tul::ServiceManager::GetSettings();
        settings.marshalLocalCalls = true;
        Tul::ServiceManager::Configure(settings);
        Tul::ServiceManager::SetAuthorizator(&refuseAll);
        Commons::AppDomain::Create("ProcessA");
        Nm::Internal::NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    }
    void TearDown() override
    {
        Nm::Internal::NotificationManagerSetup::Dispose();
        Commons::AppDomain::Dispose();
        Kiv::System::Tul::Testing::UseNewTransport();
    }

    RefuseAll refuseAll;
};
}  // namespace

TEST_F(ServiceStubTest, EveryStubAbortsAMethodIdOutsideItsInterfaceAndThePublicOneAsksThePolicyFirst)
{
    const std::tuple<const char*, Tul::ITulServiceFactory*, int> services[] = {
        {"Kiv", &Nm::Services::Internal::NotificationSendingServiceFactory::GetInstance(), 4},
        {"Kiv", &Nm::Services::Internal::NotificationManagerInfoServiceFactory::GetInstance(), 9},
        {"Kiv", &Nm::Services::Internal::NotificationDispatcherManagerServiceFactory::GetInstance(), 5},
        {"Kiv", &Nm::Services::Internal::SubscriptionStateServiceFactory::GetInstance(), 3},
        {"Kiv", &Nm::Services::NotificationManagerServiceFactory::GetInstance(), 11},
        {"ProcessA", &Nm::Services::Internal::NotificationDispatcherServiceFactory::GetInstance(), 2},
    };
    for (const auto& [provider, factory, methods] : services)
    {
        std::unique_ptr<Tul::ITulServiceStub> stub(factory->CreateServiceStub(provider, &refuseAll));
        for (const int methodId : {0, methods + 1, 0xFFFF})
        {
            Tul::RemotingReader request(nullptr, 0);
            Tul::RemotingWriter response;
            Tul::TulServerContext context(request, response);
            stub->Invoke(methodId, context);
            EXPECT_TRUE(context.IsAborted()) << provider << " method " << methodId << " of " << methods;
            EXPECT_THAT(context.GetAbortText().c_str(), HasSubstr("0x40000003"));
        }
    }

    // Through this process's own endpoint, as from another process.
    using Nm::Services::ToTulString;
    auto service = Nm::Services::FetchService<Nm::Services::INotificationManagerService,
                                              Nm::Services::NotificationManagerServiceProxyFactory>();
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"RegisterNotification",
         [&]
         {
             service->RegisterNotification(ToTulString("P.Q"), ToTulString("S"), Nm::Severity::Info,
                                           ToTulString("T"));
         }},
        {"UnregisterNotification", [&] { service->UnregisterNotification(1); }},
        {"SendNotification", [&] { service->SendNotification(1, Kiv::DateTime::GetUtcNow(), {}); }},
        {"GetNotificationName", [&] { service->GetNotificationName(1); }},
        {"GetNotificationNameId", [&] { service->GetNotificationNameId(ToTulString("Kiv")); }},
        {"GetNotificationNameIdsByStatus",
         [&] { service->GetNotificationNameIdsByStatus(Nm::NotificationRegistrationStatus::Registered); }},
        {"GetAllKnownNotificationNameIds", [&] { service->GetAllKnownNotificationNameIds(); }},
        {"GetNotificationRegistration", [&] { service->GetNotificationRegistration(1); }},
        {"GetPayloadTypeId", [&] { service->GetPayloadTypeId(ToTulString("T")); }},
        {"GetPayloadTypeName", [&] { service->GetPayloadTypeName(1); }},
        {"GetNumberOfSubmittedNotifications", [&] { service->GetNumberOfSubmittedNotifications(); }},
    };
    for (const auto& [name, call] : operations)
    {
        EXPECT_THAT(call, ::testing::ThrowsMessage<Kiv::UnauthorizedAccessException>(
                              HasSubstr(std::string("Access denied to '") + name + "'")));
    }
}
