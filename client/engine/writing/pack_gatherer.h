// Gathers new blocks into frames and frames into packs, and merges what the stream is made of into
// runs. Both belong to the stage that places blocks, but for learn().
#ifndef KEEL_CLIENT_ENGINE_WRITING_PACK_GATHERER_H
#define KEEL_CLIENT_ENGINE_WRITING_PACK_GATHERER_H

#include "client/engine/duplicates/duplicate_index.h"
#include "client/engine/packs/run.h"

#include <atomic>
#include <memory>

namespace arca::engine
{

/// What all frames of one pack share.
struct PackPlan {
    PackHeader header;
    Aead cipher;
};

/// Blocks on their way into a pack.
struct Frame {
    std::shared_ptr<const PackPlan> pack;
    std::uint64_t sequence = 0; // in the stream
    std::uint32_t number = 0;   // in the pack
    Bytes raw;
    std::vector<BlockEntry> blocks;
    SealedFrame sealed;
    bool endsPack = false;
};

class PackGatherer
{
public:
    PackGatherer(const PackStore &packs, const Settings &settings)
        : packs_(packs), settings_(settings)
    {
    }

    /// Call it once, first.
    Result<void> start();

    /// Returns the frame that is full when a block of that length does not fit any more; else null.
    std::unique_ptr<Frame> makeRoom(std::size_t length);
    /// Copies the block, after makeRoom() for it. Returns where it will be.
    Result<BlockRef> add(const BlockId &id, ByteView block);
    /// Returns what is left at the end of the stream; null when everything was taken. It may have
    /// no blocks, and then only ends its pack.
    std::unique_ptr<Frame> takeLast();

    /// Learns how far frames shrink, so that packs come out at about their size. Any thread.
    void learn(std::size_t rawBytes, std::size_t storedBytes);

private:
    std::unique_ptr<Frame> takeFrame();
    Result<void> nextPack();
    bool packIsFull() const;

    const PackStore &packs_;
    const Settings &settings_;
    PackId nextId_{};
    std::shared_ptr<const PackPlan> pack_; // null: the next block begins one
    std::unique_ptr<Frame> frame_;
    std::uint32_t frames_ = 0;
    std::uint32_t blocks_ = 0;
    std::uint64_t rawBytes_ = 0;
    std::atomic<std::uint64_t> learntRaw_{0};
    std::atomic<std::uint64_t> learntStored_{0};
};

class RunMerger
{
public:
    explicit RunMerger(RunSink &sink) : sink_(sink) {}

    /// In the order of the stream; flush() hands the last run over, at its end.
    Result<void> addZeros(std::uint64_t bytes);
    Result<void> addBlock(const BlockRef &place);
    Result<void> flush();

private:
    RunSink &sink_;
    Run run_;
};

} // namespace arca::engine

#endif
