// One message as it is kept in memory, and the cache of the latest few.
#ifndef KEEL_COMMON_NLS_NLSMSG_H
#define KEEL_COMMON_NLS_NLSMSG_H

#include <cstddef>
#include <cstdint>
#include <string_view>

class nlsConverter_t;

/// A message, in one tracked block with its text behind it. The text keeps its identifier where
/// the severity asks for that; the insert table is drawn in nlsinserts.cpp.
struct nlsMsg {
    nlsMsg *next;
    nlsMsg *previous;
    std::uint16_t number;
    std::uint8_t severity;
    char trailer[17];
    std::size_t length; // of the text with its insert table

    /// The text, with its insert table behind its own NUL; one more NUL follows.
    char *text() noexcept { return reinterpret_cast<char *>(this + 1); }
    std::string_view stored() noexcept { return {text(), length}; }
};

enum class nlsMsgResult { made, refused, corrupted, noMemory };

/// Makes a message of what a catalogue holds. converter may be null; otherwise the text (but no
/// insert) is converted. *out belongs to the caller, who gives it back with utFree.
nlsMsgResult nlsMakeMsg(std::uint16_t number, std::string_view stored, nlsConverter_t *converter,
                        nlsMsg **out) noexcept;

/// True when texts of that severity carry their identifier.
bool nlsKeepsIdentifier(std::uint8_t severity) noexcept;

/// The latest messages, in a ring whose head is the most recently used one.
class nlsMsgCache_t
{
public:
    nlsMsgCache_t() noexcept = default;
    ~nlsMsgCache_t() { clear(); }
    nlsMsgCache_t(const nlsMsgCache_t &) = delete;
    nlsMsgCache_t &operator=(const nlsMsgCache_t &) = delete;

    /// Sets the most messages kept, at least one, and forgets those kept so far.
    void setLimit(int messages) noexcept;
    /// Null when the message is not kept.
    nlsMsg *find(std::uint16_t number) noexcept;
    /// Takes the message over, in place of the least recently used one when the cache is full.
    void add(nlsMsg *message) noexcept;
    void clear() noexcept;

private:
    void link(nlsMsg *message) noexcept;
    void unlink(nlsMsg *message) noexcept;

    nlsMsg *head = nullptr;
    int count = 0;
    int limit = 1;
};

#endif
