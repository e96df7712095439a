#include <Kiv/Exception.h>
#include <Kiv/TypeNames.h>

#include <typeinfo>

namespace Kiv
{
Exception::~Exception() = default;

Exception& Exception::SetInnerException(const Exception& innerException)
{
    inner = std::shared_ptr<const Exception>(innerException.Clone());
    return *this;
}

String Exception::GetTypeName() const
{
    try
    {
        return System::Commons::ReadableTypeName(typeid(*this));
    }
    catch (const Exception&)
    {
        return String(typeid(*this).name());
    }
}

String Exception::Format(int indentLevel, bool withInner) const
{
    const std::size_t indent = indentLevel > 0 ? static_cast<std::size_t>(indentLevel) * 3 : 0;
    String text(indent, ' ');
    text += String::Format("{0} ({1})", message, GetTypeName());
    if (withInner && inner != nullptr)
    {
        text += '\n';
        text += String(indent, '-');
        text += "InnerException:\n";
        text += inner->Format(indentLevel + 1, true);
    }
    return text;
}
}  // namespace Kiv
