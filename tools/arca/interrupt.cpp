// Ctrl-C: see the header.
#include "tools/arca/interrupt.h"

#include "tools/common/progress.h"
#include "tools/common/signals.h"

#include <atomic>
#include <csignal>
#include <memory>

namespace arca::tool
{

namespace
{

std::atomic<int> caught = 0; // read by the threads of a verb, too
static_assert(std::atomic<int>::is_always_lock_free, "or a handler may not touch it");

extern "C" void noteInterrupt(int number)
{
    caught = number;
}

} // namespace

void catchInterrupts()
{
    static const bool once = (tools::noteSignals(noteInterrupt), true);
    (void)once;
}

bool interrupted()
{
    return caught != 0;
}

std::function<bool(std::uint64_t done, std::uint64_t planned)>
shownProgress(const std::string &label)
{
    const auto shown = std::make_shared<tools::Progress>(label);
    return [shown](std::uint64_t done, std::uint64_t planned) {
        shown->show(done, planned, 0);
        if (done == planned)
            shown->clear();
        return !interrupted();
    };
}

std::function<bool(std::uint64_t done, std::uint64_t planned)> shownQuery(const std::string &label)
{
    const auto update = std::make_shared<tools::Progress>("Updating the catalogue");
    const auto query = std::make_shared<tools::Progress>(label, std::nullopt, label.empty());
    return [update, query, updated = false](std::uint64_t done, std::uint64_t planned) mutable {
        if (updated) {
            query->show(done, planned, 0);
        } else if (done == planned) {
            updated = true;
            update->clear();
        } else {
            update->show(done, planned - 1, 0); // done == planned means that the update is over
        }
        return !interrupted();
    };
}

Result<void> expectUninterrupted()
{
    if (interrupted())
        return interruption("nothing was changed");
    return {};
}

Error interruption(const std::string &done)
{
    return {ErrorKind::io,
            std::string(caught == SIGINT ? "interrupted" : "ended by a signal") + "; " + done};
}

} // namespace arca::tool
