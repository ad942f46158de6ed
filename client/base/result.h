// Failure is a value: Result<T> carries a T, or an Error of a kind that callers branch on and one
// sentence for the person on call (what failed, on which object, what to do; never a secret).
// Values of these types belong to one thread.
#ifndef KEEL_CLIENT_BASE_RESULT_H
#define KEEL_CLIENT_BASE_RESULT_H

#include <string>
#include <type_traits>
#include <utility>
#include <variant>

namespace arca
{

enum class ErrorKind {
    notFound,       // there is no such blob, piece, node, ...
    noFilespace,    // the filespace was never registered, or deleted meanwhile
    exists,         // the name is taken
    noRepository,   // there is no repository at that place
    io,             // the operating system failed to read or write
    full,           // no space or quota left
    readOnly,       // the file system is mounted read-only
    denied,         // the operating system refuses
    damaged,        // stored bytes are not what was written
    newerFormat,    // made by a newer release
    olderFormat,    // made by an older release, in a layout that is no longer read
    authentication, // a node that is not registered, or a wrong password
    noPassword,     // the password that this client should keep is not there
    badOption,      // an option file or option string is wrong
    badArgument,    // a value that the caller gave is out of range or malformed
    stopped,        // the caller asked for the work to end early
    conflict,       // another process changed or holds the same thing at the same time; try again
    internal,       // a fault of our own
};

struct Error {
    ErrorKind kind;
    std::string text;
};

/// Returns true when that is all that can be said: damaged, or the system does not let it be read.
inline bool isUnreadable(const Error &error)
{
    return error.kind == ErrorKind::damaged || error.kind == ErrorKind::io ||
           error.kind == ErrorKind::denied;
}

/// A value or a failure, which it owns. Test it before value() or error(): the wrong one throws
/// std::bad_variant_access. Moving a value out leaves the Expected holding what a move left.
template <class T, class E> class [[nodiscard]] Expected
{
    using Stored = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

public:
    Expected() requires std::is_void_v<T> : content_(std::in_place_index<0>) {}

    template <class U>
    requires(!std::is_void_v<T> && std::is_convertible_v<U, Stored> &&
             !std::is_same_v<std::remove_cvref_t<U>, Expected> && !std::is_convertible_v<U, E>)
        Expected(U &&value)
        : content_(std::in_place_index<0>, std::forward<U>(value))
    {
    }

    template <class F>
    requires(std::is_convertible_v<F, E> && !std::is_same_v<std::remove_cvref_t<F>, Expected>)
        Expected(F &&failure)
        : content_(std::in_place_index<1>, std::forward<F>(failure))
    {
    }

    explicit operator bool() const noexcept { return content_.index() == 0; }

    Stored &value() & { return std::get<0>(content_); }
    const Stored &value() const & { return std::get<0>(content_); }
    Stored &&value() && { return std::get<0>(std::move(content_)); }
    Stored &operator*() & { return value(); }
    const Stored &operator*() const & { return value(); }
    Stored *operator->() { return &value(); }
    const Stored *operator->() const { return &value(); }

    E &error() & { return std::get<1>(content_); }
    const E &error() const & { return std::get<1>(content_); }
    E &&error() && { return std::get<1>(std::move(content_)); }

private:
    std::variant<Stored, E> content_;
};

template <class T> using Result = Expected<T, Error>;

/// Returns the error with what the caller was doing before its text: "reading piece /x//y: checksum
/// differs". The kind stays.
inline Error inContext(Error error, const std::string &doing)
{
    error.text = doing + ": " + error.text;
    return error;
}

#define ARCA_JOIN_(a, b) a##b
#define ARCA_JOIN(a, b) ARCA_JOIN_(a, b)

/// ARCA_TRY(auto x, call()): x from the result of call(), or return its failure.
#define ARCA_TRY(declaration, expression)                                                          \
    auto ARCA_JOIN(tried_, __LINE__) = (expression);                                               \
    if (!ARCA_JOIN(tried_, __LINE__))                                                              \
        return std::move(ARCA_JOIN(tried_, __LINE__)).error();                                     \
    declaration = std::move(ARCA_JOIN(tried_, __LINE__)).value()

/// ARCA_CHECK(call()): return the failure of call(), if any.
#define ARCA_CHECK(expression)                                                                     \
    do {                                                                                           \
        if (auto checked_ = (expression); !checked_)                                               \
            return std::move(checked_).error();                                                    \
    } while (false)

} // namespace arca

#endif
