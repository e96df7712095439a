#pragma once

// A small service for the transport's tests, with the classes a service brings along: interface,
// implementation, stub, factory, proxy and proxy factory.

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

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <tuple>

#include <unistd.h>

namespace Echo
{
using namespace Kiv::System::Tul;
using Kiv::String;

constexpr const char* serviceName = "Test.IEchoService";

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
    /// "server PID caller UID GID PID": the serving process and the caller of the current call.
    virtual String Identify() = 0;
};

/// The echo service of `providerName`, or null.
inline std::unique_ptr<IEchoService> GetEcho(const String& providerName);

/// Where Sleep announces "sleeping" before it sleeps, when set, so that a test knows the call is there.
inline int sleepNoticeFd = -1;

class EchoServiceImpl : public IEchoService
{
public:
    String Echo(const String& text) override { return text; }
    std::uint32_t Add(std::uint32_t a, std::uint32_t b) override { return a + b; }
    void Throw(const String& typeName, const String& message) override
    {
        TulExceptionRegistry::Create(typeName, message)->Rethrow();
    }
    void Sleep(std::uint32_t milliseconds) override
    {
        if (sleepNoticeFd >= 0)
        {
            [[maybe_unused]] auto written = write(sleepNoticeFd, "sleeping\n", 9);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
    String CallBack(const String& providerName, const String& text) override
    {
        const auto other = GetEcho(providerName);
        if (other == nullptr)
        {
            throw Kiv::InvalidOperationException("Cannot reach provider '{0}'", providerName);
        }
        return other->Echo(text);
    }
    String Fill(std::uint32_t length) override { return String(length, 'x'); }
    String Identify() override
    {
        const TulCallerIdentity caller = TulCallerIdentity::GetCurrent();
        return String::Format("server {0} caller {1} {2} {3}", getpid(), caller.uid, caller.gid, caller.pid);
    }
};

// The wire: numbers with their tag, texts of any length as a length and their bytes; nothing for a void
// result.
using Nothing = std::tuple<>;
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
    bool GetUsesSecurityStub() const override { return false; }
    const String& GetServiceProviderName() const override { return providerName; }
    ITulService* CreateServiceImpl(const char*, ITulAuthorizator* authorizator) override
    {
        ++made;
        lastAuthorizator = authorizator;
        return new EchoServiceImpl;
    }
    ITulServiceStub* CreateServiceStub(const char* provider, ITulAuthorizator* authorizator) override
    {
        return new EchoServiceStub(static_cast<IEchoService*>(CreateServiceImpl(provider, authorizator)));
    }

    /// How many service objects it made, and with which authorizator the last one.
    std::atomic<int> made{0};
    std::atomic<ITulAuthorizator*> lastAuthorizator{nullptr};

private:
    const String providerName;
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
    String Identify() override { return Ask<String>(7); }

    /// Method `methodId` with `arguments`, and its result: the call shape of every proxy operation. Any
    /// id, also one that the stub doesn't know.
    template <class Result = Nothing, class... Arguments>
    Result Ask(std::uint16_t methodId, const Arguments&... arguments)
    {
        client.BeginTransaction(*this);
        const std::unique_ptr<EchoServiceProxy, void (*)(EchoServiceProxy*)> end(
            this, [](EchoServiceProxy* proxy) { proxy->client.EndTransaction(*proxy); });
        TulClientContext context(client);
        context.BeginServiceInvocationRequest(providerHandle, serviceHandle, methodId);
        (Put(context.GetWriter(), arguments), ...);
        context.EndServiceInvocationRequest();
        context.BeginServiceInvocationResponse(providerHandle, serviceHandle, methodId);
        Result result{};
        Get(context.GetReader(), result);
        context.EndServiceInvocationResponse();
        return result;
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

inline std::unique_ptr<IEchoService> GetEcho(const String& providerName)
{
    static EchoProxyFactory proxyFactory;
    ITulService* service = ServiceManager::GetService(providerName.c_str(), proxyFactory);
    return std::unique_ptr<IEchoService>(dynamic_cast<IEchoService*>(service));
}

}  // namespace Echo
