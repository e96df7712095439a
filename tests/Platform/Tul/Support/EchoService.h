#pragma once

// A small service for the transport's tests: an interface, its description and implementation, and the
// classes that the frame's templates make of them.

#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulAfterResponse.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>
#include <Kiv/System/Tul/TulExceptionRegistry.h>
#include <Kiv/System/Tul/TulServiceBases.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <tuple>

#include <unistd.h>

namespace Echo
{
using namespace Kiv::System::Tul;
using Kiv::String;

constexpr const char* serviceName = "Test.IEchoService";

struct EchoDescription;

/// The methods, by their ids 1 to 7.
class IEchoService : public ITulService
{
public:
    using Description = EchoDescription;

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

struct EchoCodec
{
    template <class T>
    static void Write(TulWriter& w, const T& value)
    {
        Put(w, value);
    }
    template <class T>
    static void Read(TulReader& r, T& value)
    {
        Get(r, value);
    }
};

// clang-format off
#define ECHO_OPERATIONS(Operation)                                 \
    Operation(1, String, Echo, const String&)                      \
    Operation(2, std::uint32_t, Add, std::uint32_t, std::uint32_t) \
    Operation(3, void, Throw, const String&, const String&)        \
    Operation(4, void, Sleep, std::uint32_t)                       \
    Operation(5, String, CallBack, const String&, const String&)   \
    Operation(6, String, Fill, std::uint32_t)                      \
    Operation(7, String, Identify)
// clang-format on

struct EchoDescription
{
    using Interface = IEchoService;
    using Codec = EchoCodec;
    static constexpr const char* serviceName = Echo::serviceName;
    static constexpr const char* providerName = "";
    static constexpr bool guarded = false;
    KIV_TUL_OPERATION_TABLE(ECHO_OPERATIONS)
};

/// The echo service of `providerName`, or null.
inline std::unique_ptr<IEchoService> GetEcho(const String& providerName);

/// Where Sleep announces "sleeping" before it sleeps, when set, so that a test knows the call is there.
inline int sleepNoticeFd = -1;

/// What Echo("after response") leaves for after its response; Echo then answers whether it was taken,
/// and whether a second piece of work for the same call was refused.
inline std::function<void()> afterResponse;

class EchoServiceImpl : public IEchoService
{
public:
    String Echo(const String& text) override
    {
        if (text != "after response")
        {
            return text;
        }
        constexpr AfterResponseWork run = [](void*) noexcept { afterResponse(); };
        const bool taken = DeferUntilResponded(run, nullptr);
        return String::Format("taken {0}, again {1}", taken, DeferUntilResponded(run, nullptr));
    }
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

using EchoServiceStub = TulServiceStubBase<IEchoService>;

class EchoServiceFactory : public TulServiceFactory<EchoServiceImpl, void, EchoServiceStub>
{
public:
    /// How many service objects it made, and with which authorizator the last one.
    std::atomic<int> made{0};
    std::atomic<ITulAuthorizator*> lastAuthorizator{nullptr};

protected:
    EchoServiceImpl* CreateService(const char* providerName, ITulAuthorizator* authorizator) override
    {
        ++made;
        lastAuthorizator = authorizator;
        return TulServiceFactory::CreateService(providerName, authorizator);
    }
};

class EchoServiceProxy : public TulServiceProxyBase<IEchoService>
{
public:
    using TulServiceProxyBase::TulServiceProxyBase;
    TulClient& GetClient() { return client; }

    ECHO_OPERATIONS(KIV_TUL_PROXY_OPERATION)

    /// Method `methodId` with `arguments`, and its result: the call shape of every proxy operation. Any
    /// id, also one that the stub doesn't know.
    template <class Result = Nothing, class... Arguments>
    Result Ask(std::uint16_t methodId, const Arguments&... arguments)
    {
        return Call<Result>(methodId, std::forward_as_tuple(arguments...));
    }
};

/// Makes proxies of the echo service, looked up under the name given.
using EchoProxyFactory = TulServiceProxyFactory<EchoServiceProxy>;

inline std::unique_ptr<IEchoService> GetEcho(const String& providerName)
{
    static EchoProxyFactory proxyFactory;
    ITulService* service = ServiceManager::GetService(providerName.c_str(), proxyFactory);
    return std::unique_ptr<IEchoService>(dynamic_cast<IEchoService*>(service));
}

}  // namespace Echo
