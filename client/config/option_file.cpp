// Reading option files and option strings. Both come from outside and may be anything.
#include "client/config/options.h"

#include "client/base/text.h"

#include "client/blob/files/file_layer.h"

namespace arca::config
{

namespace
{

constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 20;

Error atLine(Error error, const std::string &file, std::size_t line)
{
    error.kind = ErrorKind::badOption;
    return inContext(std::move(error), "option file " + file + ", line " + std::to_string(line));
}

std::string_view unquoted(std::string_view value)
{
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
        return value.substr(1, value.size() - 2);
    return value;
}

/// A value goes into messages, file names and records, which must not hold what cannot be seen.
bool hasControlCharacters(std::string_view text)
{
    for (const char c : text)
        if ((static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7f)
            return true;
    return false;
}

Result<void> parseLine(Options &options, std::string_view line)
{
    line = trimmed(line);
    if (line.empty() || line.front() == '*')
        return {};
    const auto end = line.find_first_of(" \t");
    const std::string_view keyword = line.substr(0, end);
    const std::string_view value =
        end == std::string_view::npos ? std::string_view() : unquoted(trimmed(line.substr(end)));
    if (hasControlCharacters(value))
        return Error{ErrorKind::badOption, "the value of '" + printable(keyword, 40) +
                                               "' has characters that cannot be shown"};
    return setOption(options, keyword, value);
}

} // namespace

Result<Options> parseOptionText(std::string_view text, const std::string &file)
{
    Options options;
    options.file = file;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const auto end = text.find('\n');
        if (auto parsed = parseLine(options, text.substr(0, end)); !parsed)
            return atLine(std::move(parsed).error(), file, number);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    }
    return options;
}

Result<Options> readOptionFile(const std::string &file)
{
    const auto failed = [&](Error error) {
        error.kind = ErrorKind::badOption;
        return inContext(std::move(error), "the option file cannot be used");
    };
    auto opened = blob::systemFiles().open(file);
    if (!opened)
        return failed(std::move(opened).error());
    auto size = (*opened)->size();
    if (!size)
        return failed(std::move(size).error());
    if (*size > kMaxFileBytes)
        return failed({ErrorKind::badOption, file + " has more than 1 MiB"});
    Bytes content(static_cast<std::size_t>(*size));
    auto got = (*opened)->readAt(0, content);
    if (!got)
        return failed(std::move(got).error());
    return parseOptionText(textOf(ByteView(content).first(*got)), file);
}

Result<void> applyOptionString(Options &options, std::string_view text)
{
    const std::string whole = "option string '" + printable(trimmed(text)) + "'";
    const auto bad = [&](Error error) {
        error.kind = ErrorKind::badOption;
        return inContext(std::move(error), whole);
    };
    std::string_view rest = trimmed(text);
    while (!rest.empty()) {
        // To the next '-' that follows a blank, or to the end.
        std::size_t end = 1;
        while (end < rest.size() &&
               !(rest[end] == '-' && (rest[end - 1] == ' ' || rest[end - 1] == '\t')))
            ++end;
        const std::string_view option = trimmed(rest.substr(0, end));
        rest = rest.substr(end);
        const auto equals = option.find('=');
        if (option.front() != '-' || equals == std::string_view::npos)
            return bad({ErrorKind::badOption,
                        "'" + printable(option, 40) + "' is not of the form -option=value"});
        const std::string_view value = unquoted(trimmed(option.substr(equals + 1)));
        if (hasControlCharacters(value))
            return bad({ErrorKind::badOption, "a value has characters that cannot be shown"});
        if (auto set = setOption(options, trimmed(option.substr(1, equals - 1)), value); !set)
            return bad(std::move(set).error());
    }
    return {};
}

} // namespace arca::config
