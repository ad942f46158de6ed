// Reading ahead. One mutex guards the queues; reading, opening and copying are done without it.
#include "client/engine/stream_reader.h"

#include "client/base/thread.h"
#include "client/engine/outcome.h"
#include "client/engine/restore_plan.h"
#include "client/engine/stream_writer.h"

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <new>

namespace arca::engine
{

namespace
{

constexpr std::size_t kAlignment = 4096;
constexpr std::uint64_t kMaxRead = std::uint64_t{4} << 20;
constexpr std::size_t kMaxExtents = 8192;

struct Free {
    void operator()(std::byte *bytes) const { std::free(bytes); }
};
using Aligned = std::shared_ptr<std::byte>;

Aligned allocateAligned(std::size_t bytes)
{
    auto *const memory = static_cast<std::byte *>(std::aligned_alloc(kAlignment, bytes));
    if (memory == nullptr)
        throw std::bad_alloc();
    return Aligned(memory, Free());
}

/// A frame that the caller will need, or needed not long ago.
struct Piece {
    std::shared_ptr<PackLayout> pack;
    std::uint32_t number = 0;
    Aligned read; // keeps what was read until it is expanded
    ByteView sealed;
    Bytes raw;
    bool ready = false;
    std::size_t awaited = 0; // extents in the queue that are of it
    std::uint64_t used = 0;

    const FrameEntry &entry() const { return pack->frames[number]; }
};
using PiecePtr = std::shared_ptr<Piece>;

struct Queued {
    PiecePtr piece; // null: zeros
    std::uint32_t offset = 0;
    std::uint64_t length = 0;
    bool ends = false; // of what was taken off the queue: nothing of it is left there

    bool isReady() const { return !piece || piece->ready; }
};

class ReadAhead final : public StreamReader
{
public:
    ReadAhead(const PackStore &packs, const Settings &settings, RunSource &runs)
        : plan_(packs, runs), workers_(workersFor(settings)),
          maxPieces_(std::max<std::size_t>(16, settings.memory / 2 / kFrameBytes))
    {
    }
    ~ReadAhead() override;

    Result<void> start();
    Result<std::size_t> read(std::span<std::byte> into) override;

private:
    using Lock = std::unique_lock<std::mutex>;
    using Key = std::pair<PackId, std::uint32_t>;

    void readPacks();
    Result<void> readBatch(std::vector<PiecePtr> &batch);
    Result<void> readGroup(std::span<const PiecePtr> group);
    PiecePtr pieceFor(const Extent &extent, std::vector<PiecePtr> &batch);
    static Key keyOf(const Extent &extent);
    bool haveRoomFor(const Extent &extent);
    std::size_t takeReady(std::size_t wanted);
    Result<void> copyOut(std::span<std::byte> into);
    void giveBack();
    void expand();
    void failForMemory();
    void wakeAll();
    bool isOver() const { return stopping_ || outcome_.failed(); }
    template <class Part> void guarded(Part part);

    RestorePlan plan_;          // of the thread that reads
    std::vector<Queued> taken_; // of the caller's thread
    const unsigned workers_;
    const std::size_t maxPieces_;

    std::mutex mutex_; // guards all below
    std::condition_variable room_;
    std::condition_variable work_;
    std::condition_variable ready_;
    std::map<Key, PiecePtr> pieces_;
    std::uint64_t clock_ = 0;
    std::deque<PiecePtr> toExpand_;
    std::deque<Queued> queue_;
    bool planned_ = false;     // the queue holds all that is left
    bool readerWaits_ = false; // the thread that reads, for room
    bool stopping_ = false;
    Outcome outcome_;

    std::vector<Thread> threads_;
};

ReadAhead::~ReadAhead()
{
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
    }
    wakeAll();
    threads_.clear(); // joins
}

Result<void> ReadAhead::start()
{
    const auto noMemory = [this] { failForMemory(); };
    threads_.reserve(workers_ + 1);
    threads_.emplace_back([this] { guarded([this] { readPacks(); }); }, noMemory);
    for (unsigned i = 0; i < workers_; ++i)
        threads_.emplace_back([this] { guarded([this] { expand(); }); }, noMemory);
    return {};
}

void ReadAhead::failForMemory()
{
    {
        const std::lock_guard hold(mutex_);
        outcome_.failForMemory();
    }
    wakeAll();
}

void ReadAhead::wakeAll()
{
    room_.notify_all();
    work_.notify_all();
    ready_.notify_all();
}

template <class Part> void ReadAhead::guarded(Part part)
{
    try {
        part();
    } catch (...) {
        const std::lock_guard hold(mutex_);
        outcome_.failByException();
    }
    wakeAll();
}

ReadAhead::Key ReadAhead::keyOf(const Extent &extent)
{
    return {extent.pack->pack->which().id, extent.frame};
}

/// Whether one more extent may be queued. If its frame must be read for it, the one that was used
/// longest ago goes.
bool ReadAhead::haveRoomFor(const Extent &extent)
{
    if (queue_.size() >= kMaxExtents)
        return false;
    if (!extent.pack || pieces_.size() < maxPieces_ || pieces_.contains(keyOf(extent)))
        return true;
    auto oldest = pieces_.end();
    for (auto at = pieces_.begin(); at != pieces_.end(); ++at)
        if (at->second->awaited == 0 && at->second->ready &&
            (oldest == pieces_.end() || at->second->used < oldest->second->used))
            oldest = at;
    if (oldest == pieces_.end())
        return false;
    pieces_.erase(oldest);
    return true;
}

PiecePtr ReadAhead::pieceFor(const Extent &extent, std::vector<PiecePtr> &batch)
{
    PiecePtr &piece = pieces_[keyOf(extent)];
    if (!piece) {
        piece = std::make_shared<Piece>();
        piece->pack = extent.pack;
        piece->number = extent.frame;
        batch.push_back(piece);
    }
    ++piece->awaited;
    return piece;
}

void ReadAhead::readPacks()
{
    std::vector<PiecePtr> batch;
    std::uint64_t batchBytes = 0;
    const auto dispatch = [&]() -> Result<void> {
        auto done = readBatch(batch);
        batch.clear();
        batchBytes = 0;
        return done;
    };
    for (;;) {
        auto extent = plan_.next();
        Result<void> done = extent ? Result<void>() : Result<void>(extent.error());
        // What the caller waits for must be on its way before waiting for the caller.
        if (done && (!*extent || batchBytes >= kMaxRead))
            done = dispatch();
        Lock lock(mutex_);
        if (done && *extent && !haveRoomFor(**extent)) {
            lock.unlock();
            done = dispatch();
            lock.lock();
            readerWaits_ = true;
            room_.wait(lock, [&] { return isOver() || haveRoomFor(**extent); });
            readerWaits_ = false;
        }
        if (!done)
            outcome_.fail(std::move(done).error());
        planned_ = !isOver() && !*extent;
        if (isOver() || planned_)
            return;
        Queued queued{nullptr, (*extent)->offset, (*extent)->length, false};
        if ((*extent)->pack) {
            const std::size_t before = batch.size();
            queued.piece = pieceFor(**extent, batch);
            if (batch.size() != before)
                batchBytes += batch.back()->entry().storedBytes;
        }
        queue_.push_back(std::move(queued));
        if (queue_.front().isReady())
            ready_.notify_one();
    }
}

Result<void> ReadAhead::readBatch(std::vector<PiecePtr> &batch)
{
    // In the order of the packs, so that what lies together is read together; expanded in the order
    // of the stream.
    std::vector<PiecePtr> sorted = batch;
    std::sort(sorted.begin(), sorted.end(), [](const PiecePtr &a, const PiecePtr &b) {
        return std::pair(a->pack.get(), a->number) < std::pair(b->pack.get(), b->number);
    });
    for (std::size_t first = 0; first < sorted.size();) {
        std::size_t end = first + 1;
        const std::uint64_t start = sorted[first]->entry().offset;
        while (end < sorted.size() && sorted[end]->pack == sorted[first]->pack &&
               sorted[end]->number == sorted[end - 1]->number + 1 &&
               sorted[end]->entry().offset + sorted[end]->entry().storedBytes - start <= kMaxRead)
            ++end;
        ARCA_CHECK(readGroup(std::span(sorted).subspan(first, end - first)));
        first = end;
    }
    {
        const std::lock_guard hold(mutex_);
        toExpand_.insert(toExpand_.end(), batch.begin(), batch.end());
    }
    work_.notify_all();
    return {};
}

Result<void> ReadAhead::readGroup(std::span<const PiecePtr> group)
{
    OpenPack &pack = *group.front()->pack->pack;
    const FrameEntry &last = group.back()->entry();
    const std::uint64_t end = last.offset + last.storedBytes;
    const std::uint64_t start = group.front()->entry().offset / kAlignment * kAlignment;
    const auto length =
        static_cast<std::size_t>((end - start + kAlignment - 1) / kAlignment * kAlignment);
    const Aligned memory = allocateAligned(length);
    ARCA_TRY(const std::size_t got, pack.blob().read(start, {memory.get(), length}));
    if (got < end - start)
        return Error{ErrorKind::damaged, "the pack " + pack.blobName() + ": it was cut"};
    for (const PiecePtr &piece : group) {
        piece->read = memory;
        piece->sealed =
            ByteView(memory.get() + (piece->entry().offset - start), piece->entry().storedBytes);
    }
    return {};
}

void ReadAhead::expand()
{
    FrameCoder coder;
    Lock lock(mutex_);
    for (;;) {
        work_.wait(lock, [&] { return isOver() || !toExpand_.empty(); });
        if (isOver())
            return;
        const PiecePtr piece = toExpand_.front();
        toExpand_.pop_front();
        lock.unlock();
        const OpenPack &pack = *piece->pack->pack;
        piece->raw.resize(piece->entry().rawBytes);
        auto opened = coder.open(pack.cipher(), pack.which().id, piece->number, piece->entry(),
                                 piece->sealed, piece->raw);
        piece->read.reset();
        lock.lock();
        if (!opened)
            outcome_.fail(inContext(std::move(opened).error(), "the pack " + pack.blobName()));
        piece->ready = true;
        if (!queue_.empty() && queue_.front().piece == piece)
            ready_.notify_one();
    }
}

Result<std::size_t> ReadAhead::read(std::span<std::byte> into)
{
    std::size_t filled = 0;
    while (filled < into.size()) {
        std::size_t part = 0;
        {
            Lock lock(mutex_);
            ready_.wait(lock, [&] {
                return isOver() || (queue_.empty() ? planned_ : queue_.front().isReady());
            });
            ARCA_CHECK(outcome_.now());
            part = takeReady(into.size() - filled);
        }
        if (part == 0)
            break;
        ARCA_CHECK(copyOut(into.subspan(filled, part)));
        filled += part;
        giveBack();
    }
    return filled;
}

/// Takes what is ready off the queue, up to that many bytes; how many they are. Many at a time:
/// with a piece that was pieced together over many days they are a block each.
std::size_t ReadAhead::takeReady(std::size_t wanted)
{
    std::size_t bytes = 0;
    while (bytes < wanted && !queue_.empty() && queue_.front().isReady()) {
        Queued &front = queue_.front();
        const auto part =
            static_cast<std::size_t>(std::min<std::uint64_t>(front.length, wanted - bytes));
        taken_.push_back({front.piece, front.offset, part, part == front.length});
        bytes += part;
        front.offset += static_cast<std::uint32_t>(front.piece ? part : 0);
        front.length -= part;
        if (front.length == 0)
            queue_.pop_front();
    }
    return bytes;
}

Result<void> ReadAhead::copyOut(std::span<std::byte> into)
{
    for (const Queued &one : taken_) {
        const auto length = static_cast<std::size_t>(one.length);
        if (!one.piece)
            std::fill_n(into.begin(), length, std::byte{0});
        else if (one.offset + length <= one.piece->raw.size())
            std::copy_n(one.piece->raw.begin() + one.offset, length, into.begin());
        else
            return Error{ErrorKind::damaged, "a run leads beyond its frame"};
        into = into.subspan(length);
    }
    return {};
}

void ReadAhead::giveBack()
{
    const std::lock_guard hold(mutex_);
    for (const Queued &one : taken_) {
        if (!one.piece)
            continue;
        one.piece->awaited -= one.ends ? 1 : 0;
        one.piece->used = ++clock_;
    }
    taken_.clear();
    if (readerWaits_)
        room_.notify_one();
}

} // namespace

Result<std::unique_ptr<StreamReader>> StreamReader::begin(const PackStore &packs,
                                                          const Settings &settings, RunSource &runs)
{
    auto reader = std::make_unique<ReadAhead>(packs, settings, runs);
    ARCA_CHECK(reader->start());
    return std::unique_ptr<StreamReader>(std::move(reader));
}

} // namespace arca::engine
