// See password.h. Characters are read one by one, so that no buffer but ours ever holds them.
#include "tools/keel/password.h"

#include "tools/keel/failure.h"
#include "tools/keel/interrupt.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <termios.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace
{

void wipe(void *memory, std::size_t size)
{
    // Through a pointer that the compiler must believe in: nobody reads this memory again.
    auto *byte = static_cast<volatile unsigned char *>(memory);
    for (std::size_t i = 0; i < size; ++i)
        byte[i] = 0;
}

/// The terminal without echo while it lives. The signals that would stop or end the process with
/// the terminal in that state, and that are not caught, are held off.
class QuietTerminal
{
public:
    QuietTerminal() : descriptor_(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY))
    {
        if (descriptor_ < 0 || ::tcgetattr(descriptor_, &before_) != 0) {
            close();
            throw Failure("there is no terminal to ask on; --stdin reads the password instead");
        }
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGQUIT, &ignore, &quit_);
        ::sigaction(SIGTSTP, &ignore, &stop_);
        termios quiet = before_;
        quiet.c_lflag &= static_cast<tcflag_t>(~static_cast<tcflag_t>(ECHO));
        quiet.c_lflag |= static_cast<tcflag_t>(ICANON | ISIG);
        if (::tcsetattr(descriptor_, TCSAFLUSH, &quiet) != 0) {
            restore();
            throw Failure("the terminal cannot be kept from showing what is typed");
        }
    }
    ~QuietTerminal() { restore(); }
    QuietTerminal(const QuietTerminal &) = delete;
    QuietTerminal &operator=(const QuietTerminal &) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_; }

    void say(std::string_view text) const
    {
        [[maybe_unused]] const ssize_t ignored = ::write(descriptor_, text.data(), text.size());
    }

private:
    void restore()
    {
        ::tcsetattr(descriptor_, TCSAFLUSH, &before_);
        ::sigaction(SIGQUIT, &quit_, nullptr);
        ::sigaction(SIGTSTP, &stop_, nullptr);
        close();
    }
    void close()
    {
        if (descriptor_ >= 0)
            ::close(descriptor_);
        descriptor_ = -1;
    }

    int descriptor_;
    termios before_ = {};
    struct sigaction quit_ = {};
    struct sigaction stop_ = {};
};

} // namespace

Password::~Password()
{
    wipe(text_, sizeof text_);
}

void Password::add(char character)
{
    if (size_ < kLongest)
        text_[size_] = character;
    ++size_;
}

void Password::readLine(int descriptor)
{
    wipe(text_, sizeof text_);
    size_ = 0;
    bool proper = true;
    for (;;) {
        char character = 0;
        waitUntilReady(descriptor, Direction::kRead);
        const ssize_t count = ::read(descriptor, &character, 1);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count < 0)
            throw Failure(fmt::format("cannot read the password: {}", std::strerror(errno)));
        if (count == 0 || character == '\n')
            break;
        proper = proper && static_cast<unsigned char>(character) >= ' ';
        add(character);
        wipe(&character, 1);
    }
    if (size_ == 0)
        throw Failure("the password is empty");
    if (size_ > kLongest)
        throw Failure(fmt::format("a password has at most {} characters", kLongest));
    if (!proper)
        throw Failure("a password holds no control characters");
}

void Password::ask(const std::string &question)
{
    const QuietTerminal terminal;
    const auto read = [&](Password &password, const std::string &text) {
        terminal.say(text);
        password.readLine(terminal.descriptor());
        terminal.say("\n");
    };
    read(*this, question);
    Password again;
    read(again, "The same again: ");
    if (again.size_ != size_ || !std::equal(text_, text_ + size_, again.text_))
        throw Failure("the two passwords are not the same");
}

} // namespace keel
