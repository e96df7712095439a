#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/Xml/IXmlSerializable.h>
#include <Kiv/Xml/XmlConfigDocument.h>
#include <Kiv/Xml/XmlReader.h>
#include <Kiv/Xml/XmlSerializationContext.h>
#include <Kiv/Xml/XmlWriter.h>

#include "Support/StringPrinter.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using namespace Kiv;
using namespace Kiv::System::Commons::Logging;
using namespace Kiv::System::Commons::Xml;

namespace
{
// Reads as the notification manager settings do: children with a "queueLength" attribute, unknown ones reported
// to the context and skipped, content of known ones left to ReadEndElement.
class TestSettings : public IXmlSerializable
{
public:
    unsigned brokerQueueLength = 1024;
    unsigned proxyQueueLength = 128;
    std::vector<String> readElements;

    void ReadXml(XmlReader& reader, XmlSerializationContext& context) override
    {
        String name;
        while (reader.TryReadStartElement(name, true))
        {
            if (name == "NotificationBroker")
            {
                brokerQueueLength = ReadQueueLength(reader);
            }
            else if (name == "NonBlockingNotificationSendingProxy")
            {
                proxyQueueLength = ReadQueueLength(reader);
            }
            else
            {
                context.InvalidXmlElementOccurs(reader, name.c_str());
                reader.SkipElementContent();
            }
            readElements.push_back(name);
            reader.ReadEndElement();
        }
    }

    void WriteXml(XmlWriter&, XmlSerializationContext&) override {}

    static unsigned ReadQueueLength(XmlReader& reader)
    {
        char* raw = reader.GetAttributeValueInternal("queueLength");
        if (raw == nullptr)
        {
            throw XmlException("GetAttributeValue failed for mandatory attribute: {0} elementName: {1}",
                               "queueLength", reader.GetElementLocalName());
        }
        const unsigned long value = std::strtoul(raw, nullptr, 10);
        reader.FreeInternalAttributeValue(raw);
        if (value == 0)
        {
            throw XmlException::AtLine(reader.GetFileName(), reader.GetLineNumber(),
                                       "The queue length must be positive.");
        }
        return static_cast<unsigned>(value);
    }
};

// Reads only the first child, or nothing, and leaves the rest to the document.
class PartialReader : public IXmlSerializable
{
public:
    explicit PartialReader(bool readFirstChild) : readFirstChild(readFirstChild) {}
    String firstChild;

    void ReadXml(XmlReader& reader, XmlSerializationContext&) override
    {
        if (readFirstChild && reader.TryReadStartElement(firstChild, true))
        {
            reader.ReadEndElement();
        }
    }
    void WriteXml(XmlWriter&, XmlSerializationContext&) override {}

private:
    bool readFirstChild;
};

class XmlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/kiv-xml-test-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        directory = pattern;
    }

    void TearDown() override { std::filesystem::remove_all(directory.c_str()); }

    String Write(const char* name, const std::string& content)
    {
        const String path = directory + "/" + name;
        std::ofstream(path) << content;
        return path;
    }

    // The message of the XmlException that loading `path` raises.
    static String LoadError(const String& path, IXmlSerializable& object, const char* element = "Doc")
    {
        MultiXmlConfigDocument document(element, object);
        try
        {
            document.Load(path);
        }
        catch (const XmlException& e)
        {
            return e.GetMessage();
        }
        return "no exception";
    }

    static String LoadError(const String& path)
    {
        TestSettings settings;
        return LoadError(path, settings);
    }

    String directory;
};

bool StartsWith(const String& text, const String& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}
}  // namespace

TEST_F(XmlTest, GoodDocumentIsReadWithUnknownElementsSkippedAndReported)
{
    const String path = Write("good.xml",
                              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"    // 1
                              "<!-- settings of the test -->\n"                 // 2
                              "<Doc version=\"3\">\n"                           // 3
                              "  <NotificationBroker queueLength=\"2048\"/>\n"  // 4
                              "  <Unknown a=\"1\">\n"                           // 5
                              "    <Deeper><NotificationBroker queueLength=\"1\"/></Deeper>\n"
                              "    text <![CDATA[ <x> ]]>\n"
                              "  </Unknown>\n"
                              "  <NonBlockingNotificationSendingProxy queueLength=\"256\">\n"  // 9
                              "    content that nobody reads <Child/>\n"
                              "  </NonBlockingNotificationSendingProxy>\n"
                              "  <Empty></Empty>\n"  // 12
                              "</Doc>\n");
    CapturingSink sink;
    TestSettings settings;
    MultiXmlConfigDocument document("Doc", settings);
    document.Load(path);

    EXPECT_EQ(settings.brokerQueueLength, 2048u);
    EXPECT_EQ(settings.proxyQueueLength, 256u);
    EXPECT_EQ(settings.readElements, (std::vector<String>{"NotificationBroker", "Unknown",
                                                          "NonBlockingNotificationSendingProxy", "Empty"}));

    auto warnings = sink.GetRecords("Kiv.System.Commons.Xml.XmlSerializationContext");
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0].level, 5);
    EXPECT_EQ(warnings[0].text, path + "(5): Unknown XML element 'Unknown' is skipped.");
    EXPECT_EQ(warnings[1].text, path + "(12): Unknown XML element 'Empty' is skipped.");

    // The object stays copyable through its interface base.
    TestSettings copy = settings;
    EXPECT_EQ(copy.proxyQueueLength, 256u);
}

TEST_F(XmlTest, EmptyDocumentElementGivesTheDefaults)
{
    for (const char* content : {"<Doc/>", "<Doc></Doc>", "<Doc>\n  <!-- nothing -->\n</Doc>\n"})
    {
        TestSettings settings;
        MultiXmlConfigDocument document("Doc", settings);
        document.Load(Write("empty.xml", content));
        EXPECT_EQ(settings.brokerQueueLength, 1024u) << content;
        EXPECT_EQ(settings.proxyQueueLength, 128u) << content;
        EXPECT_TRUE(settings.readElements.empty()) << content;
    }
}

TEST_F(XmlTest, RepeatedElementLastValueStandsAndOrderDoesNotMatter)
{
    TestSettings settings;
    MultiXmlConfigDocument document("Doc", settings);
    document.Load(Write("twice.xml",
                        "<Doc><NonBlockingNotificationSendingProxy queueLength='5'/>"
                        "<NotificationBroker queueLength='7'/><NotificationBroker queueLength='9'/></Doc>"));
    EXPECT_EQ(settings.brokerQueueLength, 9u);
    EXPECT_EQ(settings.proxyQueueLength, 5u);
}

TEST_F(XmlTest, SeveralFilesLoadInTurnIntoTheSameObject)
{
    TestSettings settings;
    MultiXmlConfigDocument document("Doc", settings);
    document.Load(Write("one.xml",
                        "<Doc><NotificationBroker queueLength='10'/>"
                        "<NonBlockingNotificationSendingProxy queueLength='20'/></Doc>"));
    document.Load(Write("two.xml", "<Doc><NotificationBroker queueLength='30'/></Doc>"));
    EXPECT_EQ(settings.brokerQueueLength, 30u);
    EXPECT_EQ(settings.proxyQueueLength, 20u);
}

TEST_F(XmlTest, ErrorRaisedByTheObjectCarriesFileAndLine)
{
    const String path = Write("zero.xml", "<Doc>\n\n  <NotificationBroker queueLength=\"0\"/>\n</Doc>\n");
    EXPECT_EQ(LoadError(path), path + "(3): The queue length must be positive.");
    EXPECT_EQ(
        LoadError(Write("noattr.xml", "<Doc><NotificationBroker other='1'/></Doc>")),
        "GetAttributeValue failed for mandatory attribute: queueLength elementName: NotificationBroker");
}

TEST_F(XmlTest, MissingFileRaisesWithTheFileName)
{
    const String path = directory + "/missing.xml";
    EXPECT_EQ(LoadError(path), "Cannot open XML file '" + path + "': No such file or directory");
}

TEST_F(XmlTest, DirectoryRaisesWithItsName)
{
    EXPECT_EQ(LoadError(directory), "Cannot read XML file '" + directory + "': Is a directory");
}

TEST_F(XmlTest, UnreadableFileRaisesWithTheFileName)
{
    if (::geteuid() == 0)
    {
        GTEST_SKIP() << "root reads files without read permission";
    }
    const String path = Write("secret.xml", "<Doc/>");
    ::chmod(path.c_str(), 0);
    EXPECT_EQ(LoadError(path), "Cannot open XML file '" + path + "': Permission denied");
}

TEST_F(XmlTest, MalformedXmlRaisesWithFileAndLineAndPrintsNothing)
{
    const String path = Write("broken.xml",
                              "<Doc>\n"
                              "  <NotificationBroker queueLength=\"5\"/>\n"
                              "  <NonBlockingNotificationSendingProxy queueLength=\"6\">\n"
                              "</Doc>\n");
    testing::internal::CaptureStderr();
    const String message = LoadError(path);
    const std::string printed = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(StartsWith(message, path + "(4): ")) << message;
    EXPECT_NE(message.find("Opening and ending tag mismatch"), String::npos) << message;
    EXPECT_EQ(printed, "");
}

TEST_F(XmlTest, MalformedXmlAfterThePartReadIsFound)
{
    // Long enough that libxml2 has not parsed the end when ReadXml returns.
    std::string content = "<Doc>\n  <First/>\n";
    for (int i = 0; i < 3000; ++i)
    {
        content += "  <Filler index=\"" + std::to_string(i) + "\">some text</Filler>\n";
    }
    content += "  <Bad attribute=unquoted/>\n</Doc>\n";
    const int badLine = 3 + 3000;
    const String path = Write("late.xml", content);

    for (bool readFirstChild : {true, false})
    {
        PartialReader reader(readFirstChild);
        testing::internal::CaptureStderr();
        const String message = LoadError(path, reader);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_TRUE(StartsWith(message, path + "(" + std::to_string(badLine) + "): ")) << message;
        EXPECT_EQ(reader.firstChild, readFirstChild ? "First" : "");
    }
}

TEST_F(XmlTest, ContentAfterTheDocumentElementIsAnError)
{
    const String path = Write("extra.xml", "<Doc/>\n<Doc/>\n");
    const String message = LoadError(path);
    EXPECT_TRUE(StartsWith(message, path + "(2): ")) << message;
    EXPECT_NE(message.find("Extra content at the end of the document"), String::npos) << message;
}

TEST_F(XmlTest, EmptyAndTruncatedFilesAreErrors)
{
    const String empty = Write("empty.xml", "");
    EXPECT_TRUE(StartsWith(LoadError(empty), empty + "(")) << LoadError(empty);
    const String truncated = Write("truncated.xml", "<Doc>\n  <NotificationBroker queueLength=\"5\"/>\n");
    const String message = LoadError(truncated);
    EXPECT_TRUE(StartsWith(message, truncated + "(")) << message;
}

TEST_F(XmlTest, WrongDocumentElementRaisesWithFileAndLine)
{
    const String path = Write("wrong.xml", "<?xml version=\"1.0\"?>\n<Other>\n</Other>\n");
    EXPECT_EQ(LoadError(path), path + "(2): Document element 'Other' found where 'Doc' is expected");
    const String lower = Write("lower.xml", "<doc/>");
    EXPECT_EQ(LoadError(lower), lower + "(1): Document element 'doc' found where 'Doc' is expected");
}

TEST_F(XmlTest, ReaderWalksNestedElementsAndReadsAttributes)
{
    const String path = Write("nested.xml",
                              "<k:Root xmlns:k=\"urn:kiv\" name=\"a&amp;b\">\n"
                              "  <A><B x=\"1\"/><C>text</C></A>\n"
                              "  <D/>\n"
                              "</k:Root>\n");
    XmlReader reader(path);
    EXPECT_EQ(reader.GetFileName(), path);
    EXPECT_EQ(reader.GetElementLocalName(), "");
    String name;
    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    EXPECT_EQ(name, "Root");
    String value;
    EXPECT_TRUE(reader.TryGetAttributeValue("name", value));
    EXPECT_EQ(value, "a&b");
    EXPECT_FALSE(reader.TryGetAttributeValue("missing", value));
    EXPECT_EQ(reader.GetAttributeValueInternal("missing"), nullptr);

    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    EXPECT_EQ(name, "A");
    EXPECT_EQ(reader.GetLineNumber(), 2);
    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    EXPECT_EQ(name, "B");
    char* x = reader.GetAttributeValueInternal("x");
    ASSERT_NE(x, nullptr);
    EXPECT_STREQ(x, "1");
    reader.FreeInternalAttributeValue(x);
    EXPECT_FALSE(reader.TryReadStartElement(name, true));  // B is empty
    reader.ReadEndElement();                               // B
    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    EXPECT_EQ(name, "C");
    EXPECT_EQ(reader.GetElementLocalName(), "C");
    EXPECT_FALSE(reader.TryReadStartElement(name, true));  // only text in C
    reader.ReadEndElement();                               // C
    EXPECT_EQ(reader.GetElementLocalName(), "A");
    EXPECT_FALSE(reader.TryReadStartElement(name, true));
    EXPECT_FALSE(reader.TryReadStartElement(name, true));  // asking again changes nothing
    reader.ReadEndElement();                               // A
    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    EXPECT_EQ(name, "D");
    EXPECT_EQ(reader.GetLineNumber(), 3);
    reader.ReadEndElement();  // D
    EXPECT_FALSE(reader.TryReadStartElement(name, true));
    reader.ReadEndElement();  // Root
    EXPECT_EQ(reader.GetElementLocalName(), "");
    EXPECT_FALSE(reader.TryReadStartElement(name, true));
    EXPECT_THROW(reader.ReadEndElement(), InvalidOperationException);
    EXPECT_NO_THROW(reader.ReadToEnd());
}

TEST_F(XmlTest, WithoutSkippingContentTheReaderStopsAtCharacterData)
{
    XmlReader reader(Write("mixed.xml", "<Doc>\n  <!-- c --> <?pi x?> text <A/><![CDATA[z]]><B/></Doc>"));
    String name;
    ASSERT_TRUE(reader.TryReadStartElement(name, false));
    EXPECT_EQ(name, "Doc");
    EXPECT_FALSE(reader.TryReadStartElement(name, false));  // stops at " text "
    EXPECT_FALSE(reader.TryReadStartElement(name, false));  // still there
    ASSERT_TRUE(reader.TryReadStartElement(name, true));    // passes over it
    EXPECT_EQ(name, "A");
    reader.ReadEndElement();
    EXPECT_FALSE(reader.TryReadStartElement(name, false));  // CDATA
    reader.ReadEndElement();                                // Doc, skipping CDATA and B
    EXPECT_NO_THROW(reader.ReadToEnd());
}

TEST_F(XmlTest, SkipElementContentStopsOnTheEndTag)
{
    XmlReader reader(Write("skip.xml", "<Doc><U><V><W/></V>x</U><Next/></Doc>"));
    String name;
    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    EXPECT_EQ(name, "U");
    reader.SkipElementContent();
    EXPECT_FALSE(reader.TryReadStartElement(name, true));  // nothing left in U
    EXPECT_EQ(reader.GetElementLocalName(), "U");
    reader.ReadEndElement();
    ASSERT_TRUE(reader.TryReadStartElement(name, true));
    EXPECT_EQ(name, "Next");
    reader.SkipElementContent();  // empty: nothing to skip
    reader.ReadEndElement();
    reader.ReadToEnd();
}

TEST_F(XmlTest, ContextCanBeReplacedToRefuseUnknownElements)
{
    struct StrictContext : XmlSerializationContext
    {
        void InvalidXmlElementOccurs(XmlReader& reader, const char* name) override
        {
            throw XmlException::AtLine(reader.GetFileName(), reader.GetLineNumber(),
                                       String::Format("Unknown element '{0}'", name));
        }
    };
    const String path = Write("strict.xml", "<Doc>\n<Stranger/>\n</Doc>");
    TestSettings settings;
    MultiXmlConfigDocument document("Doc", settings);
    StrictContext context;
    try
    {
        document.Load(path, context);
        FAIL() << "no exception";
    }
    catch (const XmlException& e)
    {
        EXPECT_EQ(e.GetMessage(), path + "(2): Unknown element 'Stranger'");
    }
}
