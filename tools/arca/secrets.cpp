// Asking for secrets: see the header.
#include "tools/arca/secrets.h"

#include "client/base/hash.h"
#include "client/base/text.h"
#include "client/store/recovery_key.h"

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
constexpr std::size_t kLongestLine = 250;
constexpr std::size_t kLeastPassphrase = 10;

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

/// The next line, at most `limit` characters of it.
Result<std::string> readLine(std::FILE *input, const char *what, std::size_t limit)
{
    char buffer[kLongestLine + 3] = "";
    if (std::fgets(buffer, sizeof buffer, input) == nullptr)
        return Error{ErrorKind::badArgument, std::string("no ") + what + " was given"};
    std::string line(buffer);
    wipe(std::as_writable_bytes(std::span(buffer)));
    while (line.ends_with('\n') || line.ends_with('\r'))
        line.pop_back();
    if (line.empty() || line.size() > limit) {
        wipe(line);
        return Error{ErrorKind::badArgument, std::string("a ") + what + " has 1 to " +
                                                 std::to_string(limit) + " characters"};
    }
    return line;
}

Result<Stream> openTerminal(const std::string &what)
{
    Stream terminal(std::fopen("/dev/tty", "r+"));
    if (!terminal)
        return Error{ErrorKind::badArgument,
                     "there is no terminal to ask for " + what + " on; give it with --stdin"};
    return terminal;
}

Result<std::string> ask(std::FILE *terminal, const std::string &question, const char *what,
                        std::size_t limit)
{
    std::fputs(question.c_str(), terminal);
    std::fflush(terminal);
    const NoEcho quiet(fileno(terminal));
    auto line = readLine(terminal, what, limit);
    std::fputs("\n", terminal);
    return line;
}

Result<std::string> askTwice(const char *what, const std::string &question, std::size_t limit)
{
    ARCA_TRY(const Stream terminal, openTerminal(std::string("the ") + what));
    ARCA_TRY(std::string first, ask(terminal.get(), question, what, limit));
    auto second = ask(terminal.get(), "The same again: ", what, limit);
    const bool agree = second && first == *second;
    if (second)
        wipe(*second);
    if (agree)
        return first;
    wipe(first);
    return Error{ErrorKind::badArgument, std::string("the two ") + what + "s are not the same"};
}

} // namespace

Result<std::string> newPassword(const std::string &node, bool fromStandardInput)
{
    return fromStandardInput
               ? readLine(stdin, "password", kMaxPassword)
               : askTwice("password", "New password for node " + printable(node) + ": ",
                          kMaxPassword);
}

Result<std::string> newPassphrase(bool fromStandardInput)
{
    ARCA_TRY(std::string typed,
             fromStandardInput
                 ? readLine(stdin, "passphrase", kLongestLine)
                 : askTwice("passphrase", "Passphrase for the exported key: ", kLongestLine));
    if (typed.size() >= kLeastPassphrase)
        return typed;
    wipe(typed);
    return Error{ErrorKind::badArgument,
                 "a passphrase has at least " + std::to_string(kLeastPassphrase) + " characters"};
}

Result<std::string> passphrase(bool fromStandardInput)
{
    if (fromStandardInput)
        return readLine(stdin, "passphrase", kLongestLine);
    ARCA_TRY(const Stream terminal, openTerminal("the passphrase"));
    return ask(terminal.get(), "Passphrase of the exported key: ", "passphrase", kLongestLine);
}

Result<std::string> password(const std::string &node, bool fromStandardInput)
{
    if (fromStandardInput)
        return readLine(stdin, "password", kMaxPassword);
    ARCA_TRY(const Stream terminal, openTerminal("the password of node " + printable(node)));
    return ask(terminal.get(), "Password of node " + printable(node) + ": ", "password",
               kMaxPassword);
}

Result<SecretKey> recoveryKey(bool fromStandardInput)
{
    constexpr const char *kWhat = "recovery key";
    Stream terminal;
    if (!fromStandardInput) {
        ARCA_TRY(terminal, openTerminal("the recovery key"));
    }
    ARCA_TRY(std::string typed, fromStandardInput
                                    ? readLine(stdin, kWhat, kLongestLine)
                                    : ask(terminal.get(), "Recovery key: ", kWhat, kLongestLine));
    auto key = store::typedRecoveryKey(typed);
    wipe(typed);
    return key;
}

} // namespace arca::tool
