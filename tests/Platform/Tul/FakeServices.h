#pragma once

// A small service with the factories a service of the system brings along.

#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>

#include <gtest/gtest.h>

#include <mutex>

namespace Fake
{
using namespace Kiv::System::Tul;

class IEchoService : public ITulService
{
public:
    virtual int Echo(int value) = 0;
};

class EchoServiceImpl : public IEchoService
{
public:
    explicit EchoServiceImpl(int offset) : offset(offset) {}
    int Echo(int value) override { return value + offset; }

private:
    int offset;
};

/// Makes services that add `offset`, and remembers what it was last asked with.
class EchoServiceFactory : public ITulServiceFactory
{
public:
    explicit EchoServiceFactory(int offset) : offset(offset) {}
    bool GetUsesSecurityStub() const override { return false; }
    const Kiv::String& GetServiceProviderName() const override { return providerName; }
    ITulService* CreateServiceImpl(const char* provider, ITulAuthorizator* authorizator) override
    {
        std::lock_guard<std::mutex> lock(mutex);  // called from any thread, as by the platform
        lastProvider = provider;
        lastAuthorizator = authorizator;
        return new EchoServiceImpl(offset);
    }
    ITulServiceStub* CreateServiceStub(const char*, ITulAuthorizator*) override { return nullptr; }

    Kiv::String lastProvider;
    ITulAuthorizator* lastAuthorizator = nullptr;

private:
    Kiv::String providerName = "Kiv";
    int offset;
    std::mutex mutex;
};

class EchoProxyFactory : public ITulServiceProxyFactory
{
public:
    explicit EchoProxyFactory(const char* serviceName = "Test.IEchoService") : serviceName(serviceName) {}
    const char* GetServiceName() const override { return serviceName; }
    const char* GetServiceProviderName() const override { return "Kiv"; }
    ITulServiceProxy* CreateServiceProxy(unsigned short, unsigned short, TulClient&) override
    {
        ADD_FAILURE() << "a service of this process needs no proxy";
        return nullptr;
    }

private:
    const char* serviceName;
};
}  // namespace Fake
