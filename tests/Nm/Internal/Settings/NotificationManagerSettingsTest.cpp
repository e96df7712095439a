#include <Nm/Internal/Settings/NotificationManagerSettings.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/StringPrinter.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <limits>

using Kiv::System::Nm::Internal::Settings::NotificationManagerSettings;

namespace
{
class NotificationManagerSettingsTest : public ::testing::Test
{
protected:
    /// Writes `body` inside the document element and loads the file; the body starts on line 3.
    NotificationManagerSettings Load(const std::string& body)
    {
        std::ofstream(path) << "<?xml version=\"1.0\"?>\n<NotificationManagerSettingsDocument>\n"
                            << body << "</NotificationManagerSettingsDocument>\n";
        return NotificationManagerSettings::LoadFromFile(path.string());
    }

    /// The message of the XmlException that loading `body` raises.
    std::string Refusal(const std::string& body)
    {
        try
        {
            Load(body);
        }
        catch (const Kiv::XmlException& e)
        {
            return e.GetMessage();
        }
        return "not refused";
    }

    void TearDown() override { std::filesystem::remove(path); }

    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("nm-settings-" + std::to_string(getpid()) + ".xml");
};

TEST_F(NotificationManagerSettingsTest, DefaultsStandUnlessAnElementSaysOtherwiseAndTheLastOneWins)
{
    for (const auto& settings : {NotificationManagerSettings::LoadFromFile(""), Load("")})
    {
        EXPECT_EQ(settings.GetNotificationBrokerQueueLength(), 1024u);
        EXPECT_EQ(settings.GetNonBlockingNotificationSendingProxyQueueLength(), 128u);
    }
    // Elements come in any order, and an unknown one is skipped with what it holds.
    Kiv::System::Commons::Logging::CapturingSink sink;
    const auto full = Load(
        "<Unknown><NotificationBroker queueLength=\"9\"/></Unknown>\n"
        "<NonBlockingNotificationSendingProxy queueLength=\"256\"/>\n"
        "<NotificationBroker queueLength=\"2048\"><Ignored/>text</NotificationBroker>\n"
        "<NotificationBroker queueLength=\"+7\"/>\n");
    EXPECT_EQ(full.GetNotificationBrokerQueueLength(), 7u);
    EXPECT_EQ(full.GetNonBlockingNotificationSendingProxyQueueLength(), 256u);
    const auto records = sink.GetRecords("Kiv.System.Commons.Xml.XmlSerializationContext");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, path.string() + "(3): Unknown XML element 'Unknown' is skipped.");

    // lexical_cast's rule for unsigned numbers: a minus wraps around.
    EXPECT_EQ(Load("<NotificationBroker queueLength=\"-1\"/>").GetNotificationBrokerQueueLength(),
              std::numeric_limits<std::uint32_t>::max());
}

TEST_F(NotificationManagerSettingsTest, BadQueueLengthsAreRefusedWithTheirMessages)
{
    const std::string cast = "Cast of attribute queueLength to unsigned int failed value: ";
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"<NotificationBroker/>",
         "GetAttributeValue failed for mandatory attribute: queueLength elementName: NotificationBroker"},
        {"<NonBlockingNotificationSendingProxy queueLength=\"abc\"/>", cast + "abc"},
        {"<NotificationBroker queueLength=\"4294967296\"/>", cast + "4294967296"},
        {"\n<NotificationBroker queueLength=\"0\"/>",
         path.string() + "(4): The queue length must be positive."},
    };
    for (const auto& [body, message] : rows)
    {
        EXPECT_EQ(Refusal(body), message) << body;
    }
}
}  // namespace
