// A password from a person or a pipe, in memory that is wiped.
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

    /// One line of standard input; nothing behind it is taken. Failure when it is empty, too long,
    /// or cannot be a password. A signal ends the waiting with Failure.
    void read();

    /// Asks for it twice on the terminal of the process, whatever standard input is, without echo.
    /// Failure when there is no terminal, or the two differ.
    void ask(const std::string &question);

    /// For calls that take a string which they may write to.
    [[nodiscard]] char *data() { return text_; }
    [[nodiscard]] std::size_t size() const;

private:
    void take(const char *question, bool fromTerminal);

    char text_[kLongest + 1] = "";
};

} // namespace keel

#endif
