// Waiting for a lock file: with a bound, until a signal asks the process to end, and with the name
// of the holder, who writes a note into the file. Any thread may call these.
#ifndef KEEL_CLIENT_BLOB_DIRECTORY_LOCK_WAIT_H
#define KEEL_CLIENT_BLOB_DIRECTORY_LOCK_WAIT_H

#include "client/blob/ending_signals.h"
#include "client/blob/files/file_layer.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace arca::blob
{

/// Returns what the holder of a lock file puts into it with File::setNote(): process, time, host
/// and what it is doing.
std::string lockNote(const std::string &doing);

/// Returns who holds the lock in words, by the note in the file; "another process" when the note
/// tells nothing. The holder may have let go meanwhile, or be on another host: nothing may be
/// decided by the answer.
std::string holderOfLock(File &file);
std::string holderOfLock();

/// Calls `attempt`, which returns null while another one holds the lock, until it returns a lock or
/// fails. Errors: those of `attempt`; what `held` returns when `patience` is over; stopped when the
/// process was asked to end meanwhile (ending_signals.h).
template <class Lock, class Attempt, class Held>
Result<std::unique_ptr<Lock>> waitForLock(const Attempt &attempt, const Held &held,
                                          std::chrono::milliseconds patience)
{
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kLongestPause{50};
    const auto deadline = Clock::now() + patience;
    // Asked for again and again, as a wait of the system's would not end by itself.
    for (std::chrono::milliseconds pause{1};; pause = std::min(pause * 2, kLongestPause)) {
        ARCA_TRY(std::unique_ptr<Lock> mine, attempt());
        if (mine)
            return mine;
        const bool ended = endIsWanted();
        if (ended || Clock::now() >= deadline) {
            Error failure = held();
            return ended ? Error{ErrorKind::stopped, "ended by a signal; " + failure.text}
                         : failure;
        }
        std::this_thread::sleep_for(pause);
    }
}

} // namespace arca::blob

#endif
