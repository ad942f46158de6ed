// Asking for the handlers of a process: see the header.
#include "client/blob/ending_signals.h"

#include <algorithm>
#include <csignal>

namespace arca::blob
{

namespace
{

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

bool hasCome(int number)
{
    struct sigaction now = {};
    return ::sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_DFL &&
           (static_cast<unsigned>(now.sa_flags) & SA_RESETHAND) != 0 &&
           std::ranges::all_of(kEndingSignals,
                               [&](int other) { return ::sigismember(&now.sa_mask, other) == 1; });
}

} // namespace

bool endIsWanted()
{
    return std::ranges::any_of(kEndingSignals, hasCome);
}

} // namespace arca::blob
