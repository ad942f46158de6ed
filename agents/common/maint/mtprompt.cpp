// Questions to a person: see the header. Characters are read one by one, so that no buffer but the
// caller's ever holds a secret and nothing behind the line is taken from the next reader.
#include "agents/common/maint/mtprompt.h"

#include "agents/common/maint/mttiming.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <termios.h>
#include <unistd.h>

#include "common/thrd/psmutex.h"
#include "common/unx/psdescriptor.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"

namespace
{

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
constexpr std::size_t kSignalCount = sizeof kSignals / sizeof kSignals[0];
// Without a terminal there is nothing to restore before a stop; and a question that began again
// in the middle of a line would take the rest of it for the answer.
constexpr std::size_t kEndingSignals = kSignalCount - 1;
static_assert(kSignals[kEndingSignals] == SIGTSTP);

psMutex_t askMutex;
volatile std::sig_atomic_t caught = 0;
int wakeUp[2] = {-1, -1};

extern "C" void mtNoteSignal(int number)
{
    const int saved = errno;
    if (caught == 0 || caught == SIGTSTP) { // a signal that ends the process wins over SIGTSTP
        caught = number;
    }
    const char byte = 0;
    [[maybe_unused]] const ssize_t ignored = ::write(wakeUp[1], &byte, 1);
    errno = saved;
}

void wipe(char *memory, std::size_t size)
{
    // Through a volatile pointer: the compiler would drop writes to memory that is not read again.
    volatile char *byte = memory;
    for (std::size_t i = 0; i < size; ++i) {
        byte[i] = 0;
    }
}

/// Notes signals while it lives. The handler writes to a pipe that poll() waits for, so that a
/// signal between the test of `caught` and the wait is not missed. askMutex is held: there is one
/// at a time.
class SignalWatch
{
public:
    /// Of the first `count` signals.
    explicit SignalWatch(std::size_t count) : count_(count)
    {
        caught = 0;
        if (!psPipe(wakeUp)) {
            return;
        }
        for (const int end : wakeUp) {
            ::fcntl(end, F_SETFL, O_NONBLOCK);
        }
        struct sigaction note {
        };
        note.sa_handler = mtNoteSignal;
        ::sigemptyset(&note.sa_mask);
        for (std::size_t i = 0; i < count_; ++i) {
            ::sigaction(kSignals[i], nullptr, &before_[i]);
            if (before_[i].sa_handler != SIG_IGN) {
                ::sigaction(kSignals[i], &note, nullptr);
            }
        }
        watching_ = true;
    }
    ~SignalWatch()
    {
        for (std::size_t i = 0; watching_ && i < count_; ++i) {
            ::sigaction(kSignals[i], &before_[i], nullptr);
        }
        for (int &end : wakeUp) {
            if (end >= 0) {
                ::close(end);
            }
            end = -1;
        }
    }
    SignalWatch(const SignalWatch &) = delete;
    SignalWatch &operator=(const SignalWatch &) = delete;

    [[nodiscard]] bool watching() const { return watching_; }

    /// Waits without limit. Returns MT_ASK_OK when there is something to read or the input has
    /// ended, MT_ASK_SIGNAL, or MT_ASK_ERROR.
    [[nodiscard]] static mtAsk_t wait(int descriptor)
    {
        for (;;) {
            struct pollfd waits[] = {{descriptor, POLLIN, 0}, {wakeUp[0], POLLIN, 0}};
            const int ready = ::poll(waits, 2, -1);
            if (caught != 0) {
                return MT_ASK_SIGNAL;
            }
            if (ready > 0 && waits[0].revents != 0) {
                return MT_ASK_OK;
            }
            if (ready < 0 && errno != EINTR) {
                return MT_ASK_ERROR;
            }
        }
    }

private:
    struct sigaction before_[kSignalCount] = {};
    const std::size_t count_;
    bool watching_ = false;
};

/// The terminal of the process, without echo for a secret; the destructor restores it.
class Terminal
{
public:
    explicit Terminal(bool secret)
        : descriptor_(psAboveStandard(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)))
    {
        ready_ = descriptor_ >= 0 && ::tcgetattr(descriptor_, &before_) == 0;
        if (!ready_ || !secret) {
            return;
        }
        termios quiet = before_;
        quiet.c_lflag &= static_cast<tcflag_t>(~static_cast<tcflag_t>(ECHO));
        quiet.c_lflag |= static_cast<tcflag_t>(ICANON | ISIG);
        quiet_ = ready_ = ::tcsetattr(descriptor_, TCSAFLUSH, &quiet) == 0;
    }
    ~Terminal()
    {
        if (quiet_) {
            ::tcsetattr(descriptor_, TCSAFLUSH, &before_);
            say("\n"); // the line end that the person typed was not echoed
        }
        if (descriptor_ >= 0) {
            ::close(descriptor_);
        }
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    [[nodiscard]] bool ready() const { return ready_; }
    [[nodiscard]] int descriptor() const { return descriptor_; }
    void say(const std::string &text) const { psWriteAll(descriptor_, text.data(), text.size()); }

private:
    int descriptor_;
    bool ready_ = false;
    bool quiet_ = false;
    termios before_{};
};

/// Reads one character. Returns 1, 0 for the end of the input, or -1 with the reason in `code`.
int readCharacter(int descriptor, char &character, mtAsk_t &code)
{
    for (;;) {
        code = SignalWatch::wait(descriptor);
        if (code != MT_ASK_OK) {
            return -1;
        }
        const ssize_t count = ::read(descriptor, &character, 1);
        if (count >= 0) {
            return static_cast<int>(count);
        }
        if (errno != EINTR && errno != EAGAIN) {
            // The errors of a terminal that was closed.
            code = errno == EIO || errno == ENXIO ? MT_ASK_END : MT_ASK_ERROR;
            return -1;
        }
    }
}

constexpr std::size_t kLongestLine = 65536;

mtAsk_t readLine(int descriptor, char *answer, std::size_t size)
{
    std::size_t length = 0; // of the line; at size and above it has been cut
    bool proper = true;
    bool ended = false;
    for (char character = 0; !ended;) {
        mtAsk_t code = MT_ASK_OK;
        const int count = readCharacter(descriptor, character, code);
        if (count < 0) {
            return code;
        }
        if (count == 0 && length == 0) {
            return MT_ASK_END;
        }
        ended = count == 0 || character == '\n';
        if (!ended && length < size) {
            answer[length] = character;
        }
        length += ended ? 0 : 1;
        wipe(&character, 1);
        if (length > kLongestLine) { // a line without an end, such as that of /dev/zero
            return MT_ASK_LONG;
        }
    }
    if (length > 0 && length <= size && answer[length - 1] == '\r') {
        --length; // a line of a file with DOS line ends
    }
    if (length >= size) {
        return MT_ASK_LONG;
    }
    answer[length] = '\0';
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(answer[i]);
        proper = proper && byte >= 0x20 && byte != 0x7f;
    }
    return proper ? MT_ASK_OK : MT_ASK_CONTROL;
}

mtAsk_t askOnce(const mtQuestion_t &question, const std::string &shown, char *answer,
                std::size_t size)
{
    const bool piped = question.from == mtAskFrom::standardInput;
    const SignalWatch watch(piped ? kEndingSignals : kSignalCount);
    if (!watch.watching()) {
        return MT_ASK_ERROR;
    }
    if (piped) {
        return readLine(STDIN_FILENO, answer, size);
    }
    const Terminal terminal(question.secret);
    if (!terminal.ready()) {
        return MT_ASK_NO_TERMINAL;
    }
    terminal.say(shown);
    return readLine(terminal.descriptor(), answer, size);
}

/// Asks until there is an answer or an error. Returns with the terminal and the handlers restored.
/// After SIGTSTP the question is asked again.
mtAsk_t askUntilAnswered(const mtQuestion_t &question, const std::string &shown, char *answer,
                         std::size_t size)
{
    if (size == 0) {
        return MT_ASK_LONG;
    }
    const psMutexGuard guard(askMutex);
    for (;;) {
        const mtAsk_t code = askOnce(question, shown, answer, size);
        if (code != MT_ASK_OK) {
            const int reason = errno;
            wipe(answer, size);
            errno = reason;
        }
        if (code != MT_ASK_SIGNAL) {
            return code;
        }
        const int number = caught;
        ::raise(number);
        if (number != SIGTSTP) {
            return code;
        }
    }
}

} // namespace

mtAsk_t mtAsk(const mtQuestion_t &question, char *answer, std::size_t size)
{
    const mtTimed timed(MT_TIME_WAITING);
    std::string shown = question.text;
    if (question.usual != nullptr) {
        shown.append(" [").append(question.usual).append("]");
    }
    const mtAsk_t code = askUntilAnswered(question, shown + ": ", answer, size);
    if (code == MT_ASK_OK && answer[0] == '\0' && question.usual != nullptr) {
        if (std::strlen(question.usual) >= size) {
            return MT_ASK_LONG;
        }
        std::memcpy(answer, question.usual, std::strlen(question.usual) + 1);
    }
    return code;
}

mtAsk_t mtAskYesNo(const char *text, bool usual, mtAskFrom from, bool &yes)
{
    constexpr int kTimes = 3;
    const std::string shown = std::string(text) + (usual ? " [Y/n] " : " [y/N] ");
    mtQuestion_t question;
    question.from = from;
    yes = false;
    for (int i = 0; i < kTimes; ++i) {
        char answer[16] = "";
        const mtAsk_t code = askUntilAnswered(question, shown, answer, sizeof answer);
        if (code != MT_ASK_OK && code != MT_ASK_LONG && code != MT_ASK_CONTROL) {
            return code;
        }
        for (char &character : answer) {
            character = character >= 'A' && character <= 'Z'
                            ? static_cast<char>(character - 'A' + 'a')
                            : character;
        }
        const std::string said = answer;
        if (code == MT_ASK_OK && (said == "y" || said == "yes" || (said.empty() && usual))) {
            yes = true;
            return MT_ASK_OK;
        }
        if (code == MT_ASK_OK && (said == "n" || said == "no" || said.empty())) {
            return MT_ASK_OK;
        }
    }
    return MT_ASK_OK;
}

const char *mtAskText(mtAsk_t code)
{
    switch (code) {
    case MT_ASK_NO_TERMINAL:
        return "there is no terminal to ask on";
    case MT_ASK_END:
        return "nothing was given";
    case MT_ASK_SIGNAL:
        return "interrupted";
    case MT_ASK_LONG:
        return "it is too long";
    case MT_ASK_CONTROL:
        return "it holds control characters";
    case MT_ASK_ERROR:
        return "it cannot be read";
    case MT_ASK_OK:
        break;
    }
    return "";
}
