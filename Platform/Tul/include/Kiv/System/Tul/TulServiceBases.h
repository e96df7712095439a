#pragma once

// The classes a service brings along, made from its description (TulServiceDescription.h). A service's
// interface `IX` names its description as `IX::Description`; its implementation derives from `IX`.

#include <Kiv/BasicString.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxy.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ITulServiceStub.h>
#include <Kiv/System/Tul/TulClient.h>
#include <Kiv/System/Tul/TulClientContext.h>
#include <Kiv/System/Tul/TulErrors.h>
#include <Kiv/System/Tul/TulServiceAuthorizator.h>
#include <Kiv/System/Tul/TulServiceDescription.h>

#include <cstdint>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace Kiv::System::Tul
{
/// The server-side factory of one service: its provider name, whether each call passes the security stub,
/// and the names of its operations by method id.
class TulServiceFactoryBase : public ITulServiceFactory
{
public:
    ~TulServiceFactoryBase() override = default;

    bool GetUsesSecurityStub() const override { return usesSecurityStub; }
    const String& GetServiceProviderName() const override { return serviceProviderName; }
    const char* GetOperationName(unsigned short methodId) const override
    {
        return methodId >= 1 && methodId <= operationNames.size() ? operationNames[methodId - 1U] : nullptr;
    }
    /// The operations in the order of the interface: method id 1 is the first.
    const std::vector<const char*>& GetOperationNames() const noexcept { return operationNames; }

protected:
    TulServiceFactoryBase(String serviceProviderName, bool usesSecurityStub,
                          std::vector<const char*> operationNames)
        : serviceProviderName(std::move(serviceProviderName)),
          usesSecurityStub(usesSecurityStub),
          operationNames(std::move(operationNames))
    {
    }

private:
    String serviceProviderName;
    bool usesSecurityStub;
    std::vector<const char*> operationNames;
};

/// The client-side factory of one service: knows the service name and, where the service has one of its
/// own, the provider name.
class TulServiceProxyFactoryBase : public ITulServiceProxyFactory
{
public:
    ~TulServiceProxyFactoryBase() override = default;

    const char* GetServiceName() const override { return serviceName.c_str(); }
    const char* GetServiceProviderName() const override { return serviceProviderName.c_str(); }

protected:
    TulServiceProxyFactoryBase(String serviceName, String serviceProviderName)
        : serviceName(std::move(serviceName)), serviceProviderName(std::move(serviceProviderName))
    {
    }

private:
    String serviceName;
    String serviceProviderName;
};

/// The client end of the service interface `T`: the two handles that the service manager assigned and the
/// shared connection. Its operations are written as `KIV_TUL_PROXY_OPERATION`s.
template <class T>
class TulServiceProxyBase : public ITulServiceProxy, public T
{
public:
    using Description = typename T::Description;

    TulServiceProxyBase(unsigned short providerHandle, unsigned short serviceHandle, TulClient& client)
        : providerHandle(providerHandle), serviceHandle(serviceHandle), client(client)
    {
    }
    ~TulServiceProxyBase() override = default;

    unsigned short GetServiceHandle() const override { return serviceHandle; }
    unsigned short GetProviderHandle() const override { return providerHandle; }
    void RefreshServiceHandle() override
    {
        serviceHandle = client.GetServiceHandle(providerHandle, Description::serviceName);
    }

protected:
    /// One blocking invocation of `methodId`: the arguments go out in order in their wire form, and the
    /// result comes back in its own. The transaction is ended exactly once, also when the call fails, and
    /// the failure goes on to the caller.
    template <class TResult, class... TArguments>
    TResult Call(std::uint16_t methodId, const std::tuple<TArguments...>& arguments)
    {
        client.BeginTransaction(*this);
        try
        {
            if constexpr (std::is_void_v<TResult>)
            {
                Exchange<TResult>(methodId, arguments);
                client.EndTransaction(*this);
            }
            else
            {
                TResult result = Exchange<TResult>(methodId, arguments);
                client.EndTransaction(*this);
                return result;
            }
        }
        catch (...)
        {
            client.EndTransaction(*this);
            throw;
        }
    }

    unsigned short providerHandle;
    unsigned short serviceHandle;
    TulClient& client;

private:
    template <class TResult, class... TArguments>
    TResult Exchange(std::uint16_t methodId, const std::tuple<TArguments...>& arguments)
    {
        // The context lives inside the transaction: it is gone before EndTransaction, whatever happens.
        TulClientContext context(client);
        context.BeginServiceInvocationRequest(providerHandle, serviceHandle, methodId);
        std::apply([&context](const auto&... argument)
                   { (Description::Codec::Write(context.GetWriter(), argument), ...); },
                   arguments);
        context.EndServiceInvocationRequest();
        context.BeginServiceInvocationResponse(providerHandle, serviceHandle, methodId);
        if constexpr (std::is_void_v<TResult>)
        {
            context.EndServiceInvocationResponse();
        }
        else
        {
            TResult result{};
            Description::Codec::Read(context.GetReader(), result);
            context.EndServiceInvocationResponse();
            return result;
        }
    }
};

/// The server end of a service: owns the service object (its implementation, or the security stub in
/// front of it) and turns one invocation into one call of it, by the description's table. Catches
/// nothing: a failure leaves Invoke before the confirmation, and the platform carries it to the caller.
template <class TImpl>
class TulServiceStubBase : public ITulServiceStub
{
public:
    explicit TulServiceStubBase(TImpl* service) : service(service) {}
    ~TulServiceStubBase() override = default;

    void Invoke(int methodId, TulServerContext& context) override
    {
        const auto* operation = FindTulOperation<typename TImpl::Description>(methodId);
        if (operation == nullptr)
        {
            context.AbortRequest(TulErrors::UnknownMethod, nullptr);
            return;
        }
        operation->serve(*service, context);
    }

protected:
    std::unique_ptr<TImpl> service;
};

/// Puts a rights check in front of the operations of `TImpl`: they are overridden by
/// `KIV_TUL_GUARDED_OPERATION`s, which ask `authorizator` first and then call the Impl's.
template <class TImpl>
class TulServiceSecurityStubBase : public TImpl
{
public:
    TulServiceSecurityStubBase(const char* providerName, ITulAuthorizator* authorizator)
        : authorizator(providerName, TImpl::Description::serviceName, authorizator)
    {
    }

protected:
    using Impl = TImpl;

    TulServiceAuthorizator authorizator;
};

/// Makes the server side from the description: the implementation, or, where the service is guarded, its
/// security stub `TSecurityStub` (void for a service that has none), and the stub `TStub` around it.
template <class TImpl, class TSecurityStub, class TStub>
class TulServiceFactory : public TulServiceFactoryBase
{
public:
    using Description = typename TImpl::Description;

    TulServiceFactory() : TulServiceFactoryBase(Description::providerName, Description::guarded, Names())
    {
        static_assert(IdsFollowTheInterface(), "method ids are 1, 2, ... in the order of the interface");
    }

    ITulService* CreateServiceImpl(const char* providerName, ITulAuthorizator* authorizator) override
    {
        return CreateService(providerName, authorizator);
    }
    ITulServiceStub* CreateServiceStub(const char* providerName, ITulAuthorizator* authorizator) override
    {
        return new TStub(CreateService(providerName, authorizator));
    }

protected:
    /// A service without security stub ignores both arguments.
    virtual TImpl* CreateService(const char* providerName, ITulAuthorizator* authorizator)
    {
        if constexpr (!std::is_void_v<TSecurityStub>)
        {
            if (GetUsesSecurityStub())
            {
                return new TSecurityStub(providerName, authorizator);
            }
        }
        return new TImpl;
    }

private:
    static constexpr bool IdsFollowTheInterface()
    {
        unsigned short expected = 1;
        for (const auto& operation : Description::operations)
        {
            if (operation.methodId != expected++)
            {
                return false;
            }
        }
        return true;
    }
    static std::vector<const char*> Names()
    {
        std::vector<const char*> names;
        for (const auto& operation : Description::operations)
        {
            names.push_back(operation.name);
        }
        return names;
    }
};

/// Makes the proxies `TProxy`, found under the description's names unless others are given.
template <class TProxy>
class TulServiceProxyFactory : public TulServiceProxyFactoryBase
{
public:
    using Description = typename TProxy::Description;

    explicit TulServiceProxyFactory(const char* serviceName = Description::serviceName,
                                    const char* serviceProviderName = Description::providerName)
        : TulServiceProxyFactoryBase(serviceName, serviceProviderName)
    {
    }

    ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                         TulClient& client) override
    {
        return new TProxy(providerHandle, serviceHandle, client);
    }
};
}  // namespace Kiv::System::Tul

/// The server side of the service `Service`, whose implementation is `Service##Impl` and whose operations
/// are listed by `operations`: `Service##SecurityStub`, `Service##Stub` and the factory
/// `Service##Factory`, which has the singleton `GetInstance()`, with the export attribute `api`.
#define KIV_TUL_SERVER_CLASSES(Service, operations, api)                                                    \
    class Service##SecurityStub : public ::Kiv::System::Tul::TulServiceSecurityStubBase<Service##Impl>      \
    {                                                                                                       \
    public:                                                                                                 \
        using TulServiceSecurityStubBase::TulServiceSecurityStubBase;                                       \
        operations(KIV_TUL_GUARDED_OPERATION)                                                               \
    };                                                                                                      \
    class Service##Stub : public ::Kiv::System::Tul::TulServiceStubBase<Service##Impl>                      \
    {                                                                                                       \
    public:                                                                                                 \
        using TulServiceStubBase::TulServiceStubBase;                                                       \
    };                                                                                                      \
    class api Service##Factory                                                                              \
        : public ::Kiv::System::Tul::TulServiceFactory<Service##Impl, Service##SecurityStub, Service##Stub> \
    {                                                                                                       \
    public:                                                                                                 \
        static Service##Factory& GetInstance();                                                             \
    }

/// The client side of the service `Service`, whose interface is `I##Service`: `Service##Proxy` and the
/// proxy factory `Service##ProxyFactory`, which has the singleton `GetInstance()`.
#define KIV_TUL_CLIENT_CLASSES(Service, operations, api)                                                \
    class Service##Proxy : public ::Kiv::System::Tul::TulServiceProxyBase<I##Service>                   \
    {                                                                                                   \
    public:                                                                                             \
        using TulServiceProxyBase::TulServiceProxyBase;                                                 \
        operations(KIV_TUL_PROXY_OPERATION)                                                             \
    };                                                                                                  \
    class api Service##ProxyFactory : public ::Kiv::System::Tul::TulServiceProxyFactory<Service##Proxy> \
    {                                                                                                   \
    public:                                                                                             \
        static Service##ProxyFactory& GetInstance();                                                    \
    }
