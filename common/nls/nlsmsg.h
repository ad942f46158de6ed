// One message as it is kept in memory, and the cache of the latest few. Not locked: the
// repository's lock guards both.
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

/// refused: the catalogue's text for a missing message (severity M). corrupted: no identifier, or
/// more than 4,096 bytes.
enum class nlsMsgResult { made, refused, corrupted, noMemory };

/// Makes a message of what a catalogue holds. converter may be null; otherwise the text, but
/// not the insert table, is converted; the two together are cut at twice their stored length. With
/// made, *out belongs to the caller, who frees it with utFree or hands it to a cache; with any
/// other result it is null.
nlsMsgResult nlsMakeMsg(std::uint16_t number, std::string_view stored, nlsConverter_t *converter,
                        nlsMsg **out) noexcept;

/// Returns true when texts of that severity carry their identifier: K, I, W, E and S.
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
    /// Returns a message that the cache owns, valid until the next add, setLimit or clear; null
    /// when the message is not kept.
    nlsMsg *find(std::uint16_t number) noexcept;
    /// Takes ownership of a message that is not in the cache, and frees the least recently used one
    /// when the cache is full.
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
