#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

namespace Kiv::System::Tul
{
class ITulAuthorizator;
class ITulService;
class ITulServiceStub;

/// Makes the server side of one service. ServiceManager keeps a reference to it from PublishService on,
/// so it must outlive its publication.
class KIV_API ITulServiceFactory
{
public:
    virtual ~ITulServiceFactory();

    /// Whether CreateServiceImpl makes an object that checks every call with the authorizator.
    virtual bool GetUsesSecurityStub() const = 0;
    virtual const String& GetServiceProviderName() const = 0;
    /// A new service object, owned by the caller. `providerName` is the name it was published under;
    /// `authorizator` may be null, and a service without security stub ignores both.
    virtual ITulService* CreateServiceImpl(const char* providerName, ITulAuthorizator* authorizator) = 0;
    /// A new stub that owns a service object made as by CreateServiceImpl.
    virtual ITulServiceStub* CreateServiceStub(const char* providerName, ITulAuthorizator* authorizator) = 0;
    /// The name of the operation of `methodId`, as an authorizator sees it; null when unknown, which is
    /// all this default knows. The server checks a call against it before it reads the call's arguments.
    virtual const char* GetOperationName(unsigned short methodId) const;

protected:
    ITulServiceFactory() = default;
    ITulServiceFactory(const ITulServiceFactory&) = default;
    ITulServiceFactory& operator=(const ITulServiceFactory&) = default;
};
}  // namespace Kiv::System::Tul
