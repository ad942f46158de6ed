// Asking for a new password: see the header.
#include "tools/arca/new_password.h"

#include "client/base/hash.h"
#include "client/base/text.h"

#include <cstdio>
#include <fcntl.h>
#include <memory>
#include <termios.h>
#include <unistd.h>

namespace arca::tool
{

namespace
{

constexpr std::size_t kMaxPassword = 64;

struct Close {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using Stream = std::unique_ptr<std::FILE, Close>;

/// Switches the echo off while it lives.
class NoEcho
{
public:
    explicit NoEcho(int terminal) : terminal_(terminal)
    {
        saved_ = tcgetattr(terminal_, &before_) == 0;
        termios quiet = before_;
        quiet.c_lflag &= static_cast<tcflag_t>(~ECHO);
        if (saved_)
            tcsetattr(terminal_, TCSAFLUSH, &quiet);
    }
    NoEcho(const NoEcho &) = delete;
    NoEcho &operator=(const NoEcho &) = delete;
    ~NoEcho()
    {
        if (saved_)
            tcsetattr(terminal_, TCSAFLUSH, &before_);
    }

private:
    int terminal_;
    bool saved_ = false;
    termios before_{};
};

Result<std::string> readLine(std::FILE *input)
{
    char buffer[kMaxPassword + 3] = "";
    if (std::fgets(buffer, sizeof buffer, input) == nullptr)
        return Error{ErrorKind::badArgument, "no password was given"};
    std::string line(buffer);
    wipe(std::as_writable_bytes(std::span(buffer)));
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.pop_back();
    if (line.empty() || line.size() > kMaxPassword)
        return Error{ErrorKind::badArgument, "a password has 1 to 64 characters"};
    return line;
}

Result<std::string> ask(std::FILE *terminal, const std::string &question)
{
    std::fputs(question.c_str(), terminal);
    std::fflush(terminal);
    const NoEcho quiet(fileno(terminal));
    auto line = readLine(terminal);
    std::fputs("\n", terminal);
    return line;
}

} // namespace

Result<std::string> newPassword(const std::string &node, bool fromStandardInput)
{
    if (fromStandardInput)
        return readLine(stdin);
    const Stream terminal(std::fopen("/dev/tty", "r+"));
    if (!terminal)
        return Error{ErrorKind::badArgument,
                     "there is no terminal to ask for the password of node " + printable(node) +
                         " on; give it with --stdin"};
    ARCA_TRY(std::string first,
             ask(terminal.get(), "New password for node " + printable(node) + ": "));
    ARCA_TRY(std::string second, ask(terminal.get(), "The same again: "));
    const bool agree = first == second;
    wipe(second);
    if (!agree) {
        wipe(first);
        return Error{ErrorKind::badArgument, "the two passwords are not the same"};
    }
    return first;
}

} // namespace arca::tool
