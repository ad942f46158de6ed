// One message as it is kept in memory, and the cache of the latest few.
//
// What a catalogue holds for a message, as one C string:
//
//   RBQ2503E text with markers <10> insert table [<12> trailer]
//
// The identifier is three letters, digits and a severity letter. The byte 0x10 stands for a NUL,
// which a C string cannot hold; it ends the text and the parts of the insert table.
#include "common/nls/nlsmsg.h"

#include "common/nls/nlslanguage.h"
#include "common/nls/nlswords.h"
#include "common/ut/utmem.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace
{
constexpr std::size_t maxStoredLength = 4096;
constexpr std::size_t trailerReach = 15;
constexpr std::size_t prefixLength = 3;
constexpr std::size_t identifierLength = 7; // before the letter
constexpr char pseudoNull = 0x10;
constexpr char trailerMark = 0x12;

bool isDigit(char c) noexcept
{
    return c >= '0' && c <= '9';
}

// Returns the severity code of a letter, -1 for the letter that is refused, -2 for no severity.
constexpr int refusedLetter = -1;
int severityOf(char letter) noexcept
{
    switch (letter) {
    case 'Z':
        return nlsSevZ;
    case 'T':
        return nlsSevT;
    case 'R':
        return nlsSevR;
    case 'K':
        return nlsSevK;
    case 'I':
        return nlsSevInformation;
    case 'W':
        return nlsSevWarning;
    case 'E':
        return nlsSevError;
    case 'S':
        return nlsSevSevere;
    case 'L':
        return nlsSevL;
    case 'M':
        return refusedLetter;
    default:
        return -2;
    }
}

// Turns the pseudo-NULs of a stored text into NULs. A first byte of 0x10 says that the text has
// leading fields, the bits of the second byte say which; a first byte of 1 marks a binary text,
// which stays as it is.
void ReplacePseudoNull(char *text, std::size_t length) noexcept
{
    if (length == 0 || text[0] == 1)
        return;
    if (text[0] == pseudoNull)
        text[0] = '\0';
    const unsigned flags = length > 1 ? static_cast<unsigned char>(text[1]) : 0U;
    constexpr std::array<unsigned, 3> bits = {8, 4, 2};
    for (std::size_t i = 2; i < length; ++i)
        if (text[i] == pseudoNull && (i > 4 || (flags & bits[i - 2]) != 0))
            text[i] = '\0';
}

// Copies the trailer of the stored text and returns the length of the text before it.
std::size_t takeTrailer(std::string_view stored, char (&trailer)[17]) noexcept
{
    std::memset(trailer, 0, sizeof trailer);
    const std::size_t mark = stored.rfind(trailerMark);
    if (mark == std::string_view::npos || stored.size() - mark > trailerReach)
        return stored.size();
    stored.substr(mark + 1).copy(trailer, sizeof trailer - 1);
    return mark;
}

// Writes the text, converted, and the insert table, unconverted. Returns the length.
std::size_t assemble(char *out, std::size_t size, std::string_view message,
                     nlsConverter_t *converter) noexcept
{
    const std::string_view text = message.substr(0, message.find('\0'));
    std::size_t length =
        converter != nullptr ? converter->convert(out, size, text) : text.copy(out, size);
    length += message.substr(text.size()).copy(out + length, size - length);
    return length;
}
} // namespace

bool nlsKeepsIdentifier(std::uint8_t severity) noexcept
{
    return severity >= nlsSevK && severity <= nlsSevSevere;
}

nlsMsgResult nlsMakeMsg(std::uint16_t number, std::string_view stored, nlsConverter_t *converter,
                        nlsMsg **out) noexcept
{
    *out = nullptr;
    if (stored.size() > maxStoredLength)
        return nlsMsgResult::corrupted;
    std::array<char, maxStoredLength> buffer;
    char trailer[17];
    stored.copy(buffer.data(), buffer.size());
    const std::size_t length = takeTrailer(stored, trailer);
    ReplacePseudoNull(buffer.data(), length);
    std::string_view message(buffer.data(), length);

    std::size_t letter = prefixLength;
    while (letter < length && isDigit(message[letter]))
        ++letter;
    const int severity = letter < length ? severityOf(message[letter]) : -2;
    if (severity == refusedLetter)
        return nlsMsgResult::refused;
    if (severity < 0 || letter == prefixLength)
        return nlsMsgResult::corrupted;
    if (!nlsKeepsIdentifier(static_cast<std::uint8_t>(severity))) {
        message.remove_prefix(std::min(letter + 2, length));
    } else if (letter > identifierLength) { // shown with four digits: the first of five is dropped
        std::memmove(buffer.data() + 1, buffer.data(), prefixLength);
        message.remove_prefix(1);
    }

    const std::size_t room = message.size() * 2 + 1; // code sets may need more bytes than UTF-8
    auto *made = static_cast<nlsMsg *>(utCalloc(1, sizeof(nlsMsg) + room));
    if (made == nullptr)
        return nlsMsgResult::noMemory;
    made->number = number;
    made->severity = static_cast<std::uint8_t>(severity);
    std::memcpy(made->trailer, trailer, sizeof trailer);
    made->length = assemble(made->text(), room - 1, message, converter);
    *out = made;
    return nlsMsgResult::made;
}

void nlsMsgCache_t::setLimit(int messages) noexcept
{
    clear();
    limit = std::max(messages, 1);
}

nlsMsg *nlsMsgCache_t::find(std::uint16_t number) noexcept
{
    nlsMsg *message = head;
    for (int i = 0; i < count; ++i, message = message->next) {
        if (message->number == number) {
            unlink(message);
            link(message);
            return message;
        }
    }
    return nullptr;
}

void nlsMsgCache_t::add(nlsMsg *message) noexcept
{
    if (count >= limit) {
        nlsMsg *oldest = head->previous;
        unlink(oldest);
        utFree(oldest);
    }
    link(message);
}

void nlsMsgCache_t::clear() noexcept
{
    while (head != nullptr) {
        nlsMsg *message = head;
        unlink(message);
        utFree(message);
    }
}

void nlsMsgCache_t::link(nlsMsg *message) noexcept
{
    if (head == nullptr) {
        message->next = message->previous = message;
    } else {
        message->next = head;
        message->previous = head->previous;
        head->previous->next = message;
        head->previous = message;
    }
    head = message;
    ++count;
}

void nlsMsgCache_t::unlink(nlsMsg *message) noexcept
{
    message->previous->next = message->next;
    message->next->previous = message->previous;
    if (head == message)
        head = message->next == message ? nullptr : message->next;
    --count;
}
