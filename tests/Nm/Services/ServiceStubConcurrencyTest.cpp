#include <Nm/Internal/NotificationDispatcher/NotificationDispatcher.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/NotificationManager.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceProxyFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceProxyFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceProxyFactory.h>
#include <Nm/Services/NotificationManagerServiceProxyFactory.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceProxy.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulClient.h>
#include <Kiv/System/Tul/TulClientContext.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

// Every service's stub refuses a method id that its interface doesn't have, whatever the service: the
// caller gets the abort error, and the connection goes on serving. Calls go through this process's own
// endpoint, as from another process.

using namespace Kiv::System;
using ::testing::HasSubstr;

namespace
{
/// A proxy that knows only its handles: it sends any method id with an empty body.
class RawProxy : public Tul::ITulServiceProxy, public Tul::ITulService
{
public:
    RawProxy(unsigned short provider, unsigned short service, Tul::TulClient& client)
        : provider(provider), service(service), client(client)
    {
    }
    unsigned short GetServiceHandle() const override { return service; }
    unsigned short GetProviderHandle() const override { return provider; }
    void RefreshServiceHandle() override {}

    void Invoke(std::uint16_t methodId)
    {
        client.BeginTransaction(*this);
        try
        {
            Tul::TulClientContext context(client);
            context.BeginServiceInvocationRequest(provider, service, methodId);
            context.EndServiceInvocationRequest();
            context.BeginServiceInvocationResponse(provider, service, methodId);
            context.EndServiceInvocationResponse();
        }
        catch (...)
        {
            client.EndTransaction(*this);
            throw;
        }
        client.EndTransaction(*this);
    }

private:
    unsigned short provider;
    unsigned short service;
    Tul::TulClient& client;
};

class RawProxyFactory : public Tul::ITulServiceProxyFactory
{
public:
    explicit RawProxyFactory(const Tul::ITulServiceProxyFactory& real) : name(real.GetServiceName()) {}
    const char* GetServiceName() const override { return name.c_str(); }
    const char* GetServiceProviderName() const override { return ""; }
    Tul::ITulServiceProxy* CreateServiceProxy(unsigned short provider, unsigned short service,
                                              Tul::TulClient& client) override
    {
        return new RawProxy(provider, service, client);
    }

private:
    std::string name;
};

class ServiceStubTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        original = Tul::ServiceManager::GetSettings();
        auto settings = original;
        settings.marshalLocalCalls = true;
        Tul::ServiceManager::Configure(settings);
        Commons::AppDomain::Create("ProcessA");
        Nm::Internal::NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
    }
    void TearDown() override
    {
        Nm::Internal::NotificationManagerSetup::Dispose();
        Commons::AppDomain::Dispose();
        Tul::ServiceManager::Reset();
        Tul::ServiceManager::Configure(original);
    }

    Tul::TulSettings original;
};
}  // namespace

TEST_F(ServiceStubTest, AMethodIdOutsideTheInterfaceIsAbortedAndTheConnectionServesOn)
{
    const std::vector<std::tuple<const char*, Tul::ITulServiceProxyFactory*, std::uint16_t>> services{
        {"Kiv", &Nm::Services::Internal::NotificationSendingServiceProxyFactory::GetInstance(), 3},
        {"Kiv", &Nm::Services::Internal::NotificationManagerInfoServiceProxyFactory::GetInstance(), 8},
        {"Kiv", &Nm::Services::Internal::NotificationDispatcherManagerServiceProxyFactory::GetInstance(), 5},
        {"Kiv", &Nm::Services::Internal::SubscriptionStateServiceProxyFactory::GetInstance(), 3},
        {"Kiv", &Nm::Services::NotificationManagerServiceProxyFactory::GetInstance(), 11},
        {"ProcessA", &Nm::Services::Internal::NotificationDispatcherServiceProxyFactory::GetInstance(), 1},
    };
    for (const auto& [provider, realFactory, methods] : services)
    {
        SCOPED_TRACE(realFactory->GetServiceName());
        RawProxyFactory factory(*realFactory);
        std::unique_ptr<Tul::ITulService> service(Tul::ServiceManager::GetService(provider, factory));
        ASSERT_NE(service, nullptr);
        auto& proxy = dynamic_cast<RawProxy&>(*service);
        for (const std::uint16_t methodId :
             {std::uint16_t(0), std::uint16_t(methods + 1), std::uint16_t(0xFFFF)})
        {
            EXPECT_THAT([&] { proxy.Invoke(methodId); },
                        ::testing::ThrowsMessage<Kiv::CommunicationException>(HasSubstr("0x40000003")));
        }
    }
    // The broker still answers on the same connection.
    EXPECT_EQ(Nm::NotificationManager::GetInstance().GetNotificationName(Nm::NotificationNameId(1)), "Kiv");
}
