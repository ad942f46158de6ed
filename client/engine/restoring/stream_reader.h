// Gives a stream back from its runs. One thread reads packs ahead of the caller, workers open and
// expand frames, the caller's thread only copies. What is ahead is bounded in memory, and all that
// is near in the stream is taken from a frame at once. No byte is handed out before its frame was
// found to be what was written. One thread uses it at a time.
#ifndef KEEL_CLIENT_ENGINE_RESTORING_STREAM_READER_H
#define KEEL_CLIENT_ENGINE_RESTORING_STREAM_READER_H

#include "client/engine/packs/damage.h"
#include "client/engine/packs/run.h"

#include <memory>

namespace arca::engine
{

class StreamReader
{
public:
    /// `packs` and `runs` must outlive the reader; `runs` is called by one thread at a time.
    static Result<std::unique_ptr<StreamReader>> begin(const PackStore &packs,
                                                       const Settings &settings, RunSource &runs);
    virtual ~StreamReader() = default;

    /// Fills `into` and returns the bytes read; less only at the end of the stream. After an error
    /// `into` may hold some of them: drop the reader. Throws what a thread of its own threw,
    /// bad_alloc above all. Errors: damaged, also when a pack is missing; what reading says.
    virtual Result<std::size_t> read(std::span<std::byte> into) = 0;

    /// After read() returned `damaged`: the parts of packs that were found damaged by then. None
    /// when the fault is elsewhere, in the runs or in a pack that is missing.
    virtual std::vector<DamagedPart> damage() = 0;
};

} // namespace arca::engine

#endif
