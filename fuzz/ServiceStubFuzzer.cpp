// The server end of every service of the library under hostile requests. A broker runs in this process
// ("Fuzz" is its AppDomain and the provider of its dispatcher); each input goes straight to one stub's
// Invoke on a TulServerContext, without a connection, so that the stubs, the argument readers and the
// broker and dispatcher behind them take millions of requests.
//
// Input: byte 0 picks the service, byte 1 the method id (0 up to one past the service's last), the rest
// is the request body.
//
// Properties: Invoke returns or raises an exception derived from Kiv::Exception, nothing else; it aborts
// exactly the method ids the service lacks; a served request's response starts with a plain
// confirmation. A notification dispatched to "Fuzz.Watched" (or a parent) reaches a subscriber that
// renders its payload as text, which likewise succeeds or raises a Kiv::Exception.

#include "FuzzCheck.h"

#include <Nm/INotificationSubscriber.h>
#include <Nm/Internal/NotificationManagerSetup.h>
#include <Nm/Internal/PayloadFormatter.h>
#include <Nm/Notification.h>
#include <Nm/NotificationManager.h>
#include <Nm/Services/Internal/NotificationDispatcherManagerServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceFactory.h>
#include <Nm/Services/NotificationManagerServiceFactory.h>

#include <Kiv/AppDomain.h>
#include <Kiv/Exceptions.h>
#include <Kiv/Logging/LogManager.h>
#include <Kiv/System/Tul/ITulServiceStub.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulDefaultAuthorizator.h>
#include <Kiv/System/Tul/TulServerContext.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>

using namespace Kiv::System;

namespace
{
namespace Services = Nm::Services;

/// Renders what it gets, as a monitor that logs notifications does.
class FormattingSubscriber : public Nm::INotificationSubscriber
{
public:
    void Notify(const Nm::Notification& notification) override
    {
        // The dispatcher would report any exception; the formatter's are to be ours.
        KivFuzz::ReturnsOrRaisesKivException(
            [&] { Nm::Internal::PayloadFormatter(notification.GetPayload()).ToString(); });
    }
};

struct Stub
{
    std::unique_ptr<Tul::ITulServiceStub> stub;
    int lastMethodId;
};

/// A broker with its manager in this process, and one stub of each service, in the order of the first
/// byte (the seed writer uses the same order).
class Broker
{
public:
    Broker()
    {
        Commons::Logging::LogManager::UseNullSink();
        directory = KivFuzz::MakeDirectory();
        Tul::TulSettings settings;
        settings.systemName = "fuzz-stubs-" + std::to_string(getpid());
        settings.endpointDirectory = directory;
        // RegisterDispatcher looks for the dispatcher of any name it gets: nobody serves those here.
        settings.connectWait = std::chrono::milliseconds(0);
        Tul::ServiceManager::Configure(settings);
        Commons::AppDomain::Create("Fuzz");
        Nm::Internal::NotificationManagerSetup::SetupWithNotificationBroker(Kiv::String(""));
        Nm::NotificationManager::GetInstance().Subscribe("Fuzz.Watched", &subscriber);
        // Inputs send without end; a broker that never delivered would never let its full queue go.
        Nm::Internal::NotificationManagerSetup::StartDispatching();

        Add<Services::Internal::INotificationSendingService>(
            Services::Internal::NotificationSendingServiceFactory::GetInstance(), "Kiv");
        Add<Services::Internal::INotificationManagerInfoService>(
            Services::Internal::NotificationManagerInfoServiceFactory::GetInstance(), "Kiv");
        Add<Services::Internal::INotificationDispatcherManagerService>(
            Services::Internal::NotificationDispatcherManagerServiceFactory::GetInstance(), "Kiv");
        Add<Services::Internal::ISubscriptionStateService>(
            Services::Internal::SubscriptionStateServiceFactory::GetInstance(), "Kiv");
        Add<Services::INotificationManagerService>(Services::NotificationManagerServiceFactory::GetInstance(),
                                                   "Kiv");
        Add<Services::Internal::INotificationDispatcherService>(
            Services::Internal::NotificationDispatcherServiceFactory::GetInstance(), "Fuzz");
    }
    ~Broker()
    {
        for (Stub& entry : stubs)
        {
            entry.stub.reset();
        }
        try
        {
            Nm::NotificationManager::GetInstance().UnsubscribeFromAll(&subscriber);
        }
        catch (const Kiv::Exception&)
        {
            // The inputs speak to the dispatcher manager service as any process may, so they can have
            // removed this process's own dispatch row already; the broker then rightly refuses the
            // second removal. Teardown goes on regardless.
        }
        Nm::Internal::NotificationManagerSetup::Dispose();
        Commons::AppDomain::Dispose();
        Kiv::System::Tul::Testing::UseNewTransport();
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    Stub& Get(std::uint8_t selector) { return stubs[selector % count]; }

private:
    static constexpr std::size_t count = 6;

    /// The ids 1 to the number of operations that the service's description lists are known.
    template <class TService>
    void Add(Tul::ITulServiceFactory& factory, const char* provider)
    {
        stubs[added++] =
            Stub{std::unique_ptr<Tul::ITulServiceStub>(factory.CreateServiceStub(provider, &policy)),
                 static_cast<int>(std::size(TService::Description::operations))};
    }

    std::string directory;
    FormattingSubscriber subscriber;
    Tul::TulDefaultAuthorizator policy;
    Stub stubs[count];
    std::size_t added = 0;
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Broker broker;
    if (size < 2)
    {
        return 0;
    }
    Stub& service = broker.Get(data[0]);
    const int methodId = data[1] % (service.lastMethodId + 2);
    const bool known = methodId >= 1 && methodId <= service.lastMethodId;

    Tul::RemotingReader reader(data + 2, size - 2);
    Tul::RemotingWriter writer;
    Tul::TulServerContext context(reader, writer);
    if (!KivFuzz::ReturnsOrRaisesKivException([&] { service.stub->Invoke(methodId, context); }))
    {
        KIV_FUZZ_CHECK(known);
        return 0;
    }
    KIV_FUZZ_CHECK(context.IsAborted() == !known);
    if (known)
    {
        Tul::RemotingReader response(writer.GetBuffer().data(), writer.GetBuffer().size());
        KIV_FUZZ_CHECK(!response.ReadConfirmation());
    }
    return 0;
}
