// The interfaces' destructors live here, so that their type information is the library's one and a
// dynamic_cast across libraries finds it.

#include <Kiv/System/Tul/ITulAuthorizator.h>
#include <Kiv/System/Tul/ITulSerializable.h>
#include <Kiv/System/Tul/ITulService.h>
#include <Kiv/System/Tul/ITulServiceFactory.h>
#include <Kiv/System/Tul/ITulServiceProxy.h>
#include <Kiv/System/Tul/ITulServiceProxyFactory.h>
#include <Kiv/System/Tul/ITulServiceStub.h>

namespace Kiv::System::Tul
{
ITulSerializable::~ITulSerializable() = default;
ITulService::~ITulService() = default;
ITulServiceStub::~ITulServiceStub() = default;
ITulServiceFactory::~ITulServiceFactory() = default;
const char* ITulServiceFactory::GetOperationName(unsigned short) const
{
    return nullptr;
}
ITulServiceProxy::~ITulServiceProxy() = default;
ITulServiceProxyFactory::~ITulServiceProxyFactory() = default;
ITulAuthorizator::~ITulAuthorizator() = default;
}  // namespace Kiv::System::Tul
