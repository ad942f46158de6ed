// Frames of 256 KiB, packs of some 32 MiB.
#include "client/engine/writing/pack_gatherer.h"

#include "client/base/crypto/hash.h"

#include <algorithm>

namespace arca::engine
{

namespace
{

constexpr std::uint64_t kPackBytes = std::uint64_t{32} << 20;
constexpr std::uint64_t kMaxPackRawBytes = std::uint64_t{256} << 20;
constexpr std::uint32_t kMaxPackBlocks = 128 * 1024; // bounds the index of a pack to 3 MiB

} // namespace

Result<void> PackGatherer::start()
{
    return fillRandom(std::span(nextId_).first(12));
}

Result<void> PackGatherer::nextPack()
{
    ARCA_TRY(const PackHeader header, PackStore::newHeader(nextId_, settings_.cipher));
    ARCA_TRY(const Aead cipher, packCipher(packs_.packKey(), header));
    pack_ = std::make_shared<const PackPlan>(PackPlan{header, cipher});
    nextId_ = successorOf(nextId_);
    frames_ = 0;
    blocks_ = 0;
    rawBytes_ = 0;
    return {};
}

bool PackGatherer::packIsFull() const
{
    const auto raw = static_cast<double>(learntRaw_.load(std::memory_order_relaxed));
    const auto stored = static_cast<double>(learntStored_.load(std::memory_order_relaxed));
    const double ratio = raw > 0 ? stored / raw : 1.0;
    return static_cast<double>(rawBytes_) * ratio >= static_cast<double>(kPackBytes) ||
           rawBytes_ >= kMaxPackRawBytes || blocks_ >= kMaxPackBlocks;
}

void PackGatherer::learn(std::size_t rawBytes, std::size_t storedBytes)
{
    learntRaw_.fetch_add(rawBytes, std::memory_order_relaxed);
    learntStored_.fetch_add(storedBytes, std::memory_order_relaxed);
}

std::unique_ptr<Frame> PackGatherer::takeFrame()
{
    frame_->endsPack = packIsFull();
    if (frame_->endsPack)
        pack_.reset();
    return std::move(frame_);
}

std::unique_ptr<Frame> PackGatherer::makeRoom(std::size_t length)
{
    if (!frame_ || frame_->raw.size() + length <= kFrameBytes)
        return nullptr;
    return takeFrame();
}

Result<BlockRef> PackGatherer::add(const BlockId &id, ByteView block)
{
    if (!pack_)
        ARCA_CHECK(nextPack());
    if (!frame_) {
        frame_ = std::make_unique<Frame>();
        frame_->pack = pack_;
        frame_->number = frames_++;
        frame_->raw.reserve(kFrameBytes);
    }
    frame_->raw.insert(frame_->raw.end(), block.begin(), block.end());
    frame_->blocks.push_back({id, static_cast<std::uint32_t>(block.size()), false});
    rawBytes_ += block.size();
    return BlockRef{pack_->header.id, blocks_++};
}

std::unique_ptr<Frame> PackGatherer::takeLast()
{
    if (!pack_)
        return nullptr;
    if (!frame_) {
        // The pack is open with nothing left to put into it: an empty frame closes it.
        frame_ = std::make_unique<Frame>();
        frame_->pack = pack_;
    }
    frame_->endsPack = true;
    pack_.reset();
    return std::move(frame_);
}

Result<void> RunMerger::addZeros(std::uint64_t bytes)
{
    if (run_.blocks != 0)
        ARCA_CHECK(flush());
    run_.zeroBytes += bytes;
    return {};
}

Result<void> RunMerger::addBlock(const BlockRef &place)
{
    if (run_.blocks != 0 && run_.pack == place.pack &&
        run_.firstBlock + run_.blocks == place.block) {
        ++run_.blocks;
        return {};
    }
    ARCA_CHECK(flush());
    run_ = {place.pack, place.block, 1, 0};
    return {};
}

Result<void> RunMerger::flush()
{
    const Run run = run_;
    run_ = Run{};
    if (run == Run{})
        return {};
    return sink_.take(run);
}

} // namespace arca::engine
