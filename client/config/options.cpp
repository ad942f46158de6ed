// The table of options and what their values may be.
#include "client/config/options.h"

#include "client/base/text.h"
#include "client/blob/directory/location.h"

#include <bit>
#include <charconv>
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

Result<void> takeNumber(std::string_view value, std::size_t least, std::size_t most,
                        std::size_t &into)
{
    const char *const end = value.data() + value.size();
    std::size_t number = 0;
    const auto parsed = std::from_chars(value.data(), end, number);
    if (parsed.ec != std::errc() || parsed.ptr != end || number < least || number > most)
        return wrong("'" + printable(value, 40) + "' is no number from " + std::to_string(least) +
                     " to " + std::to_string(most));
    into = number;
    return {};
}

Result<void> takeSwitch(std::string_view value, bool &into)
{
    if (!equalIgnoringCase(value, "yes") && !equalIgnoringCase(value, "no"))
        return wrong("'" + printable(value, 40) + "' is neither 'yes' nor 'no'");
    into = equalIgnoringCase(value, "yes");
    return {};
}

/// "zstd", "zstd 3"; in an option string, where a blank ends the option, "zstd-3".
Result<void> setCompression(Options &options, std::string_view value)
{
    constexpr std::string_view kZstd = "zstd";
    if (equalIgnoringCase(value, "no")) {
        options.engine.compressionLevel = 0;
        return {};
    }
    if (!equalIgnoringCase(value.substr(0, kZstd.size()), kZstd))
        return wrong("'" + printable(value, 40) + "' is neither 'zstd' nor 'no'");
    std::string_view level = trimmed(value.substr(kZstd.size()));
    if (level.starts_with('-'))
        level = level.substr(1);
    std::size_t number = 1;
    if (!level.empty())
        ARCA_CHECK(takeNumber(level, 1, engine::kMaxCompressionLevel, number));
    options.engine.compressionLevel = static_cast<int>(number);
    return {};
}

Result<void> setDeduplication(Options &options, std::string_view value)
{
    return takeSwitch(value, options.engine.deduplication);
}

Result<void> setEncryption(Options &options, std::string_view value)
{
    if (equalIgnoringCase(value, "AES256"))
        options.engine.cipher = Cipher::aes256;
    else if (equalIgnoringCase(value, "AES128"))
        options.engine.cipher = Cipher::aes128;
    else if (equalIgnoringCase(value, "no"))
        options.engine.cipher = Cipher::none;
    else
        return wrong("'" + printable(value, 40) + "' is none of 'AES256', 'AES128' and 'no'");
    return {};
}

Result<void> setVerify(Options &options, std::string_view value)
{
    return takeSwitch(value, options.engine.verify);
}

Result<void> setThreads(Options &options, std::string_view value)
{
    std::size_t number = 0;
    ARCA_CHECK(takeNumber(value, 1, engine::kMaxThreads, number));
    options.engine.threads = static_cast<unsigned>(number);
    return {};
}

/// In mebibytes.
Result<void> setMemory(Options &options, std::string_view value)
{
    std::size_t number = 0;
    ARCA_CHECK(takeNumber(value, engine::kMinMemory >> 20, engine::kMaxMemory >> 20, number));
    options.engine.memory = number << 20;
    return {};
}

/// In kibibytes.
Result<void> setBlockSize(Options &options, std::string_view value)
{
    std::size_t number = 0;
    ARCA_CHECK(takeNumber(value, engine::kMinBlockSize >> 10, engine::kMaxBlockSize >> 10, number));
    if (!std::has_single_bit(number))
        return wrong("'" + printable(value, 40) + "' is none of 2, 4, 8, 16 and 32");
    options.engine.blockSize = number << 10;
    return {};
}

Result<void> setCache(Options &options, std::string_view value)
{
    if (!value.starts_with('/') && !equalIgnoringCase(value, "no"))
        return wrong("'" + printable(value, 40) + "' is neither an absolute path nor 'no'");
    options.cache = value;
    return {};
}

struct Keyword {
    std::string_view name;
    Result<void> (*set)(Options &, std::string_view);
};

constexpr Keyword kKeywords[] = {
    {"REPOSITORY", setRepository},   {"NODENAME", setNodeName},
    {"ASNODE", setAsNodeName},       {"PASSWORDACCESS", setPasswordAccess},
    {"COMPRESSION", setCompression}, {"DEDUPLICATION", setDeduplication},
    {"ENCRYPTION", setEncryption},   {"VERIFY", setVerify},
    {"THREADS", setThreads},         {"MEMORY", setMemory},
    {"BLOCKSIZE", setBlockSize},     {"CACHE", setCache},
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
