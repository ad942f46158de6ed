// Placing arguments into a message's text.
//
// The stored form, after pseudo-NULs became NULs:
//
//   text  0x11 '0'+argument  text ...  NUL  '0'+count
//   and count times:  '0'+argument  kind  printf-style format  NUL
//
// The file is on the host's disk and may hold anything. The argument list is therefore read by the
// types compiled in, before the stored form is used; the stored form only chooses how an argument
// that was read is shown.
#include "common/nls/nlsinserts.h"

#include "common/cu/cutime.h"
#include "common/string/ststring.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace
{
constexpr std::size_t maxArguments = 32;
constexpr char marker = 0x11;
constexpr std::string_view unknown = "?????";
constexpr int maxField = 999;

struct Argument {
    nlsConversion type;
    int width; // of the asterisks; -1 without
    int precision;
    union {
        long long number;
        double real;
        const char *text;
        const void *pointer;
    } value;
};

struct Arguments {
    std::array<Argument, maxArguments> list;
    std::size_t count;
};

class Output
{
public:
    Output(char *buffer, std::size_t bufferSize) noexcept : out(buffer), size(bufferSize) {}

    void put(std::string_view text) noexcept { used += text.copy(out + used, size - 1 - used); }
    char *room() noexcept { return out + used; }
    std::size_t left() const noexcept { return size - used; }
    void advance(int printed) noexcept
    {
        if (printed > 0)
            used += std::min(static_cast<std::size_t>(printed), size - 1 - used);
    }
    std::size_t finish() noexcept
    {
        out[used] = '\0';
        return used;
    }

private:
    char *out;
    std::size_t size;
    std::size_t used = 0;
};

bool takeOne(std::string_view &text, char c) noexcept
{
    const bool there = !text.empty() && text.front() == c;
    if (there)
        text.remove_prefix(1);
    return there;
}

// Takes a number, an asterisk or nothing off text; false when the number is too large.
bool takeField(std::string_view &text, int &number, bool &star) noexcept
{
    star = takeOne(text, '*');
    if (star)
        return true;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        number = std::max(number, 0) * 10 + (text.front() - '0');
        if (number > maxField)
            return false;
        text.remove_prefix(1);
    }
    return true;
}

void readArguments(Arguments &read, const char *types, va_list arguments) noexcept
{
    read.count = 0;
    std::string_view rest = types == nullptr ? "" : types;
    while (!rest.empty() && read.count < maxArguments) {
        const std::size_t length = rest.find(',');
        Argument &argument = read.list[read.count];
        if (!nlsParseConversion(rest.substr(0, length), argument.type))
            return; // without its type the place of every later argument is unknown
        rest.remove_prefix(length == std::string_view::npos ? rest.size() : length + 1);
        argument.width = argument.type.widthStar ? va_arg(arguments, int) : -1;
        argument.precision = argument.type.precisionStar ? va_arg(arguments, int) : -1;
        switch (nlsKindOf(argument.type)) {
        case 's':
            argument.value.text = va_arg(arguments, const char *);
            break;
        case 'p':
            argument.value.pointer = va_arg(arguments, const void *);
            break;
        case 'f':
            argument.value.real = va_arg(arguments, double);
            break;
        default:
            if (argument.type.longs == 2)
                argument.value.number = va_arg(arguments, long long);
            else if (argument.type.longs == 1)
                argument.value.number = va_arg(arguments, long);
            else
                argument.value.number = va_arg(arguments, int);
        }
        ++read.count;
    }
}

// Builds the conversion for snprintf: width and precision always as asterisks, every integer as a
// long long.
void buildFormat(char (&format)[32], const nlsConversion &conversion, const char *longs) noexcept
{
    stCopy(format, "%");
    stAppend(format, conversion.flags);
    stAppend(format, "*.*");
    stAppend(format, longs);
    stAppend(format, {&conversion.letter, 1});
}

int fieldOf(bool star, int taken, int written) noexcept
{
    return std::clamp(star ? taken : written, -maxField, maxField);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
void printArgument(Output &out, const Argument &argument, const nlsConversion &as,
                   unsigned numberFormat) noexcept
{
    // A negative precision counts as none, and so does a width of 0.
    const int width =
        std::max(fieldOf(as.widthStar, argument.width, as.width), as.widthStar ? -maxField : 0);
    const int precision = fieldOf(as.precisionStar, argument.precision, as.precision);
    char format[32];
    switch (nlsKindOf(as)) {
    case 's':
        buildFormat(format, as, "");
        out.advance(std::snprintf(out.room(), out.left(), format, width, precision,
                                  argument.value.text == nullptr ? "(null)" : argument.value.text));
        break;
    case 'p':
        out.advance(std::snprintf(out.room(), out.left(), "%*p", width, argument.value.pointer));
        break;
    case 'f':
        buildFormat(format, as, "");
        out.advance(
            std::snprintf(out.room(), out.left(), format, width, precision, argument.value.real));
        break;
    case 'c': {
        const char c = static_cast<char>(argument.value.number);
        out.put({&c, c == '\0' ? 0U : 1U});
        break;
    }
    default: {
        long long number = argument.value.number;
        // A negative int that the message shows as unsigned must keep its 32 bits.
        if (as.letter != 'd' && as.letter != 'i' && as.longs == 0)
            number = static_cast<long long>(static_cast<unsigned>(number));
        if (as.grouped) {
            char digits[96];
            if (as.letter == 'u')
                cuFormatCount(digits, sizeof digits, static_cast<std::uint64_t>(number),
                              numberFormat);
            else
                cuFormatNumber(digits, sizeof digits, number, numberFormat);
            const bool left = std::strchr(as.flags, '-') != nullptr;
            out.advance(
                std::snprintf(out.room(), out.left(), "%*s", left ? -width : width, digits));
            break;
        }
        buildFormat(format, as, "ll");
        out.advance(std::snprintf(out.room(), out.left(), format, width, precision, number));
    }
    }
}
#pragma GCC diagnostic pop

// Finds the kind and format that the insert table gives for an argument; false when it gives none.
bool findInsert(std::string_view table, std::size_t number, char &kind,
                std::string_view &format) noexcept
{
    if (table.empty())
        return false;
    auto inserts = static_cast<unsigned>(static_cast<unsigned char>(table.front())) - '0';
    table.remove_prefix(1);
    for (; inserts > 0 && inserts <= maxArguments && table.size() > 2; --inserts) {
        const std::string_view entry = table.substr(0, table.find('\0', 2));
        if (static_cast<unsigned char>(entry[0]) == '0' + number) {
            kind = entry[1];
            format = entry.substr(2);
            return true;
        }
        table.remove_prefix(std::min(entry.size() + 1, table.size()));
    }
    return false;
}

void putInsert(Output &out, std::size_t number, std::string_view table, const Arguments &arguments,
               unsigned numberFormat) noexcept
{
    char kind = '\0';
    std::string_view format;
    nlsConversion as{};
    if (number < 1 || number > arguments.count || !findInsert(table, number, kind, format) ||
        !nlsParseConversion(format, as) || kind != nlsKindOf(as) ||
        !nlsSameArguments(as, arguments.list[number - 1].type)) {
        out.put(unknown);
        return;
    }
    printArgument(out, arguments.list[number - 1], as, numberFormat);
}
} // namespace

bool nlsParseConversion(std::string_view format, nlsConversion &out) noexcept
{
    out = {};
    out.width = out.precision = -1;
    if (!takeOne(format, '%'))
        return false;
    std::size_t flags = 0;
    while (!format.empty() && std::strchr("-+ #0'", format.front()) != nullptr &&
           format.front() != '\0') {
        if (takeOne(format, '\'')) {
            out.grouped = true;
            continue;
        }
        if (flags == sizeof out.flags - 1)
            return false;
        out.flags[flags++] = format.front();
        format.remove_prefix(1);
    }
    if (!takeField(format, out.width, out.widthStar))
        return false;
    if (takeOne(format, '.')) {
        out.precision = 0;
        if (!takeField(format, out.precision, out.precisionStar))
            return false;
    }
    while (out.longs < 2 && takeOne(format, 'l'))
        ++out.longs;
    if (format.size() != 1)
        return false;
    out.letter = format.front();
    return std::string_view("cdeEfgGiopsuxX").find(out.letter) != std::string_view::npos &&
           (out.longs == 0 || nlsKindOf(out) == 'n') &&
           (!out.grouped || std::string_view("diu").find(out.letter) != std::string_view::npos);
}

char nlsKindOf(const nlsConversion &conversion) noexcept
{
    switch (conversion.letter) {
    case 's':
    case 'c':
    case 'p':
        return conversion.letter;
    case 'd':
    case 'i':
    case 'o':
    case 'u':
    case 'x':
    case 'X':
        return 'n';
    default:
        return 'f';
    }
}

bool nlsSameArguments(const nlsConversion &a, const nlsConversion &b) noexcept
{
    return nlsKindOf(a) == nlsKindOf(b) && a.longs == b.longs && a.widthStar == b.widthStar &&
           a.precisionStar == b.precisionStar;
}

std::size_t nlOrderInsert(char *out, std::size_t size, std::string_view stored,
                          std::size_t verbatim, const char *types, unsigned numberFormat,
                          va_list arguments) noexcept
{
    if (size == 0)
        return 0;
    Arguments read;
    readArguments(read, types, arguments);
    const std::size_t end = stored.find('\0');
    std::string_view text = stored.substr(0, end);
    const std::string_view table =
        end == std::string_view::npos ? std::string_view() : stored.substr(end + 1);
    Output output(out, size);
    output.put(text.substr(0, verbatim));
    text.remove_prefix(std::min(verbatim, text.size()));
    while (!text.empty()) {
        const std::size_t at = text.find(marker);
        output.put(text.substr(0, at));
        if (at == std::string_view::npos)
            break;
        text.remove_prefix(at + 1);
        const auto number = text.empty()
                                ? std::size_t{0}
                                : static_cast<unsigned char>(text.front()) - std::size_t{'0'};
        putInsert(output, number, table, read, numberFormat);
        if (!text.empty())
            text.remove_prefix(1);
    }
    return output.finish();
}
