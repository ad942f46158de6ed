// Reading and checking message sources.
#include "common/nls/msgc/msgsource.h"

#include "common/nls/nlsinserts.h"
#include "common/string/stwide.h"

#include <fstream>

namespace
{
constexpr unsigned maxNumber = 32767; // the portable limit of message catalogues
constexpr unsigned maxArgument = 32;
constexpr std::size_t maxTextLength = 3500; // in UTF-8; the reader takes 4,096 with the inserts
constexpr char insertMarker = 0x11;

[[noreturn]] void fail(const std::string &path, unsigned line, const std::string &what)
{
    throw SourceError(path + ":" + std::to_string(line) + ": " + what);
}

bool isUtf8Text(std::string_view text)
{
    while (!text.empty()) {
        const bool spelled = text.substr(0, 3) == "\xEF\xBF\xBD";
        const char32_t c = stNextUtf8(text);
        if (c < 0x20 || c == 0x7F || (c == 0xFFFD && !spelled))
            return false;
    }
    return true;
}

unsigned takeNumber(std::string_view &text)
{
    unsigned number = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9' && number < 100000) {
        number = number * 10 + static_cast<unsigned>(text.front() - '0');
        text.remove_prefix(1);
    }
    return number;
}

// Takes "ARGUMENT$CONVERSION" off text; the percent sign was taken before.
void takeInsert(std::string_view &text, MessageText &message)
{
    const unsigned argument = takeNumber(text);
    if (argument < 1 || argument > maxArgument || text.empty() || text.front() != '$')
        throw SourceError("a percent sign begins an insert, as in %1$s; write %% for the sign");
    text.remove_prefix(1);
    const std::size_t end = text.find_first_not_of("-+ #'0123456789.*l");
    const std::string_view rest = text.substr(0, end == std::string_view::npos ? end : end + 1);
    const std::string conversion = "%" + std::string(rest);
    nlsConversion parsed{};
    if (!nlsParseConversion(conversion, parsed))
        throw SourceError("\"" + conversion + "\" is no conversion of this repository");
    const auto [at, added] = message.inserts.emplace(argument, conversion);
    if (!added && at->second != conversion)
        throw SourceError("argument " + std::to_string(argument) + " has two conversions");
    text.remove_prefix(rest.size());
    message.text += insertMarker;
    message.text += static_cast<char>('0' + argument);
}

void addText(std::string_view text, MessageText &message)
{
    if (!isUtf8Text(text))
        throw SourceError("a control character or a byte that is no UTF-8");
    while (!text.empty()) {
        const char c = text.front();
        text.remove_prefix(1);
        if (c == '%' && !text.empty() && text.front() == '%') {
            message.text += '%';
            text.remove_prefix(1);
        } else if (c == '%') {
            takeInsert(text, message);
        } else if (c == '\\') {
            if (text.empty() || (text.front() != 'n' && text.front() != '\\'))
                throw SourceError("a backslash begins \\n or \\\\");
            message.text += text.front() == 'n' ? '\n' : '\\';
            text.remove_prefix(1);
        } else {
            message.text += c;
        }
    }
}

// Reads a line "2503E text" and returns the message that it begins.
MessageText &beginMessage(std::string_view line, unsigned lineNumber, MessageSource &source)
{
    const unsigned number = takeNumber(line);
    if (number < 1 || number > maxNumber || line.size() < 3 || line[1] != ' ')
        throw SourceError("expected NUMBER, severity letter, blank and text");
    const char severity = line.front();
    if (std::string_view("ZTRKIWESL").find(severity) == std::string_view::npos)
        throw SourceError("no severity has the letter " + std::string(1, severity));
    const auto [at, added] = source.messages.try_emplace(number);
    if (!added)
        throw SourceError("message " + std::to_string(number) + " is already in line " +
                          std::to_string(at->second.line));
    at->second.severity = severity;
    at->second.line = lineNumber;
    addText(line.substr(2), at->second);
    return at->second;
}

void readDirective(std::string_view line, MessageSource &source)
{
    const std::size_t blank = line.find(' ');
    const std::string_view name = line.substr(0, blank);
    const std::string_view value =
        blank == std::string_view::npos ? std::string_view() : line.substr(blank + 1);
    if (name == "$prefix" && value.size() == 3)
        source.prefix = value;
    else if (name == "$language" && !value.empty())
        source.language = value;
    else
        throw SourceError("expected $prefix with three letters or $language");
}

void checkMessage(const MessageText &message)
{
    unsigned expected = 0;
    for (const auto &[argument, conversion] : message.inserts)
        if (argument != ++expected)
            throw SourceError("argument " + std::to_string(expected) + " is not shown");
    if (message.text.size() > maxTextLength)
        throw SourceError("the text is too long");
}
} // namespace

MessageSource readMessageSource(const std::string &path)
{
    MessageSource source;
    source.path = path;
    std::ifstream file(path);
    if (!file)
        throw SourceError(path + ": cannot be opened");
    MessageText *current = nullptr;
    unsigned lineNumber = 0;
    for (std::string line; std::getline(file, line);) {
        ++lineNumber;
        try {
            const std::size_t start = line.find_first_not_of(" \t");
            if (start == std::string::npos || line[start] == '#')
                continue;
            if (line.front() == '$') {
                readDirective(line, source);
            } else if (start == 0) {
                current = &beginMessage(line, lineNumber, source);
            } else if (current != nullptr) {
                current->text += ' ';
                addText(std::string_view(line).substr(start), *current);
            } else {
                throw SourceError("a continued line without a message before it");
            }
        } catch (const SourceError &error) {
            fail(path, lineNumber, error.what());
        }
    }
    if (source.prefix.empty() || source.language.empty() || source.messages.empty())
        throw SourceError(path + ": lacks $prefix, $language or messages");
    for (const auto &[number, message] : source.messages) {
        try {
            checkMessage(message);
        } catch (const SourceError &error) {
            fail(path, message.line, error.what());
        }
    }
    return source;
}

void compareWithEnglish(const MessageSource &english, const MessageSource &translation)
{
    if (english.prefix != translation.prefix)
        throw SourceError(translation.path + ": another prefix than " + english.path);
    for (const auto &[number, message] : translation.messages)
        if (english.messages.count(number) == 0)
            fail(translation.path, message.line, "the English source lacks this number");
    for (const auto &[number, original] : english.messages) {
        const auto at = translation.messages.find(number);
        if (at == translation.messages.end())
            throw SourceError(translation.path + ": message " + std::to_string(number) +
                              " is missing");
        if (at->second.severity != original.severity)
            fail(translation.path, at->second.line, "another severity than in English");
        if (at->second.inserts != original.inserts)
            fail(translation.path, at->second.line, "other inserts than in English");
    }
}
