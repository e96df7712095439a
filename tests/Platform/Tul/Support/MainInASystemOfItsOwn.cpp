// The main of every test executable that uses the service layer: each runs in a system of its own, named
// after its process, so that test executables running side by side never meet at an endpoint.

#include <Kiv/System/Tul/ServiceManager.h>
#include <Kiv/System/Tul/TulTesting.h>

#include <gtest/gtest.h>

#include <string>

#include <unistd.h>

namespace
{
/// Gives the executable a transport of its own before its first test: it waits for no provider, since
/// none is started for it; a test that starts one configures its own settings. Stopped after the last.
class SystemOfItsOwn : public ::testing::Environment
{
public:
    void SetUp() override
    {
        Kiv::System::Tul::TulSettings settings;
        settings.systemName = "test-" + std::to_string(getpid());
        settings.connectWait = std::chrono::milliseconds(0);
        Kiv::System::Tul::Testing::UseNewTransport(settings);
    }

    void TearDown() override { Kiv::System::Tul::ServiceManager::Shutdown(); }
};
}  // namespace

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::AddGlobalTestEnvironment(new SystemOfItsOwn);
    return RUN_ALL_TESTS();
}
