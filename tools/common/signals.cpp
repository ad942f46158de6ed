// See signals.h.
#include "tools/common/signals.h"

#include <csignal>
#include <initializer_list>

namespace tools
{

void noteSignals(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
    ::sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction inherited = {};
        ::sigaction(number, nullptr, &inherited);
        if (inherited.sa_handler != SIG_IGN)
            ::sigaction(number, &action, nullptr);
    }
}

} // namespace tools
