#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>

#include <grp.h>
#include <pwd.h>

namespace Kiv::System::Tul
{
namespace
{
/// Where a policy file is read, for the messages of its failures.
struct Place
{
    const String& file;
    long line;

    [[noreturn]] void Fail(const String& message) const
    {
        throw XmlException::AtLine(file, static_cast<int>(line), message);
    }
};

std::vector<String> SplitWords(const String& text)
{
    std::istringstream in(text);
    std::vector<String> words;
    for (std::string word; in >> word;)
    {
        words.emplace_back(word);
    }
    return words;
}

bool IsNumber(const String& text)
{
    return !text.empty() &&
           std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

template <class Id, class Entry, class Lookup>
std::vector<Id> ResolveIds(const String& list, const char* kind, Lookup lookup, Id Entry::*field,
                           const Place& place)
{
    std::vector<Id> ids;
    for (const String& word : SplitWords(list))
    {
        if (IsNumber(word))
        {
            ids.push_back(static_cast<Id>(std::stoul(word)));
            continue;
        }
        Entry entry{};
        Entry* found = nullptr;
        char buffer[4096];
        if (lookup(word.c_str(), &entry, buffer, sizeof buffer, &found) != 0 || found == nullptr)
        {
            place.Fail(String::Format("Unknown {0} '{1}'", kind, word));
        }
        ids.push_back(entry.*field);
    }
    return ids;
}

String Text(const xmlChar* text)
{
    return text != nullptr ? String(reinterpret_cast<const char*>(text)) : String();
}

TulPolicyAuthorizator::Grant ReadGrant(xmlDoc* document, xmlNode* element, const Place& place)
{
    TulPolicyAuthorizator::Grant grant;
    bool hasOperations = false;
    for (xmlAttr* attribute = element->properties; attribute != nullptr; attribute = attribute->next)
    {
        const String name = Text(attribute->name);
        const std::unique_ptr<xmlChar, void (*)(void*)> raw(
            xmlNodeListGetString(document, attribute->children, 1), xmlFree);
        const String value = Text(raw.get());
        if (name == "provider")
        {
            grant.provider = value;
        }
        else if (name == "service")
        {
            grant.service = value;
        }
        else if (name == "operations")
        {
            grant.operations = SplitWords(value);
            hasOperations = true;
        }
        else if (name == "users")
        {
            grant.users = ResolveIds<uid_t, passwd>(value, "user", getpwnam_r, &passwd::pw_uid, place);
        }
        else if (name == "groups")
        {
            grant.groups = ResolveIds<gid_t, group>(value, "group", getgrnam_r, &group::gr_gid, place);
        }
        else
        {
            place.Fail(String::Format("Unknown attribute '{0}' of 'Grant'", name));
        }
    }
    if (!hasOperations || grant.operations.empty())
    {
        place.Fail("A 'Grant' needs the attribute 'operations'");
    }
    if (grant.users.empty() && grant.groups.empty())
    {
        place.Fail("A 'Grant' needs the attribute 'users' or 'groups'");
    }
    return grant;
}

struct FirstError
{
    long line = -1;
    String message;
};

/// libxml2's structured error handler; the parser is the context, since its user data is itself.
void KeepFirstError(void* context, xmlErrorPtr error)
{
    auto& first = *static_cast<FirstError*>(static_cast<xmlParserCtxtPtr>(context)->_private);
    if (first.line < 0 && error != nullptr && error->level >= XML_ERR_ERROR)
    {
        first.line = error->line;
        first.message = error->message != nullptr ? error->message : "Malformed XML";
        first.message.erase(first.message.find_last_not_of(" \n") + 1);
    }
}

bool Matches(const String& pattern, const char* value)
{
    return pattern.empty() || pattern == "*" || pattern == (value != nullptr ? value : "");
}
}  // namespace

TulPolicyAuthorizator::TulPolicyAuthorizator(const String& policyFile)
{
    std::ifstream in(policyFile, std::ios::binary);
    if (!in)
    {
        Place{policyFile, 0}.Fail(String::Format("Cannot read the policy file: {0}", std::strerror(errno)));
    }
    const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

    xmlInitParser();
    const std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> parser(xmlNewParserCtxt(),
                                                                            xmlFreeParserCtxt);
    if (parser == nullptr)
    {
        Place{policyFile, 0}.Fail("Cannot make an XML parser");
    }
    // The first error tells what is wrong; libxml2 keeps only the last, often a consequence.
    FirstError first;
    parser->_private = &first;
    parser->sax->serror = KeepFirstError;
    const std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)> document(
        xmlCtxtReadMemory(parser.get(), content.data(), static_cast<int>(content.size()), policyFile.c_str(),
                          nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING),
        xmlFreeDoc);
    if (document == nullptr || first.line >= 0)
    {
        Place{policyFile, std::max(first.line, 0L)}.Fail(first.line >= 0 ? first.message
                                                                         : String("Malformed XML"));
    }
    xmlNode* root = xmlDocGetRootElement(document.get());
    if (root == nullptr || Text(root->name) != "TulPolicy")
    {
        Place{policyFile, root != nullptr ? xmlGetLineNo(root) : 1}.Fail(
            "The document element must be 'TulPolicy'");
    }
    for (xmlNode* child = root->children; child != nullptr; child = child->next)
    {
        if (child->type != XML_ELEMENT_NODE)
        {
            continue;
        }
        const Place place{policyFile, xmlGetLineNo(child)};
        if (Text(child->name) != "Grant")
        {
            place.Fail(String::Format("Unknown element '{0}'", Text(child->name)));
        }
        grants.push_back(ReadGrant(document.get(), child, place));
    }
}

bool TulPolicyAuthorizator::IsAuthorized(const char* providerName, const char* serviceName,
                                         const char* methodName, const TulCallerIdentity& caller)
{
    return std::any_of(
        grants.begin(), grants.end(),
        [&](const Grant& grant)
        {
            const bool operation = std::any_of(grant.operations.begin(), grant.operations.end(),
                                               [&](const String& name) { return Matches(name, methodName); });
            const bool who =
                std::find(grant.users.begin(), grant.users.end(), caller.uid) != grant.users.end() ||
                std::find(grant.groups.begin(), grant.groups.end(), caller.gid) != grant.groups.end();
            return operation && who && Matches(grant.provider, providerName) &&
                   Matches(grant.service, serviceName);
        });
}
}  // namespace Kiv::System::Tul
