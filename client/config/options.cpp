// The table of options and what their values may be.
#include "client/config/options.h"

#include "client/base/text.h"
#include "client/blob/location.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace arca::config
{

namespace
{

Error wrong(std::string text)
{
    return {ErrorKind::badOption, std::move(text)};
}

Result<void> setRepository(Options &options, std::string_view value)
{
    ARCA_CHECK(blob::Location::parse(value));
    options.repository = value;
    return {};
}

Result<void> takeNodeName(std::string &name, std::string_view value)
{
    if (value.size() > kMaxNodeName)
        return wrong("a node name has at most " + std::to_string(kMaxNodeName) + " characters");
    name = value;
    return {};
}

Result<void> setNodeName(Options &options, std::string_view value)
{
    return takeNodeName(options.nodeName, value);
}

Result<void> setAsNodeName(Options &options, std::string_view value)
{
    return takeNodeName(options.asNodeName, value);
}

Result<void> setPasswordAccess(Options &options, std::string_view value)
{
    if (equalIgnoringCase(value, "generate"))
        options.passwordAccess = PasswordAccess::generate;
    else if (equalIgnoringCase(value, "prompt"))
        options.passwordAccess = PasswordAccess::prompt;
    else
        return wrong("'" + printable(value, 40) + "' is neither 'generate' nor 'prompt'");
    return {};
}

struct Keyword {
    std::string_view name;
    Result<void> (*set)(Options &, std::string_view);
};

constexpr Keyword kKeywords[] = {
    {"REPOSITORY", setRepository},
    {"NODENAME", setNodeName},
    {"ASNODE", setAsNodeName},
    {"PASSWORDACCESS", setPasswordAccess},
};

} // namespace

Result<void> setOption(Options &options, std::string_view keyword, std::string_view value)
{
    for (const Keyword &known : kKeywords) {
        if (!equalIgnoringCase(known.name, keyword))
            continue;
        if (value.empty())
            return wrong("the option " + std::string(known.name) + " has no value");
        if (auto set = known.set(options, value); !set)
            return inContext(std::move(set).error(), "option " + std::string(known.name));
        return {};
    }
    return wrong("'" + printable(keyword, 40) + "' is not an option");
}

Result<std::string> nodeNameFor(const Options &options)
{
    if (!options.nodeName.empty())
        return options.nodeName;
    const char *fromEnvironment = std::getenv("HOXO_NODE");
    if (fromEnvironment != nullptr && *fromEnvironment != '\0') {
        const std::string name(fromEnvironment, strnlen(fromEnvironment, kMaxNodeName + 1));
        if (name.size() > kMaxNodeName)
            return Error{ErrorKind::badArgument, "the environment variable HOXO_NODE is longer "
                                                 "than the 64 characters of a node name"};
        return name;
    }
    char host[kMaxNodeName + 1] = "";
    (void)gethostname(host, sizeof host - 1);
    if (host[0] == '\0')
        return wrong("this host has no name; set NODENAME in the option file");
    return std::string(host);
}

} // namespace arca::config
