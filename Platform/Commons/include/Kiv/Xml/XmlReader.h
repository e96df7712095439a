#pragma once

#include <Kiv/BasicString.h>
#include <Kiv/Export.h>

#include <memory>

namespace Kiv::System::Commons::Xml
{
/// A forward-only reader of one XML file over libxml2's streaming reader, made for settings files.
///
/// The reader keeps a stack of open elements: TryReadStartElement opens the next child of the innermost
/// open element and ReadEndElement closes the innermost one. Reading a document therefore goes:
///
///     String name;
///     reader.TryReadStartElement(name, true);        // the document element
///     while (reader.TryReadStartElement(name, true)) // its children, one by one
///     {
///         ... attributes of the child ...
///         reader.ReadEndElement();                   // the child, with any content not read
///     }
///     reader.ReadEndElement();                       // the document element
///     reader.ReadToEnd();
///
/// Errors: a file that cannot be opened or read, and malformed XML, raise Kiv::XmlException whose
/// message names the file and, for XML errors, the line, as "{file}({line}): {message}". libxml2
/// reports errors as it parses, which may be ahead of the node the reader stands on; ReadToEnd reads
/// the rest of the file so that no error goes unseen. libxml2 prints nothing: its reports are taken by
/// the reader. Misuse (ReadEndElement with no open element) raises InvalidOperationException.
///
/// No DTD is loaded, no network is used, and entities other than the predefined ones are not expanded.
/// One reader is used by one thread at a time.
class KIV_API XmlReader
{
public:
    /// Opens `fileName` as given (relative paths from the working directory). Raises XmlException when
    /// it cannot be opened or is a directory.
    explicit XmlReader(const String& fileName);
    XmlReader(const XmlReader&) = delete;
    XmlReader& operator=(const XmlReader&) = delete;
    ~XmlReader();

    /// Moves to the next child element of the innermost open element (or to the document element when
    /// none is open) and opens it: true, with `name` set to its local name and the reader on its start
    /// tag, so that its attributes can be read. False when the open element has no further child: the
    /// reader then stands on its end tag (or its empty tag), which ReadEndElement consumes.
    ///
    /// `skipContent`: true passes over all nodes that are not elements (character data, CDATA,
    /// comments, processing instructions, whitespace). False passes over whitespace, comments and
    /// processing instructions only, and returns false at character data or CDATA, leaving the reader
    /// there (ReadEndElement then skips it with the rest of the element).
    bool TryReadStartElement(String& name, bool skipContent);

    /// Closes the innermost open element: skips whatever of its content was not read, children
    /// included, and consumes its end tag. Works on an empty element (`<X/>` or `<X></X>`) as well.
    void ReadEndElement();

    /// Skips the content of the innermost open element, children included, and stops on its end tag
    /// without closing the element; ReadEndElement follows.
    void SkipElementContent();

    /// Reads the rest of the file: closes every open element and reads to the end of the document,
    /// raising XmlException for any error in what is left.
    void ReadToEnd();

    /// The local name of the innermost open element; empty when none is open.
    String GetElementLocalName() const;
    /// The line of the node the reader stands on. For an element, libxml2 records the line where its
    /// start tag ends (the same line for a tag on one line); an end tag gives its element's line.
    int GetLineNumber() const;
    /// The file name as given to the constructor.
    const String& GetFileName() const noexcept;

    /// The value of attribute `name` of the element whose start tag the reader stands on, or null when
    /// it has no such attribute (or the reader is not on a start tag). The caller owns the text until
    /// it gives it back with FreeInternalAttributeValue.
    char* GetAttributeValueInternal(const char* name);
    /// Gives back a value of GetAttributeValueInternal; null is ignored.
    void FreeInternalAttributeValue(char* value) noexcept;
    /// GetAttributeValueInternal into `value`; false (and `value` untouched) when the attribute is absent.
    bool TryGetAttributeValue(const char* name, String& value);

    struct Impl;

private:
    std::unique_ptr<Impl> impl;
};
}  // namespace Kiv::System::Commons::Xml
