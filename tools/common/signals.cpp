// See signals.h.
#include "tools/common/signals.h"

#include <csignal>

namespace tools
{

void noteSignals(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP};
    ::sigemptyset(&action.sa_mask);
    for (const int number : kEnding)
        ::sigaddset(&action.sa_mask, number);
    for (const int number : kEnding) {
        struct sigaction inherited = {};
        ::sigaction(number, nullptr, &inherited);
        if (inherited.sa_handler != SIG_IGN)
            ::sigaction(number, &action, nullptr);
    }
}

} // namespace tools
