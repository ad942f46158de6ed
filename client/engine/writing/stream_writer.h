// Stores a stream: cut into blocks, what is new of it compressed, sealed and put into packs, and
// told as runs to a sink. The caller's thread only copies; the rest runs on threads of the writer.
//
//   append ─► chunks ─► cut, hash ─► look up, gather ─► compress, seal, verify ─► packs
//                       (workers)    (workers, one     (workers)                (one thread,
//                                     after the other)                           in order)
//
// Every arrow is a bounded queue, so the memory of the whole is bounded; a worker that waits for
// room helps with what comes after. A failure anywhere is what the next append() or finish()
// returns, or throws (bad_alloc); drop the writer then. One thread uses it at a time.
#ifndef KEEL_CLIENT_ENGINE_WRITING_STREAM_WRITER_H
#define KEEL_CLIENT_ENGINE_WRITING_STREAM_WRITER_H

#include "client/base/crypto/hash.h"
#include "client/engine/duplicates/domain.h"
#include "client/engine/duplicates/duplicate_index.h"
#include "client/engine/packs/run.h"

#include <memory>

namespace arca::engine
{

struct StreamTotals {
    std::uint64_t streamBytes = 0;
    std::uint64_t zeroBytes = 0;
    std::uint64_t newBytes = 0;    // of blocks that were stored, some of them again
    std::uint64_t storedBytes = 0; // what the packs came to
    Digest128 digest{};            // XXH3-128 of the stream
    LookupCounts lookups;
};

class StreamWriter
{
public:
    /// `domain` and `runs` must outlive the writer; `runs` is called by one thread at a time. The
    /// stream never refers to the `avoided` packs and frames.
    static Result<std::unique_ptr<StreamWriter>> begin(Domain &domain, AvoidedPacks avoided,
                                                       const Settings &settings, RunSink &runs);
    /// Gives up what was not finished: packs that are durable already stay until they are
    /// reclaimed.
    virtual ~StreamWriter() = default;

    /// Copies the bytes; waits while the queues are full. Success says nothing of them yet.
    virtual Result<void> append(ByteView bytes) = 0;
    /// Ends the stream: every pack is durable and every run was taken when it returns. The last
    /// call.
    virtual Result<StreamTotals> finish() = 0;
};

} // namespace arca::engine

#endif
