#include <Kiv/Exceptions.h>
#include <Kiv/System/Tul/TulCallerIdentity.h>
#include <Kiv/System/Tul/TulPolicyAuthorizator.h>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

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

/// The largest uid or gid: (uid_t)-1 means "no id" to the kernel.
constexpr unsigned long long maxId = 4294967294ULL;

/// A word that starts with a digit is an id and nothing else: all digits, at most maxId.
bool IsId(const String& word, unsigned long long& id)
{
    if (word.size() > 10 ||
        !std::all_of(word.begin(), word.end(), [](unsigned char c) { return std::isdigit(c); }))
    {
        return false;
    }
    id = std::stoull(word);
    return id <= maxId;
}

template <class Id, class Entry, class Lookup>
std::vector<Id> ResolveIds(const String& list, const char* kind, Lookup lookup, Id Entry::*field,
                           const Place& place)
{
    std::vector<Id> ids;
    for (const String& word : SplitWords(list))
    {
        if (std::isdigit(static_cast<unsigned char>(word[0])))
        {
            unsigned long long id = 0;
            if (!IsId(word, id))
            {
                place.Fail(String::Format("Invalid {0} id '{1}': an id is a number from 0 to {2}", kind, word,
                                          maxId));
            }
            ids.push_back(static_cast<Id>(id));
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

TulPolicyAuthorizator::Grant ReadGrant(xmlDoc* document, xmlNode* element, const Place& place, bool internal,
                                       const std::vector<String>& knownOperations)
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
            for (const String& operation : grant.operations)
            {
                if (operation != "*" && !knownOperations.empty() &&
                    std::find(knownOperations.begin(), knownOperations.end(), operation) ==
                        knownOperations.end())
                {
                    place.Fail(String::Format("Unknown operation '{0}'", operation));
                }
            }
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
            place.Fail(String::Format("Unknown attribute '{0}' of '{1}'", name, Text(element->name)));
        }
    }
    if (internal)
    {
        if (hasOperations)
        {
            place.Fail("An 'InternalGrant' grants all operations and takes no attribute 'operations'");
        }
        grant.operations = {"*"};
    }
    else if (!hasOperations || grant.operations.empty())
    {
        place.Fail("A 'Grant' needs the attribute 'operations'");
    }
    if (grant.users.empty() && grant.groups.empty())
    {
        place.Fail(String::Format("A '{0}' needs the attribute 'users' or 'groups'", Text(element->name)));
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

bool AnyGrants(const std::vector<TulPolicyAuthorizator::Grant>& grants, const char* providerName,
               const char* serviceName, const char* methodName, const TulCallerIdentity& caller)
{
    return std::any_of(grants.begin(), grants.end(),
                       [&](const TulPolicyAuthorizator::Grant& grant)
                       {
                           const bool operation =
                               std::any_of(grant.operations.begin(), grant.operations.end(),
                                           [&](const String& name) { return Matches(name, methodName); });
                           const bool who = std::find(grant.users.begin(), grant.users.end(), caller.uid) !=
                                                grant.users.end() ||
                                            std::any_of(grant.groups.begin(), grant.groups.end(),
                                                        [&](gid_t group) { return caller.IsInGroup(group); });
                           return operation && who && Matches(grant.provider, providerName) &&
                                  Matches(grant.service, serviceName);
                       });
}

/// The whole of a policy file; a clear error, never a stream's exception, for what is no readable
/// regular file.
std::string ReadPolicyFile(const String& policyFile)
{
    const Place place{policyFile, 0};
    // Non-blocking, so that a FIFO put in its place can't hold the host at open.
    const int fd = open(policyFile.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0)
    {
        place.Fail(String::Format("Cannot read the policy file: {0}", std::strerror(errno)));
    }
    struct stat status = {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode))
    {
        close(fd);
        place.Fail("The policy file is not a regular file");
    }
    std::string content;
    char buffer[4096];
    for (;;)
    {
        const ssize_t count = read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR)
        {
            continue;
        }
        if (count < 0)
        {
            const int error = errno;
            close(fd);
            place.Fail(String::Format("Cannot read the policy file: {0}", std::strerror(error)));
        }
        if (count == 0)
        {
            break;
        }
        content.append(buffer, static_cast<std::size_t>(count));
    }
    close(fd);
    return content;
}
}  // namespace

bool TulPolicyAuthorizator::InternalPolicy::IsAuthorized(const char* providerName, const char* serviceName,
                                                         const char* methodName,
                                                         const TulCallerIdentity& caller)
{
    return caller.uid == serverUid || caller.uid == 0 ||
           AnyGrants(grants, providerName, serviceName, methodName, caller);
}

TulPolicyAuthorizator::TulPolicyAuthorizator(const String& policyFile,
                                             const std::vector<String>& knownOperations)
{
    const std::string content = ReadPolicyFile(policyFile);

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
        const String name = Text(child->name);
        if (name != "Grant" && name != "InternalGrant")
        {
            place.Fail(String::Format("Unknown element '{0}'", name));
        }
        const bool internal = name == "InternalGrant";
        (internal ? internalPolicy.grants : grants)
            .push_back(ReadGrant(document.get(), child, place, internal, knownOperations));
    }
}

bool TulPolicyAuthorizator::IsAuthorized(const char* providerName, const char* serviceName,
                                         const char* methodName, const TulCallerIdentity& caller)
{
    return AnyGrants(grants, providerName, serviceName, methodName, caller);
}
}  // namespace Kiv::System::Tul
