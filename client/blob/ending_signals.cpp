// Asking for the handlers of a process: see the header.
#include "client/blob/ending_signals.h"

#include <atomic>
#include <csignal>
#include <iterator>

namespace arca::blob
{

namespace
{

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

/// Of each, whether the process had a handler when a store was opened or a lock waited for.
std::atomic<bool> wasHandled[std::size(kEndingSignals)];

bool isHandled(int number)
{
    struct sigaction now = {};
    return ::sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_DFL &&
           now.sa_handler != SIG_IGN;
}

} // namespace

void noteHandledSignals()
{
    for (std::size_t i = 0; i < std::size(kEndingSignals); ++i)
        if (isHandled(kEndingSignals[i]))
            wasHandled[i] = true;
}

bool endIsWanted()
{
    for (std::size_t i = 0; i < std::size(kEndingSignals); ++i)
        if (wasHandled[i] && !isHandled(kEndingSignals[i]))
            return true;
    return false;
}

} // namespace arca::blob
