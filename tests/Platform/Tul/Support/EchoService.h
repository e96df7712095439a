#pragma once

// A small service for the transport's tests, with every class a service brings along: interface,
// implementation, security stub, stub, factory, proxy and proxy factory.

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxy.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ITulServiceStub.h>
#include <Kiv/System/Tul/RemotingReader.h>
#include <Kiv/System/Tul/RemotingWriter.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>
#include <Kiv/System/Tul/TulClient.h>
#include <Kiv/System/Tul/TulClientContext.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>
#include <Kiv/System/Tul/TulServerContext.h>
#include <Kiv/System/Tul/TulServiceAuthorizator.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

#include <unistd.h>

namespace Echo
{
using namespace Kiv::System::Tul;
using Kiv::String;

constexpr const char* serviceName = "Test.IEchoService";

struct Identity
{
    std::uint32_t serverPid, callerUid, callerGid, callerPid;
};

/// The methods, by their ids 1 to 7.
class IEchoService : public ITulService
{
public:
    virtual String Echo(const String& text) = 0;
    virtual std::uint32_t Add(std::uint32_t a, std::uint32_t b) = 0;
    /// Raises the exception that the registry makes of `typeName` and `message`.
    virtual void Throw(const String& typeName, const String& message) = 0;
    virtual void Sleep(std::uint32_t milliseconds) = 0;
    /// Echo(text) of the echo service of `providerName`, called from here.
    virtual String CallBack(const String& providerName, const String& text) = 0;
    /// `length` times 'x'.
    virtual String Fill(std::uint32_t length) = 0;
    virtual Identity Identify() = 0;
};

/// Where Sleep announces "sleeping" before it sleeps, when set, so that a test knows the call is there.
inline int sleepNoticeFd = -1;

class EchoServiceImpl : public IEchoService
{
public:
    String Echo(const String& text) override { return Check("Echo"), text; }
    std::uint32_t Add(std::uint32_t a, std::uint32_t b) override { return Check("Add"), a + b; }
    void Throw(const String& typeName, const String& message) override
    {
        Check("Throw");
        TulExceptionRegistry::Create(typeName, message)->Rethrow();
    }
    void Sleep(std::uint32_t milliseconds) override
    {
        Check("Sleep");
        if (sleepNoticeFd >= 0)
        {
            [[maybe_unused]] auto written = write(sleepNoticeFd, "sleeping\n", 9);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
    String CallBack(const String& providerName, const String& text) override;
    String Fill(std::uint32_t length) override { return Check("Fill"), String(length, 'x'); }
    Identity Identify() override
    {
        Check("Identify");
        const TulCallerIdentity caller = TulCallerIdentity::GetCurrent();
        return {static_cast<std::uint32_t>(getpid()), caller.uid, caller.gid,
                static_cast<std::uint32_t>(caller.pid)};
    }

protected:
    /// The security stub's check of the caller before operation `method`; none here.
    virtual void Check(const char* /*method*/) {}
};

class EchoServiceSecurityStub : public EchoServiceImpl
{
public:
    EchoServiceSecurityStub(const char* provider, ITulAuthorizator* authorizator)
        : authorizator(provider, serviceName, authorizator)
    {
    }

private:
    void Check(const char* method) override { authorizator.AuthorizeServiceInvocation(method); }
    TulServiceAuthorizator authorizator;
};

// The wire: numbers with their tag, texts of any length as a length and their bytes.
struct Nothing
{
};
inline void Put(TulWriter& w, std::uint32_t value)
{
    w.WriteTag(TulType::UInt32);
    w.WriteDataInternal(&value, sizeof value);
}
inline void Put(TulWriter& w, const String& text)
{
    w.WriteArrayLength(static_cast<std::uint32_t>(text.size()));
    w.WriteDataInternal(text.data(), text.size());
}
inline void Put(TulWriter& w, const Identity& id)
{
    for (std::uint32_t value : {id.serverPid, id.callerUid, id.callerGid, id.callerPid})
    {
        Put(w, value);
    }
}
inline void Put(TulWriter&, Nothing) {}
inline void Get(TulReader& r, std::uint32_t& value)
{
    r.ReadTag(TulType::UInt32);
    r.ReadDataInternal(&value, sizeof value);
}
inline void Get(TulReader& r, String& text)
{
    text.assign(r.ReadArrayLength(), '\0');
    r.ReadDataInternal(text.data(), text.size());
}
inline void Get(TulReader& r, Identity& id)
{
    for (std::uint32_t* value : {&id.serverPid, &id.callerUid, &id.callerGid, &id.callerPid})
    {
        Get(r, *value);
    }
}
inline void Get(TulReader&, Nothing&) {}
template <class T>
T Take(TulReader& r)
{
    T value{};
    Get(r, value);
    return value;
}

class EchoServiceStub : public ITulServiceStub
{
public:
    explicit EchoServiceStub(IEchoService* service) : service(service) {}

    void Invoke(int methodId, TulServerContext& context) override
    {
        RemotingReader& in = context.GetReader();
        auto answer = [&](const auto& result)
        {
            context.GetWriter().WriteConfirmation(false);
            Put(context.GetWriter(), result);
        };
        // Arguments are taken one statement at a time: their order on the wire is fixed.
        switch (methodId)
        {
            case 1:
                return answer(service->Echo(Take<String>(in)));
            case 2:
            {
                const auto a = Take<std::uint32_t>(in);
                return answer(service->Add(a, Take<std::uint32_t>(in)));
            }
            case 3:
            {
                const auto typeName = Take<String>(in);
                return service->Throw(typeName, Take<String>(in)), answer(Nothing{});
            }
            case 4:
                return service->Sleep(Take<std::uint32_t>(in)), answer(Nothing{});
            case 5:
            {
                const auto provider = Take<String>(in);
                return answer(service->CallBack(provider, Take<String>(in)));
            }
            case 6:
                return answer(service->Fill(Take<std::uint32_t>(in)));
            case 7:
                return answer(service->Identify());
            default:
                context.AbortRequest(TulErrors::UnknownMethod, nullptr);
        }
    }

private:
    std::unique_ptr<IEchoService> service;
};

class EchoServiceFactory : public ITulServiceFactory
{
public:
    explicit EchoServiceFactory(bool guarded = false) : guarded(guarded) {}
    bool GetUsesSecurityStub() const override { return guarded; }
    const String& GetServiceProviderName() const override { return providerName; }
    ITulService* CreateServiceImpl(const char* provider, ITulAuthorizator* authorizator) override
    {
        ++made;
        lastAuthorizator = authorizator;
        return guarded ? new EchoServiceSecurityStub(provider, authorizator) : new EchoServiceImpl;
    }
    ITulServiceStub* CreateServiceStub(const char* provider, ITulAuthorizator* authorizator) override
    {
        return new EchoServiceStub(static_cast<IEchoService*>(CreateServiceImpl(provider, authorizator)));
    }

    /// How many service objects it made, and with which authorizator the last one.
    std::atomic<int> made{0};
    std::atomic<ITulAuthorizator*> lastAuthorizator{nullptr};

private:
    bool guarded;
    String providerName;
};

class EchoServiceProxy : public ITulServiceProxy, public IEchoService
{
public:
    EchoServiceProxy(std::uint16_t providerHandle, std::uint16_t serviceHandle, TulClient& client)
        : providerHandle(providerHandle), serviceHandle(serviceHandle), client(client)
    {
    }
    unsigned short GetServiceHandle() const override { return serviceHandle; }
    unsigned short GetProviderHandle() const override { return providerHandle; }
    void RefreshServiceHandle() override
    {
        serviceHandle = client.GetServiceHandle(providerHandle, serviceName);
    }
    TulClient& GetClient() { return client; }

    String Echo(const String& text) override { return Ask<String>(1, text); }
    std::uint32_t Add(std::uint32_t a, std::uint32_t b) override { return Ask<std::uint32_t>(2, a, b); }
    void Throw(const String& typeName, const String& message) override { Ask(3, typeName, message); }
    void Sleep(std::uint32_t milliseconds) override { Ask(4, milliseconds); }
    String CallBack(const String& providerName, const String& text) override
    {
        return Ask<String>(5, providerName, text);
    }
    String Fill(std::uint32_t length) override { return Ask<String>(6, length); }
    Identity Identify() override { return Ask<Identity>(7); }

    /// Method `methodId` with `arguments`, and its result; any id, also one that the stub doesn't know.
    template <class Result = Nothing, class... Arguments>
    Result Ask(std::uint16_t methodId, const Arguments&... arguments)
    {
        Result result{};
        Call(
            methodId, [&](TulWriter& w) { (Put(w, arguments), ...); }, [&](TulReader& r) { Get(r, result); });
        return result;
    }

    /// The call shape of every proxy operation.
    template <class Write, class Read>
    void Call(std::uint16_t methodId, Write write, Read read)
    {
        client.BeginTransaction(*this);
        struct End
        {
            EchoServiceProxy& proxy;
            ~End() { proxy.client.EndTransaction(proxy); }
        } end{*this};
        TulClientContext context(client);
        context.BeginServiceInvocationRequest(providerHandle, serviceHandle, methodId);
        write(context.GetWriter());
        context.EndServiceInvocationRequest();
        context.BeginServiceInvocationResponse(providerHandle, serviceHandle, methodId);
        read(context.GetReader());
        context.EndServiceInvocationResponse();
    }

private:
    std::uint16_t providerHandle;
    std::uint16_t serviceHandle;
    TulClient& client;
};

/// Makes proxies of the echo service, looked up under `name`.
class EchoProxyFactory : public ITulServiceProxyFactory
{
public:
    explicit EchoProxyFactory(const char* name = serviceName) : name(name) {}
    const char* GetServiceName() const override { return name; }
    const char* GetServiceProviderName() const override { return ""; }
    ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                         TulClient& client) override
    {
        return new EchoServiceProxy(providerHandle, serviceHandle, client);
    }

private:
    const char* name;
};

/// The echo service of `providerName`, or null.
inline std::unique_ptr<IEchoService> GetEcho(const String& providerName)
{
    static EchoProxyFactory proxyFactory;
    ITulService* service = ServiceManager::GetService(providerName.c_str(), proxyFactory);
    return std::unique_ptr<IEchoService>(dynamic_cast<IEchoService*>(service));
}

inline String EchoServiceImpl::CallBack(const String& providerName, const String& text)
{
    Check("CallBack");
    const auto other = GetEcho(providerName);
    if (other == nullptr)
    {
        throw Kiv::InvalidOperationException("Cannot reach provider '{0}'", providerName);
    }
    return other->Echo(text);
}
}  // namespace Echo
