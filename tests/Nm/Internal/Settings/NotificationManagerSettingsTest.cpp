#include <Nm/Internal/Settings/NotificationManagerSettings.h>

#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>

#include <Support/StringPrinter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <limits>

using Kiv::XmlException;
using Kiv::System::Commons::Logging::CapturingSink;
using Kiv::System::Nm::Internal::Settings::NotificationManagerSettings;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;

namespace
{
class NotificationManagerSettingsTest : public ::testing::Test
{
protected:
    /// Writes `body` inside the document element (or `document` whole) and loads it.
    NotificationManagerSettings Load(const std::string& body)
    {
        return LoadDocument("<NotificationManagerSettingsDocument>\n" + body +
                            "</NotificationManagerSettingsDocument>\n");
    }

    NotificationManagerSettings LoadDocument(const std::string& document)
    {
        std::ofstream(path) << "<?xml version=\"1.0\"?>\n" << document;
        return NotificationManagerSettings::LoadFromFile(path.string());
    }

    void TearDown() override { std::filesystem::remove(path); }

    std::filesystem::path path =
        std::filesystem::temp_directory_path() / ("nm-settings-" + std::to_string(getpid()) + ".xml");
};

TEST_F(NotificationManagerSettingsTest, DefaultsComeFromAnEmptyPathOrAnEmptyDocument)
{
    const auto none = NotificationManagerSettings::LoadFromFile("");
    EXPECT_EQ(none.GetNotificationBrokerQueueLength(), 1024u);
    EXPECT_EQ(none.GetNonBlockingNotificationSendingProxyQueueLength(), 128u);

    const auto empty = LoadDocument("<NotificationManagerSettingsDocument/>");
    EXPECT_EQ(empty.GetNotificationBrokerQueueLength(), 1024u);
    EXPECT_EQ(empty.GetNonBlockingNotificationSendingProxyQueueLength(), 128u);
}

TEST_F(NotificationManagerSettingsTest, ElementsAreReadInAnyOrderAndTheLastOccurrenceStands)
{
    const auto full = Load(
        "<NonBlockingNotificationSendingProxy queueLength=\"256\"/>\n"
        "<NotificationBroker queueLength=\"2048\"><Ignored/>text</NotificationBroker>\n");
    EXPECT_EQ(full.GetNotificationBrokerQueueLength(), 2048u);
    EXPECT_EQ(full.GetNonBlockingNotificationSendingProxyQueueLength(), 256u);

    const auto twice =
        Load("<NotificationBroker queueLength=\"5\"/><NotificationBroker queueLength=\"+7\"/>");
    EXPECT_EQ(twice.GetNotificationBrokerQueueLength(), 7u);
    EXPECT_EQ(twice.GetNonBlockingNotificationSendingProxyQueueLength(), 128u);

    // lexical_cast's rule for unsigned numbers: a minus wraps around.
    const auto wrapped = Load("<NotificationBroker queueLength=\"-1\"/>");
    EXPECT_EQ(wrapped.GetNotificationBrokerQueueLength(), std::numeric_limits<std::uint32_t>::max());
}

TEST_F(NotificationManagerSettingsTest, AnUnknownElementIsLoggedAndSkippedWithItsChildren)
{
    CapturingSink sink;
    const auto settings = Load(
        "<Unknown><NotificationBroker queueLength=\"9\"/></Unknown>\n"
        "<NotificationBroker queueLength=\"3\"/>\n");
    EXPECT_EQ(settings.GetNotificationBrokerQueueLength(), 3u);
    const auto records = sink.GetRecords("Kiv.System.Commons.Xml.XmlSerializationContext");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, path.string() + "(3): Unknown XML element 'Unknown' is skipped.");
}

TEST_F(NotificationManagerSettingsTest, BadQueueLengthsAreRefusedWithTheirMessages)
{
    EXPECT_THAT([&] { Load("<NotificationBroker/>"); },
                ThrowsMessage<XmlException>("GetAttributeValue failed for mandatory attribute: queueLength "
                                            "elementName: NotificationBroker"));
    EXPECT_THAT(
        [&] { Load("<NonBlockingNotificationSendingProxy queueLength=\"abc\"/>"); },
        ThrowsMessage<XmlException>("Cast of attribute queueLength to unsigned int failed value: abc"));
    EXPECT_THAT([&] { Load("<NotificationBroker queueLength=\"\"/>"); },
                ThrowsMessage<XmlException>("Cast of attribute queueLength to unsigned int failed value: "));
    EXPECT_THAT([&] { Load("<NotificationBroker queueLength=\"4294967296\"/>"); },
                ThrowsMessage<XmlException>(HasSubstr("failed value: 4294967296")));
    EXPECT_THAT([&] { Load("\n<NotificationBroker queueLength=\"0\"/>"); },
                ThrowsMessage<XmlException>(path.string() + "(4): The queue length must be positive."));
}

TEST_F(NotificationManagerSettingsTest, FileErrorsNameTheFile)
{
    EXPECT_THAT([&] { LoadDocument("<OtherDocument/>"); },
                ThrowsMessage<XmlException>(HasSubstr("Document element 'OtherDocument' found where "
                                                      "'NotificationManagerSettingsDocument' is expected")));
    EXPECT_THAT([&] { Load("<NotificationBroker queueLength=\"1\">"); },
                ThrowsMessage<XmlException>(HasSubstr(path.string() + "(")));
    EXPECT_THAT([] { NotificationManagerSettings::LoadFromFile("/nonexistent/settings.xml"); },
                ThrowsMessage<XmlException>(HasSubstr("/nonexistent/settings.xml")));
}
}  // namespace
