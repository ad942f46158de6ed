// A password from a person or a pipe, in memory that is wiped. One thread.
#ifndef KEEL_TOOLS_KEEL_PASSWORD_H
#define KEEL_TOOLS_KEEL_PASSWORD_H

#include <cstddef>
#include <string>

namespace keel
{

class Password
{
public:
    static constexpr std::size_t kLongest = 64;

    Password() = default;
    ~Password();
    Password(const Password &) = delete;
    Password &operator=(const Password &) = delete;

    /// Reads one line of standard input, and nothing behind it. Throws Failure when the line is
    /// empty, longer than kLongest bytes, not there or not readable, or holds control characters,
    /// and when a signal comes.
    void read();

    /// Asks for it twice, without echo, on the controlling terminal, whatever standard input is.
    /// Throws Failure as read() does and when the two differ, UsageError when there is no terminal;
    /// do not use the password then.
    void ask(const std::string &question);

    /// Returns the text, NUL-terminated, for calls that may write to it; valid as long as the
    /// object.
    [[nodiscard]] char *data() { return text_; }
    [[nodiscard]] std::size_t size() const;

private:
    void take(const char *question, bool fromTerminal);

    char text_[kLongest + 1] = "";
};

} // namespace keel

#endif
