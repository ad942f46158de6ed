// What a stream is made of, in its order: runs of blocks of packs, and zeros.
#ifndef KEEL_CLIENT_ENGINE_PACKS_RUN_H
#define KEEL_CLIENT_ENGINE_PACKS_RUN_H

#include "client/engine/packs/pack_format.h"

#include <optional>

namespace arca::engine
{

struct Run {
    PackId pack{};
    std::uint32_t firstBlock = 0;
    std::uint32_t blocks = 0;    // 0: zeros
    std::uint64_t zeroBytes = 0; // 0: blocks

    bool operator==(const Run &) const = default;
};

class RunSink
{
public:
    virtual ~RunSink() = default;
    /// Takes the next run. An error ends the stream.
    virtual Result<void> take(const Run &run) = 0;
};

class RunSource
{
public:
    virtual ~RunSource() = default;
    /// Returns nothing after the last one. After an error it is not called again.
    virtual Result<std::optional<Run>> next() = 0;
};

} // namespace arca::engine

#endif
