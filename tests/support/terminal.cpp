// See terminal.h.
#include "tests/support/terminal.h"

#include "tests/support/program.h"

#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace keel::test
{

Terminal::Terminal(std::vector<std::string> argv)
{
    std::vector<char *> arguments;
    for (std::string &argument : argv)
        arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    child_ = ::forkpty(&terminal_, nullptr, nullptr, nullptr);
    if (child_ == 0) {
        defaultSignals();
        ::execv(arguments[0], arguments.data());
        ::_exit(127);
    }
}

Terminal::~Terminal()
{
    if (terminal_ >= 0)
        ::close(terminal_);
}

void Terminal::hangUp(const std::string &text)
{
    answer(text, "");
    ::close(terminal_);
    terminal_ = -1;
}

void Terminal::answer(const std::string &text, const std::string &typed)
{
    while (shown.find(text, answered_) == std::string::npos && readOn()) {
    }
    answered_ = shown.size();
    // A program that is gone takes nothing; finish() tells.
    [[maybe_unused]] const ssize_t ignored = ::write(terminal_, typed.data(), typed.size());
}

bool Terminal::echoes() const
{
    termios state = {};
    return ::tcgetattr(terminal_, &state) == 0 && (state.c_lflag & ECHO) != 0;
}

int Terminal::finish()
{
    while (readOn()) {
    }
    int status = 0;
    ::waitpid(child_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool Terminal::readOn()
{
    char bytes[512];
    const ssize_t count = ::read(terminal_, bytes, sizeof bytes);
    if (count > 0)
        shown.append(bytes, static_cast<std::size_t>(count));
    return count > 0;
}

} // namespace keel::test
