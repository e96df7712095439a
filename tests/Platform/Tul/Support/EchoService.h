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

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
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

class IEchoService : public ITulService
{
public:
    virtual String Echo(const String& text) = 0;                                  // 1
    virtual std::uint32_t Add(std::uint32_t a, std::uint32_t b) = 0;              // 2
    virtual void Throw(const String& typeName, const String& message) = 0;        // 3
    virtual void Sleep(std::uint32_t milliseconds) = 0;                           // 4
    virtual String CallBack(const String& providerName, const String& text) = 0;  // 5
    virtual String Fill(std::uint32_t length) = 0;                                // 6
    virtual Identity Identify() = 0;                                              // 7
};

/// Where Sleep announces "sleeping" before it sleeps, when set, so that a test knows the call is there.
inline int sleepNoticeFd = -1;

class EchoProxyFactory;

class EchoServiceImpl : public IEchoService
{
public:
    String Echo(const String& text) override { return text; }
    std::uint32_t Add(std::uint32_t a, std::uint32_t b) override { return a + b; }
    void Throw(const String& typeName, const String& message) override
    {
        if (typeName == "std::runtime_error")
        {
            throw std::runtime_error(message);
        }
        if (typeName == "int")
        {
            throw 42;
        }
        if (typeName == "nested")
        {
            Kiv::InvalidOperationException outer("outer");
            outer.SetInnerException(Kiv::ArgumentException(Kiv::Exception::Verbatim{}, message));
            throw outer;
        }
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
    String CallBack(const String& providerName, const String& text) override;
    String Fill(std::uint32_t length) override { return String(length, 'x'); }
    Identity Identify() override
    {
        const TulCallerIdentity caller = TulCallerIdentity::GetCurrent();
        return {static_cast<std::uint32_t>(getpid()), caller.uid, caller.gid,
                static_cast<std::uint32_t>(caller.pid)};
    }
};

class EchoServiceSecurityStub : public EchoServiceImpl
{
public:
    EchoServiceSecurityStub(const char* provider, ITulAuthorizator* authorizator)
        : authorizator(provider, serviceName, authorizator)
    {
    }
    String Echo(const String& t) override { return Check("Echo"), EchoServiceImpl::Echo(t); }
    std::uint32_t Add(std::uint32_t a, std::uint32_t b) override
    {
        return Check("Add"), EchoServiceImpl::Add(a, b);
    }
    void Throw(const String& t, const String& m) override { Check("Throw"), EchoServiceImpl::Throw(t, m); }
    void Sleep(std::uint32_t ms) override { Check("Sleep"), EchoServiceImpl::Sleep(ms); }
    String CallBack(const String& p, const String& t) override
    {
        return Check("CallBack"), EchoServiceImpl::CallBack(p, t);
    }
    String Fill(std::uint32_t n) override { return Check("Fill"), EchoServiceImpl::Fill(n); }
    Identity Identify() override { return Check("Identify"), EchoServiceImpl::Identify(); }

private:
    int Check(const char* method) { return authorizator.AuthorizeServiceInvocation(method), 0; }
    TulServiceAuthorizator authorizator;
};

// The wire: numbers with their tag, texts of any length as a length and their bytes.
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
inline std::uint32_t GetNumber(TulReader& r)
{
    std::uint32_t value = 0;
    r.ReadTag(TulType::UInt32);
    r.ReadDataInternal(&value, sizeof value);
    return value;
}
inline String GetText(TulReader& r)
{
    String text(r.ReadArrayLength(), '\0');
    r.ReadDataInternal(text.data(), text.size());
    return text;
}

class EchoServiceStub : public ITulServiceStub
{
public:
    explicit EchoServiceStub(IEchoService* service) : service(service) {}

    void Invoke(int methodId, TulServerContext& context) override
    {
        RemotingReader& in = context.GetReader();
        RemotingWriter& out = context.GetWriter();
        auto confirm = [&out] { out.WriteConfirmation(false); };
        switch (methodId)
        {
            case 1:
            {
                const String result = service->Echo(GetText(in));
                return confirm(), Put(out, result);
            }
            case 2:
            {
                const std::uint32_t a = GetNumber(in);
                const std::uint32_t result = service->Add(a, GetNumber(in));
                return confirm(), Put(out, result);
            }
            case 3:
            {
                const String typeName = GetText(in);
                return service->Throw(typeName, GetText(in)), confirm();
            }
            case 4:
                return service->Sleep(GetNumber(in)), confirm();
            case 5:
            {
                const String provider = GetText(in);
                const String result = service->CallBack(provider, GetText(in));
                return confirm(), Put(out, result);
            }
            case 6:
            {
                const String result = service->Fill(GetNumber(in));
                return confirm(), Put(out, result);
            }
            case 7:
            {
                const Identity id = service->Identify();
                confirm();
                for (std::uint32_t value : {id.serverPid, id.callerUid, id.callerGid, id.callerPid})
                {
                    Put(out, value);
                }
                return;
            }
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
        return Make(provider, authorizator);
    }
    ITulServiceStub* CreateServiceStub(const char* provider, ITulAuthorizator* authorizator) override
    {
        return new EchoServiceStub(Make(provider, authorizator));
    }

private:
    IEchoService* Make(const char* provider, ITulAuthorizator* authorizator)
    {
        return guarded ? new EchoServiceSecurityStub(provider, authorizator) : new EchoServiceImpl;
    }

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

    String Echo(const String& text) override
    {
        String result;
        Call(
            1, [&](TulWriter& w) { Put(w, text); }, [&](TulReader& r) { result = GetText(r); });
        return result;
    }
    std::uint32_t Add(std::uint32_t a, std::uint32_t b) override
    {
        std::uint32_t result = 0;
        Call(
            2, [&](TulWriter& w) { Put(w, a), Put(w, b); }, [&](TulReader& r) { result = GetNumber(r); });
        return result;
    }
    void Throw(const String& typeName, const String& message) override
    {
        Call(
            3, [&](TulWriter& w) { Put(w, typeName), Put(w, message); }, [](TulReader&) {});
    }
    void Sleep(std::uint32_t milliseconds) override
    {
        Call(
            4, [&](TulWriter& w) { Put(w, milliseconds); }, [](TulReader&) {});
    }
    String CallBack(const String& providerName, const String& text) override
    {
        String result;
        Call(
            5, [&](TulWriter& w) { Put(w, providerName), Put(w, text); },
            [&](TulReader& r) { result = GetText(r); });
        return result;
    }
    String Fill(std::uint32_t length) override
    {
        String result;
        Call(
            6, [&](TulWriter& w) { Put(w, length); }, [&](TulReader& r) { result = GetText(r); });
        return result;
    }
    Identity Identify() override
    {
        Identity id{};
        Call(
            7, [](TulWriter&) {},
            [&](TulReader& r) {
                id = {GetNumber(r), GetNumber(r), GetNumber(r), GetNumber(r)};
            });
        return id;
    }
    /// A method id that the stub doesn't know.
    void CallUnknown(std::uint16_t methodId)
    {
        Call(
            methodId, [](TulWriter&) {}, [](TulReader&) {});
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

class EchoProxyFactory : public ITulServiceProxyFactory
{
public:
    const char* GetServiceName() const override { return serviceName; }
    const char* GetServiceProviderName() const override { return ""; }
    ITulServiceProxy* CreateServiceProxy(unsigned short providerHandle, unsigned short serviceHandle,
                                         TulClient& client) override
    {
        return new EchoServiceProxy(providerHandle, serviceHandle, client);
    }
    static EchoProxyFactory& GetInstance()
    {
        static EchoProxyFactory instance;
        return instance;
    }
};

/// The echo service of `providerName`, or null.
inline std::unique_ptr<IEchoService> GetEcho(const String& providerName)
{
    ITulService* service = ServiceManager::GetService(providerName.c_str(), EchoProxyFactory::GetInstance());
    return std::unique_ptr<IEchoService>(dynamic_cast<IEchoService*>(service));
}

inline String EchoServiceImpl::CallBack(const String& providerName, const String& text)
{
    const auto other = GetEcho(providerName);
    if (other == nullptr)
    {
        throw Kiv::InvalidOperationException("Cannot reach provider '{0}'", providerName);
    }
    return other->Echo(text);
}
}  // namespace Echo
