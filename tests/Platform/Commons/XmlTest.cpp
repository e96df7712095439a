#include <Kiv/Exceptions.h>
#include <Kiv/Logging/CapturingSink.h>
#include <Kiv/Logging/LogManager.h>
#include <Kiv/Xml/XmlConfigDocument.h>

#include "Support/StringPrinter.h"

#include <gtest/gtest.h>

#include <unistd.h>
#include <filesystem>
#include <fstream>
#include <vector>

using namespace Kiv;
using namespace Kiv::System::Commons::Logging;
using namespace Kiv::System::Commons::Xml;

namespace
{
// Reads at most `limit` children, as a settings object does: <Known> is taken (its content left to
// ReadEndElement), any other child goes to the context and is skipped. The rest is the document's to read.
struct Settings : IXmlSerializable
{
    void ReadXml(XmlReader& reader, XmlSerializationContext& context) override
    {
        String name;
        while (seen.size() < limit && reader.TryReadStartElement(name, true))
        {
            seen.push_back(name);
            if (name != "Known")
            {
                context.InvalidXmlElementOccurs(reader, name.c_str());
                reader.SkipElementContent();
            }
            reader.ReadEndElement();
        }
    }
    void WriteXml(XmlWriter&, XmlSerializationContext&) override {}

    std::size_t limit = 100;
    std::vector<String> seen;
};

class XmlTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/kiv-xml-test-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        directory = pattern;
        LogManager::UseNullSink();  // stderr is for libxml2 to leave alone
    }

    void TearDown() override
    {
        std::filesystem::remove_all(directory.c_str());
        LogManager::UseConsoleSink();
    }

    String Write(const char* name, const char* content)
    {
        const String path = directory + "/" + name;
        std::ofstream(path) << content;
        return path;
    }

    // The message of the XmlException that loading `path` into `settings` raises; libxml2 must print nothing.
    String LoadError(const String& path, XmlSerializationContext&& context = XmlSerializationContext())
    {
        MultiXmlConfigDocument document("Doc", settings);
        testing::internal::CaptureStderr();
        String message = "no exception";
        try
        {
            document.Load(path, context);
        }
        catch (const XmlException& e)
        {
            message = e.GetMessage();
        }
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << path;
        return message;
    }

    String directory;
    Settings settings;
};
}  // namespace

TEST_F(XmlTest, UnknownElementsAreSkippedAndReportedOrRefusedByAnotherContext)
{
    const String path = Write("good.xml",
                              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                              "<!-- settings of the test -->\n"
                              "<Doc version=\"3\">\n"
                              "  <Unknown a=\"1\">\n"  // line 4
                              "    <Deeper><Known/></Deeper> text <![CDATA[ <x> ]]>\n"
                              "  </Unknown>\n"
                              "  <Known>content that nobody reads <Child/></Known>\n"
                              "  <Stray/>\n"  // line 8
                              "</Doc>\n");
    CapturingSink sink;
    EXPECT_EQ(LoadError(path), "no exception");
    EXPECT_EQ(settings.seen, (std::vector<String>{"Unknown", "Known", "Stray"}));
    auto warnings = sink.GetRecords("Kiv.System.Commons.Xml.XmlSerializationContext");
    ASSERT_EQ(warnings.size(), 2u);
    EXPECT_EQ(warnings[0].level, 5);
    EXPECT_EQ(warnings[0].text, path + "(4): Unknown XML element 'Unknown' is skipped.");
    EXPECT_EQ(warnings[1].text, path + "(8): Unknown XML element 'Stray' is skipped.");

    struct StrictContext : XmlSerializationContext
    {
        void InvalidXmlElementOccurs(XmlReader& reader, const char* name) override
        {
            throw XmlException::AtLine(reader.GetFileName(), reader.GetLineNumber(),
                                       String::Format("Unknown element '{0}'", name));
        }
    };
    EXPECT_EQ(LoadError(path, StrictContext()), path + "(4): Unknown element 'Unknown'");
}

TEST_F(XmlTest, FileThatCannotBeReadRaisesWithItsNameAndTheReason)
{
    EXPECT_EQ(LoadError(directory + "/missing.xml"),
              "Cannot open XML file '" + directory + "/missing.xml': No such file or directory");
    EXPECT_EQ(LoadError(directory), "Cannot read XML file '" + directory + "': Is a directory");
}

TEST_F(XmlTest, BadDocumentRaisesWithFileAndLine)
{
    const struct
    {
        const char* content;
        const char* message;  // after the file name
        bool exact;           // else the message starts so
    } rows[] = {
        {"<Doc>\n  <Known/>\n  <Known>\n</Doc>\n", "(4): Opening and ending tag mismatch", false},
        {"<Doc/>\n<Doc/>\n", "(2): Extra content at the end of the document", false},
        {"<Doc>\n  <Known/>\n", "(", false},
        {"", "(", false},
        {"<?xml version=\"1.0\"?>\n<Other>\n</Other>\n",
         "(2): Document element 'Other' found where 'Doc' is expected", true},
        {"<doc/>", "(1): Document element 'doc' found where 'Doc' is expected", true},
    };
    for (const auto& row : rows)
    {
        const String path = Write("bad.xml", row.content);
        const String message = LoadError(path);
        const String expected = path + row.message;
        EXPECT_EQ(message.substr(0, row.exact ? String::npos : expected.size()), expected) << row.content;
    }
}

TEST_F(XmlTest, MalformedXmlAfterThePartTheObjectReadIsFound)
{
    // Long enough that libxml2 has not parsed the end when ReadXml returns.
    std::string content = "<Doc>\n  <Known/>\n";
    for (int i = 0; i < 3000; ++i)
    {
        content += "  <Filler index=\"" + std::to_string(i) + "\">some text</Filler>\n";
    }
    content += "  <Bad attribute=unquoted/>\n</Doc>\n";
    const String path = Write("late.xml", content.c_str());
    for (std::size_t limit : {0, 1})
    {
        settings.seen.clear();
        settings.limit = limit;
        const String message = LoadError(path);
        EXPECT_EQ(message.substr(0, path.size() + 8), path + "(3003): ") << message;
        EXPECT_EQ(settings.seen.size(), limit);
    }
}

TEST_F(XmlTest, ReaderWalksNestedElements)
{
    XmlReader reader(Write(
        "nested.xml", "<k:Root xmlns:k=\"urn:kiv\">\n  <A><B x=\"1\"/><C>text</C></A>\n  <D/>\n</k:Root>"));
    // A name opens that element. "/X": no further child (asked twice), ReadEndElement, and X is innermost.
    for (const char* step : {"Root", "A", "B", "/A", "C", "/A", "/Root", "D", "/Root", "/"})
    {
        String name;
        if (step[0] == '/')
        {
            EXPECT_FALSE(reader.TryReadStartElement(name, true)) << step;
            EXPECT_FALSE(reader.TryReadStartElement(name, true)) << step;
            reader.ReadEndElement();
            EXPECT_EQ(reader.GetElementLocalName(), step + 1);
        }
        else
        {
            ASSERT_TRUE(reader.TryReadStartElement(name, true)) << step;
            EXPECT_EQ(name, step);
            EXPECT_EQ(reader.GetElementLocalName(), step);
        }
    }
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
