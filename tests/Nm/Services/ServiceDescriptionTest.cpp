#include <Nm/Services/Internal/NotificationDispatcherManagerServiceFactory.h>
#include <Nm/Services/Internal/NotificationDispatcherServiceFactory.h>
#include <Nm/Services/Internal/NotificationManagerInfoServiceFactory.h>
#include <Nm/Services/Internal/NotificationSendingServiceFactory.h>
#include <Nm/Services/Internal/SubscriptionStateServiceFactory.h>
#include <Nm/Services/NotificationManagerServiceFactory.h>

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulAuthorizator.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

// Every operation of every service, as its description lists it, sent to the stub that its factory makes
// as a request of the listed argument types, without a broker or dispatcher in this process.

using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

// In the services' namespace, where the types of their descriptions are found.
namespace Kiv::System::Nm::Services::Internal
{
namespace
{
struct RefuseAndRecord : Tul::ITulAuthorizator
{
    bool IsAuthorized(const char*, const char*, const char* methodName,
                      const Tul::TulCallerIdentity&) override
    {
        asked.emplace_back(methodName);
        return false;
    }
    std::vector<std::string> asked;
};

template <class T>
T Sample()
{
    return T{};
}
template <>
DateTime Sample<DateTime>()
{
    return DateTime::GetUtcNow();  // the kind Unspecified is refused on the wire
}
template <>
Notification Sample<Notification>()
{
    return Notification(NotificationId(1), NotificationNameId(1), DateTime::GetUtcNow(), Severity::Info,
                        PayloadTypeId(1), {});
}

template <class... TArguments>
void WriteSamples(Tul::TulWriter& writer)
{
    (WireCodec::Write(writer, Sample<std::decay_t<TArguments>>()), ...);
}

struct Operation
{
    int methodId;
    std::string name;
    void (*writeArguments)(Tul::TulWriter& writer);
};

struct Service
{
    const char* name;
    Tul::ITulServiceFactory& factory;
    std::vector<Operation> operations;
};

#define KIV_TEST_OPERATION(methodId, Result, Name, ...) \
    Operation{methodId, #Name, &WriteSamples<__VA_ARGS__>},
// clang-format off
#define KIV_TEST_SERVICE(Service, operations) \
    {#Service, Service##Factory::GetInstance(), {operations(KIV_TEST_OPERATION)}}
// clang-format on

const Service services[] = {
    KIV_TEST_SERVICE(NotificationDispatcherManagerService,
                     KIV_NM_NOTIFICATION_DISPATCHER_MANAGER_SERVICE_OPERATIONS),
    KIV_TEST_SERVICE(NotificationDispatcherService, KIV_NM_NOTIFICATION_DISPATCHER_SERVICE_OPERATIONS),
    KIV_TEST_SERVICE(NotificationManagerInfoService, KIV_NM_NOTIFICATION_MANAGER_INFO_SERVICE_OPERATIONS),
    KIV_TEST_SERVICE(NotificationSendingService, KIV_NM_NOTIFICATION_SENDING_SERVICE_OPERATIONS),
    KIV_TEST_SERVICE(SubscriptionStateService, KIV_NM_SUBSCRIPTION_STATE_SERVICE_OPERATIONS),
    KIV_TEST_SERVICE(NotificationManagerService, KIV_NM_NOTIFICATION_MANAGER_SERVICE_OPERATIONS),
};

/// Invokes `operation` on `stub` with sample arguments; the response must stay empty, since every call
/// here fails before its confirmation.
void Invoke(Tul::ITulServiceStub& stub, const Operation& operation)
{
    Tul::RemotingWriter request;
    operation.writeArguments(request);
    Tul::RemotingReader reader(request.GetData(), request.GetSize());
    Tul::RemotingWriter response;
    Tul::TulServerContext context(reader, response);
    try
    {
        stub.Invoke(operation.methodId, context);
    }
    catch (...)
    {
        EXPECT_EQ(response.GetSize(), 0U) << operation.name;
        EXPECT_FALSE(context.IsAborted()) << operation.name;
        throw;
    }
}
}  // namespace
}  // namespace Kiv::System::Nm::Services::Internal

using namespace Kiv::System;
using Nm::Services::Internal::Invoke;
using Nm::Services::Internal::Operation;
using Nm::Services::Internal::RefuseAndRecord;
using Nm::Services::Internal::Service;
using Nm::Services::Internal::services;

TEST(ServiceDescriptionTest, EveryOperationReachesItsImplementationOrOnTheGuardedServiceIsRefusedByNameFirst)
{
    for (const Service& service : services)
    {
        const bool guarded = std::string(service.name) == "NotificationManagerService";
        EXPECT_EQ(service.factory.GetUsesSecurityStub(), guarded) << service.name;
        RefuseAndRecord authorizator;
        const std::unique_ptr<Tul::ITulServiceStub> stub(
            service.factory.CreateServiceStub("Kiv", &authorizator));
        for (const Operation& operation : service.operations)
        {
            EXPECT_STREQ(service.factory.GetOperationName(operation.methodId), operation.name.c_str());
            if (guarded)
            {
                // Refused under its own name, before the implementation would find no broker.
                EXPECT_THAT([&] { Invoke(*stub, operation); },
                            ThrowsMessage<Kiv::UnauthorizedAccessException>(
                                HasSubstr("Access denied to '" + operation.name + "'")));
                ASSERT_FALSE(authorizator.asked.empty());
                EXPECT_EQ(authorizator.asked.back(), operation.name);
            }
            else
            {
                // The implementation was reached, and found no broker or dispatcher.
                EXPECT_THAT([&] { Invoke(*stub, operation); },
                            ThrowsMessage<Kiv::Exception>(HasSubstr("was not created yet")))
                    << service.name << " " << operation.name;
            }
        }
        EXPECT_EQ(authorizator.asked.size(), guarded ? service.operations.size() : 0U) << service.name;
        EXPECT_EQ(service.factory.GetOperationName(0), nullptr);
        EXPECT_EQ(service.factory.GetOperationName(service.operations.size() + 1), nullptr);
    }
}

namespace
{
/// Counts the copies made of it; read from nothing.
struct Counted
{
    Counted() = default;
    Counted(const Counted& other) : copies(other.copies + 1) {}
    Counted(Counted&&) noexcept = default;
    int copies = 0;
};

struct CountedCodec
{
    static void Read(Tul::TulReader&, Counted&) {}
};

struct Keeper
{
    void Keep(Counted value) { copies = value.copies; }
    int copies = -1;
};
}  // namespace

TEST(ServiceDescriptionTest, AServedCallMovesItsDecodedArgumentsOnAndAPayloadIsTakenOverOnlyWhenOwned)
{
    Tul::RemotingReader reader(nullptr, 0);
    Tul::RemotingWriter response;
    Tul::TulServerContext context(reader, response);
    Keeper keeper;
    Tul::TulServe<CountedCodec, &Keeper::Keep>(keeper, context);
    EXPECT_EQ(keeper.copies, 0);

    Nm::Services::PayloadArgument decoded;
    decoded.Own().resize(1);
    const auto* data = decoded.Get().data();
    EXPECT_EQ(std::move(decoded).Take().data(), data);
    const std::vector<Nm::TulVariant<512>> own(1);
    Nm::Services::PayloadArgument borrowed(own);
    EXPECT_EQ(borrowed.Get().data(), own.data());
    EXPECT_NE(std::move(borrowed).Take().data(), own.data()) << "a caller's vector is copied, never taken";
}
