#include <Kiv/Exceptions.h>
#include <Kiv/Logging/LoggerBase.h>
#include <Kiv/Xml/XmlReader.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xmlreader.h>
#include <libxml/xmlversion.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

namespace Kiv::System::Commons::Xml
{
namespace
{
#if LIBXML_VERSION >= 21200
using XmlErrorArgument = const xmlError*;
#else
using XmlErrorArgument = xmlErrorPtr;
#endif

Logging::LoggerBase& GetReaderLogger()
{
    static Logging::LoggerBase logger("Kiv.System.Commons.Xml.XmlReader");
    return logger;
}

String TrimEnd(const char* text)
{
    String result(text != nullptr ? text : "");
    while (!result.empty() && (result.back() == '\n' || result.back() == '\r' || result.back() == ' '))
    {
        result.pop_back();
    }
    return result;
}

void InitializeLibXml()
{
    static std::once_flag once;
    std::call_once(once, [] { xmlInitParser(); });
}
}  // namespace

struct XmlReader::Impl
{
    struct OpenElement
    {
        int depth;
        String name;
    };

    String fileName;
    int fd = -1;
    xmlTextReaderPtr reader = nullptr;
    std::vector<OpenElement> open;
    // The document has been read to its end.
    bool atEnd = false;
    // TryReadStartElement stopped on character data that was not passed over yet.
    bool examineCurrent = false;

    // The first error libxml2 reported; reading stops there.
    bool failed = false;
    String errorMessage;
    int errorLine = 0;

    ~Impl()
    {
        if (reader != nullptr)
        {
            xmlFreeTextReader(reader);
        }
        if (fd >= 0)
        {
            ::close(fd);
        }
    }

    static void OnStructuredError(void* context, XmlErrorArgument error)
    {
        auto* self = static_cast<Impl*>(context);
        if (self == nullptr || error == nullptr)
        {
            return;
        }
        if (error->level == XML_ERR_WARNING)
        {
            GetReaderLogger().Log(Logging::LogLevel::Warning, "{0}({1}): {2}", self->fileName, error->line,
                                  TrimEnd(error->message));
            return;
        }
        if (!self->failed)
        {
            self->failed = true;
            self->errorMessage = TrimEnd(error->message);
            self->errorLine = error->line;
        }
    }

    // Reports that don't come as structured errors; kept as the reason if nothing better comes.
    static void OnGenericError(void* context, const char* format, ...)
    {
        auto* self = static_cast<Impl*>(context);
        if (self == nullptr || self->failed || format == nullptr)
        {
            return;
        }
        char text[512];
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text, sizeof(text), format, arguments);
        va_end(arguments);
        if (self->errorMessage.empty())
        {
            self->errorMessage = TrimEnd(text);
        }
    }

    // Routes libxml2's thread-wide error reports to this reader for one call into libxml2, so that
    // nothing reaches stderr, and restores what was there before.
    class ErrorScope
    {
    public:
        explicit ErrorScope(Impl* impl)
            : structured(xmlStructuredError),
              structuredContext(xmlStructuredErrorContext),
              generic(xmlGenericError),
              genericContext(xmlGenericErrorContext)
        {
            xmlSetStructuredErrorFunc(impl, &Impl::OnStructuredError);
            xmlSetGenericErrorFunc(impl, &Impl::OnGenericError);
        }
        ErrorScope(const ErrorScope&) = delete;
        ErrorScope& operator=(const ErrorScope&) = delete;
        ~ErrorScope()
        {
            xmlSetStructuredErrorFunc(structuredContext, structured);
            xmlSetGenericErrorFunc(genericContext, generic);
        }

    private:
        xmlStructuredErrorFunc structured;
        void* structuredContext;
        xmlGenericErrorFunc generic;
        void* genericContext;
    };

    int CurrentLine() const
    {
        if (reader == nullptr)
        {
            return 0;
        }
        xmlNodePtr node = atEnd ? nullptr : xmlTextReaderCurrentNode(reader);
        if (node != nullptr)
        {
            const long line = xmlGetLineNo(node);
            if (line > 0)
            {
                return static_cast<int>(line);
            }
        }
        return xmlTextReaderGetParserLineNumber(reader);
    }

    [[noreturn]] void ThrowParseError() const
    {
        const int line = errorLine > 0 ? errorLine : CurrentLine();
        const String message =
            errorMessage.empty() ? String("The XML document cannot be read") : errorMessage;
        throw XmlException::AtLine(fileName, line, message);
    }

    // Moves to the next node; false at the end of the document. Raises XmlException for any error
    // libxml2 reported meanwhile.
    bool Advance()
    {
        if (atEnd)
        {
            return false;
        }
        int result;
        {
            ErrorScope scope(this);
            result = xmlTextReaderRead(reader);
        }
        if (failed || result < 0)
        {
            ThrowParseError();
        }
        if (result == 0)
        {
            atEnd = true;
            return false;
        }
        return true;
    }

    // Advance() where the document must go on, inside an open element.
    void AdvanceInside()
    {
        if (!Advance())
        {
            throw XmlException::AtLine(fileName, CurrentLine(), "Unexpected end of the XML document");
        }
    }

    int NodeType() const { return atEnd ? XML_READER_TYPE_NONE : xmlTextReaderNodeType(reader); }
    int Depth() const { return xmlTextReaderDepth(reader); }
    bool IsEmptyElement() const { return xmlTextReaderIsEmptyElement(reader) == 1; }

    bool IsStartTagOf(const OpenElement& element) const
    {
        return NodeType() == XML_READER_TYPE_ELEMENT && Depth() == element.depth;
    }

    bool IsEndTagOf(const OpenElement& element) const
    {
        return NodeType() == XML_READER_TYPE_END_ELEMENT && Depth() == element.depth;
    }

    // Moves from anywhere inside `element` (or its start tag) to its end tag; stays on an empty tag.
    void SkipToEndOf(const OpenElement& element)
    {
        if (IsStartTagOf(element))
        {
            if (IsEmptyElement())
            {
                examineCurrent = false;
                return;
            }
            AdvanceInside();
        }
        while (!IsEndTagOf(element))
        {
            AdvanceInside();
        }
        examineCurrent = false;
    }

    const OpenElement& Innermost(const char* operation) const
    {
        if (open.empty())
        {
            throw InvalidOperationException("XmlReader::{0}: no element is open in '{1}'.", operation,
                                            fileName);
        }
        return open.back();
    }
};

XmlReader::XmlReader(const String& fileName) : impl(std::make_unique<Impl>())
{
    InitializeLibXml();
    impl->fileName = fileName;
    impl->fd = ::open(fileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (impl->fd < 0)
    {
        const int error = errno;
        throw XmlException("Cannot open XML file '{0}': {1}", fileName, std::strerror(error));
    }
    struct stat status
    {
    };
    if (::fstat(impl->fd, &status) != 0)
    {
        const int error = errno;
        throw XmlException("Cannot read XML file '{0}': {1}", fileName, std::strerror(error));
    }
    if (S_ISDIR(status.st_mode))
    {
        throw XmlException("Cannot read XML file '{0}': {1}", fileName, std::strerror(EISDIR));
    }
    {
        Impl::ErrorScope scope(impl.get());
        impl->reader =
            xmlReaderForFd(impl->fd, fileName.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_BIG_LINES);
    }
    if (impl->reader == nullptr)
    {
        throw XmlException(
            "Cannot read XML file '{0}': {1}", fileName,
            impl->errorMessage.empty() ? String("libxml2 refused the file") : impl->errorMessage);
    }
    xmlTextReaderSetStructuredErrorHandler(impl->reader, &Impl::OnStructuredError, impl.get());
}

XmlReader::~XmlReader() = default;

bool XmlReader::TryReadStartElement(String& name, bool skipContent)
{
    const int parentDepth = impl->open.empty() ? -1 : impl->open.back().depth;
    if (!impl->examineCurrent)
    {
        if (impl->atEnd)
        {
            return false;
        }
        if (!impl->open.empty() && (impl->IsEndTagOf(impl->open.back()) ||
                                    (impl->IsStartTagOf(impl->open.back()) && impl->IsEmptyElement())))
        {
            return false;
        }
        if (impl->open.empty())
        {
            if (!impl->Advance())
            {
                return false;
            }
        }
        else
        {
            impl->AdvanceInside();
        }
    }
    impl->examineCurrent = false;
    for (;;)
    {
        switch (impl->NodeType())
        {
            case XML_READER_TYPE_ELEMENT:
            {
                const xmlChar* localName = xmlTextReaderConstLocalName(impl->reader);
                name = String(localName != nullptr ? reinterpret_cast<const char*>(localName) : "");
                impl->open.push_back({impl->Depth(), name});
                return true;
            }
            case XML_READER_TYPE_END_ELEMENT:
                if (impl->Depth() <= parentDepth)
                {
                    return false;
                }
                break;
            case XML_READER_TYPE_TEXT:
            case XML_READER_TYPE_CDATA:
            case XML_READER_TYPE_ENTITY_REFERENCE:
                if (!skipContent)
                {
                    impl->examineCurrent = true;
                    return false;
                }
                break;
            default:
                break;
        }
        if (impl->open.empty())
        {
            if (!impl->Advance())
            {
                return false;
            }
        }
        else
        {
            impl->AdvanceInside();
        }
    }
}

void XmlReader::ReadEndElement()
{
    const Impl::OpenElement element = impl->Innermost("ReadEndElement");
    impl->SkipToEndOf(element);
    impl->open.pop_back();
}

void XmlReader::SkipElementContent()
{
    impl->SkipToEndOf(impl->Innermost("SkipElementContent"));
}

void XmlReader::ReadToEnd()
{
    while (!impl->open.empty())
    {
        ReadEndElement();
    }
    impl->examineCurrent = false;
    while (impl->Advance())
    {
    }
}

String XmlReader::GetElementLocalName() const
{
    return impl->open.empty() ? String() : impl->open.back().name;
}

int XmlReader::GetLineNumber() const
{
    return impl->CurrentLine();
}

const String& XmlReader::GetFileName() const noexcept
{
    return impl->fileName;
}

char* XmlReader::GetAttributeValueInternal(const char* name)
{
    if (name == nullptr || impl->NodeType() != XML_READER_TYPE_ELEMENT)
    {
        return nullptr;
    }
    xmlChar* value;
    {
        Impl::ErrorScope scope(impl.get());
        value = xmlTextReaderGetAttribute(impl->reader, reinterpret_cast<const xmlChar*>(name));
    }
    return reinterpret_cast<char*>(value);
}

void XmlReader::FreeInternalAttributeValue(char* value) noexcept
{
    if (value != nullptr)
    {
        xmlFree(value);
    }
}

bool XmlReader::TryGetAttributeValue(const char* name, String& value)
{
    char* raw = GetAttributeValueInternal(name);
    if (raw == nullptr)
    {
        return false;
    }
    struct Release
    {
        XmlReader* reader;
        char* raw;
        ~Release() { reader->FreeInternalAttributeValue(raw); }
    } release{this, raw};
    value = String(raw);
    return true;
}
}  // namespace Kiv::System::Commons::Xml
