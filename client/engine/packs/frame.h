// A frame on its way in and out of a pack: compressed, sealed; opened, expanded.
#ifndef KEEL_CLIENT_ENGINE_PACKS_FRAME_H
#define KEEL_CLIENT_ENGINE_PACKS_FRAME_H

#include "client/engine/packs/pack_format.h"
#include "client/engine/packs/settings.h"

#include <memory>

namespace arca::engine
{

/// A frame as it goes into the pack.
struct SealedFrame {
    Bytes bytes; // with the tag
    std::uint32_t rawBytes = 0;
    FrameMethod method = FrameMethod::plain;
};

/// What a worker needs to code frames, kept from one to the next. Belongs to one thread.
class FrameCoder
{
public:
    FrameCoder();
    ~FrameCoder();
    FrameCoder(const FrameCoder &) = delete;
    FrameCoder &operator=(const FrameCoder &) = delete;

    /// Compresses, where that saves a thirty-second, and seals blocks of at most kMaxFrameBytes
    /// into `into`. With settings.verify what was made is taken apart again and compared: a fault
    /// of memory, processor or library must not become a backup that cannot be read. After an error
    /// (internal) `into` is of no use.
    Result<void> seal(const Settings &settings, const Aead &cipher, const PackId &pack,
                      std::uint32_t number, ByteView raw, SealedFrame &into);

    /// Opens `sealed`, as long as the index says, into `raw`, which has entry.rawBytes. After an
    /// error `raw` may hold anything. Errors: damaged.
    Result<void> open(const Aead &cipher, const PackId &pack, std::uint32_t number,
                      const FrameEntry &entry, ByteView sealed, std::span<std::byte> raw);

private:
    struct Contexts;
    Result<ByteView> compress(const Settings &settings, ByteView raw);

    std::unique_ptr<Contexts> contexts_;
    Bytes compressed_;
    Bytes opened_;
    Bytes expanded_;
};

} // namespace arca::engine

#endif
