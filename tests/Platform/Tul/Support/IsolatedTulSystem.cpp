// Every test executable that uses the service layer runs in a system of its own, named after its process,
// so that test executables running side by side never meet at an endpoint. It waits for no provider,
// since none is started for it; a test that starts one configures its own settings.

#include <Kiv/System/Tul/ServiceManager.h>

#include <string>

#include <unistd.h>

namespace
{
const bool isolated = []
{
    Kiv::System::Tul::TulSettings settings;
    settings.systemName = "test-" + std::to_string(getpid());
    settings.connectWait = std::chrono::milliseconds(0);
    Kiv::System::Tul::ServiceManager::Configure(settings);
    return true;
}();
}  // namespace
