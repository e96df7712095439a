// The settings file under arbitrary contents: the input is written to a file of this run's own and loaded
// as the host loads its settings, through libxml2's reader and the element table of the settings.
//
// Properties: loading returns or raises an exception derived from Kiv::Exception, nothing else; settings
// that load have positive queue lengths.

#include "FuzzCheck.h"

#include <Nm/Internal/Settings/NotificationManagerSettings.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/LogManager.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include <unistd.h>

using Kiv::System::Nm::Internal::Settings::NotificationManagerSettings;

namespace
{
/// The file that every input is written to, removed at the end of the run.
class SettingsFile
{
public:
    SettingsFile()
        : path(std::filesystem::temp_directory_path() /
               ("kiv-fuzz-settings-" + std::to_string(getpid()) + ".xml"))
    {
        // Unknown elements are logged, and most inputs have some.
        Kiv::System::Commons::Logging::LogManager::UseNullSink();
    }
    ~SettingsFile()
    {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }

    std::string Write(const std::uint8_t* data, std::size_t size) const
    {
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        KIV_FUZZ_CHECK(file.good());
        return path.string();
    }

private:
    std::filesystem::path path;
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static SettingsFile file;
    const std::string path = file.Write(data, size);
    KivFuzz::ReturnsOrRaisesKivException(
        [&]
        {
            const auto settings = NotificationManagerSettings::LoadFromFile(path);
            KIV_FUZZ_CHECK(settings.GetNotificationBrokerQueueLength() > 0);
            KIV_FUZZ_CHECK(settings.GetNonBlockingNotificationSendingProxyQueueLength() > 0);
        });
    return 0;
}
