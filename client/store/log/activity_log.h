// The activity log of a repository: what sessions report. Events are gathered and published as one
// blob, when something is an error, when there are many (16 KiB), and at the end of the session: by
// publish(), as what is dropped unpublished is lost. One thread at a time.
#ifndef KEEL_CLIENT_STORE_LOG_ACTIVITY_LOG_H
#define KEEL_CLIENT_STORE_LOG_ACTIVITY_LOG_H

#include "client/blob/blob_store.h"
#include "client/store/log/log_seal.h"

#include <string>

namespace arca::store
{

enum class Severity { info, warning, error, severe };

struct Event {
    Severity severity = Severity::info;
    std::string node;
    std::string application; // name, platform and version as it gives them
    std::string messageId;
    std::string text;
};

/// A blob log/<day>/<time>-<nanoseconds and random, 8 digits each> holds lines, in the order of the
/// events, each of six fields separated by tabs: time (2026-11-21T08:31:00Z), severity (I, W, E,
/// S), node, application, message identifier, text. Control characters in a field become '?'; more
/// than 2,048 bytes are cut and marked "...".
/// The text is sealed for its node (log_seal.h); the other fields are in clear.
class ActivityLog
{
public:
    /// `seal` is of the node whose events these are.
    ActivityLog(blob::BlobStore &store, LogSeal seal) : store_(store), seal_(std::move(seal)) {}

    const LogSeal &seal() const { return seal_; }

    /// An error or worse is durable on return; when publishing fails, the event stays with the log
    /// and is published with the next. Errors: full when 256 KiB wait already; that event is lost.
    Result<void> append(const Event &event);
    /// Makes durable what was gathered. After an error it stays gathered, and may be published
    /// twice.
    Result<void> publish();

private:
    blob::BlobStore &store_;
    const LogSeal seal_;
    std::string gathered_;
};

} // namespace arca::store

#endif
