// The pipeline. One mutex guards the queues; all work is done without it.
#include "client/engine/writing/stream_writer.h"

#include "client/base/thread.h"
#include "client/engine/packs/outcome.h"
#include "client/engine/writing/cutter.h"
#include "client/engine/writing/defragmenter.h"
#include "client/engine/writing/pack_gatherer.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

namespace arca::engine
{

namespace
{

using ChunkPtr = std::unique_ptr<Chunk>;

/// So much of the memory of a stream for each chunk that it looks ahead; a chunk itself takes 1.25
/// MiB. What a day of a database changes fills a frame within some 8 MiB.
constexpr std::size_t kMemoryPerSight = std::size_t{6} << 20;
constexpr std::size_t kMaxSight = 16;

class Pipeline final : public StreamWriter
{
public:
    Pipeline(Domain &domain, AvoidedPacks avoided, const Settings &settings, RunSink &runs);
    ~Pipeline() override;

    Result<void> start();
    Result<void> append(ByteView bytes) override;
    Result<StreamTotals> finish() override;

private:
    using Lock = std::unique_lock<std::mutex>;

    // The caller's side.
    Result<void> takeChunk();
    Result<void> handOver();

    // The workers.
    void work();
    bool step(Lock &lock, FrameCoder &coder);
    void cutAndHash(Lock &lock);
    bool canPlace() const;
    void place(Lock &lock);
    void seal(Lock &lock, FrameCoder &coder);
    std::vector<const Chunk *> comeIntoSight();
    void lookUp(const Chunk &chunk);
    Result<void> placeBlocks(const Chunk &chunk, const KnownBlocks &blocks);
    Result<void> queueFrame(std::unique_ptr<Frame> frame);
    Result<void> flush();

    // The thread that writes.
    void write();
    Result<void> writeFrame(const Frame &frame);

    void fail(Error failure);
    void failForMemory();
    void wakeAll();
    /// Runs a part of the work; what it throws is thrown again on the caller's thread.
    template <class Part> void guarded(Part part);
    bool isOver() const { return stopping_ || outcome_.failed(); }

    Domain &domain_;
    const Settings settings_;
    const unsigned workers_;
    const std::size_t maxFrames_;
    const std::size_t sight_; // chunks beyond the one that is placed

    // Each used by one stage, which one thread at a time is in.
    Cutter cutter_;
    StreamDigest digest_;
    DuplicateIndex duplicates_;
    Defragmenter defragmenter_;
    PackGatherer gatherer_;
    RunMerger merger_;
    std::unique_ptr<PackWriter> pack_;
    ChunkPtr filling_; // the caller's

    std::mutex mutex_; // guards all below
    std::condition_variable work_;
    std::condition_variable written_;
    std::condition_variable room_;
    std::deque<ChunkPtr> spare_;
    unsigned chunks_ = 0; // made so far
    std::deque<ChunkPtr> toCut_;
    bool cutting_ = false;
    std::uint64_t nextCut_ = 0;
    std::map<std::uint64_t, ChunkPtr> hashed_;
    std::uint64_t nextSight_ = 0;
    std::uint64_t nextPlace_ = 0;
    bool placing_ = false;
    std::deque<std::unique_ptr<Frame>> toSeal_;
    std::map<std::uint64_t, std::unique_ptr<Frame>> sealed_;
    std::uint64_t nextFrame_ = 0;
    std::uint64_t nextWrite_ = 0;
    std::size_t framesInFlight_ = 0;
    bool allPlaced_ = false;
    bool finished_ = false;
    bool stopping_ = false;
    Outcome outcome_;
    StreamTotals totals_;

    std::vector<Thread> threads_;
};

Pipeline::Pipeline(Domain &domain, AvoidedPacks avoided, const Settings &settings, RunSink &runs)
    : domain_(domain), settings_(settings), workers_(workersFor(settings)),
      maxFrames_(std::max<std::size_t>(8, settings.memory / 4 / (2 * kFrameBytes))),
      sight_(settings.deduplication ? std::min(settings.memory / kMemoryPerSight, kMaxSight) : 0),
      cutter_(settings.blockSize, settings.deduplication),
      duplicates_(domain, std::move(avoided), settings), defragmenter_(duplicates_),
      gatherer_(domain.packs(), settings_), merger_(runs)
{
}

Result<void> Pipeline::start()
{
    ARCA_CHECK(gatherer_.start());
    const auto noMemory = [this] { failForMemory(); };
    threads_.reserve(workers_ + 1);
    for (unsigned i = 0; i < workers_; ++i)
        threads_.emplace_back([this] { work(); }, noMemory);
    threads_.emplace_back([this] { write(); }, noMemory);
    return {};
}

Pipeline::~Pipeline()
{
    {
        const std::lock_guard hold(mutex_);
        stopping_ = true;
    }
    wakeAll();
    threads_.clear(); // joins
}

Result<void> Pipeline::append(ByteView bytes)
{
    while (!bytes.empty()) {
        ARCA_CHECK(takeChunk());
        const auto room = filling_->room();
        const std::size_t part = std::min(room.size(), bytes.size());
        std::copy_n(bytes.begin(), part, room.begin());
        filling_->end += part;
        bytes = bytes.subspan(part);
        if (part == room.size())
            ARCA_CHECK(handOver());
    }
    const std::lock_guard hold(mutex_);
    return outcome_.now();
}

/// Makes sure that there is a chunk to fill; waits for one when enough are on their way.
Result<void> Pipeline::takeChunk()
{
    if (filling_)
        return {};
    Lock lock(mutex_);
    const bool another = spare_.empty() && chunks_ < sight_ + workers_ + 3;
    if (another) {
        ++chunks_;
        lock.unlock();
        filling_ = std::make_unique<Chunk>();
        lock.lock();
    } else {
        room_.wait(lock, [&] { return !spare_.empty() || isOver(); });
    }
    ARCA_CHECK(outcome_.now());
    if (!another) {
        filling_ = std::move(spare_.front());
        spare_.pop_front();
    }
    filling_->clear();
    return {};
}

Result<void> Pipeline::handOver()
{
    {
        const std::lock_guard hold(mutex_);
        ARCA_CHECK(outcome_.now());
        totals_.streamBytes += filling_->end - filling_->begin;
        toCut_.push_back(std::move(filling_));
    }
    work_.notify_one();
    return {};
}

Result<StreamTotals> Pipeline::finish()
{
    ARCA_CHECK(takeChunk());
    filling_->last = true;
    ARCA_CHECK(handOver());
    Lock lock(mutex_);
    room_.wait(lock, [&] { return finished_ || isOver(); });
    ARCA_CHECK(outcome_.now());
    totals_.digest = digest_.value();
    totals_.lookups = duplicates_.counts();
    return totals_;
}

void Pipeline::failForMemory()
{
    {
        const std::lock_guard hold(mutex_);
        outcome_.failForMemory();
    }
    wakeAll();
}

void Pipeline::wakeAll()
{
    work_.notify_all();
    written_.notify_all();
    room_.notify_all();
}

void Pipeline::fail(Error failure)
{
    {
        const std::lock_guard hold(mutex_);
        outcome_.fail(std::move(failure));
    }
    wakeAll();
}

template <class Part> void Pipeline::guarded(Part part)
{
    try {
        part();
    } catch (...) {
        {
            const std::lock_guard hold(mutex_);
            outcome_.failByException();
        }
        wakeAll();
    }
}

void Pipeline::work()
{
    guarded([&] {
        FrameCoder coder;
        Lock lock(mutex_);
        while (!isOver() && !finished_)
            if (!step(lock, coder))
                work_.wait(lock);
    });
}

/// One piece of work, the nearest to the end first; false when there is none.
bool Pipeline::step(Lock &lock, FrameCoder &coder)
{
    if (!toSeal_.empty()) {
        seal(lock, coder);
        return true;
    }
    if (canPlace()) {
        place(lock);
        return true;
    }
    if (!cutting_ && !toCut_.empty()) {
        cutAndHash(lock);
        return true;
    }
    return false;
}

void Pipeline::cutAndHash(Lock &lock)
{
    cutting_ = true;
    ChunkPtr chunk = std::move(toCut_.front());
    toCut_.pop_front();
    const std::uint64_t number = nextCut_++;
    lock.unlock();
    digest_.update(ByteView(chunk->storage).subspan(chunk->begin, chunk->end - chunk->begin));
    cutter_.cut(*chunk);
    lock.lock();
    cutting_ = false;
    const bool more = !toCut_.empty();
    lock.unlock();
    if (more)
        work_.notify_one();
    if (settings_.deduplication)
        for (Cut &cut : chunk->cuts)
            if (!cut.zero)
                cut.id = domain_.identify()(chunk->at(cut));
    lock.lock();
    hashed_.emplace(number, std::move(chunk));
    work_.notify_one();
}

/// What becomes of a chunk depends on those that follow it.
bool Pipeline::canPlace() const
{
    if (placing_ || framesInFlight_ >= maxFrames_ || hashed_.empty())
        return false;
    const std::size_t ahead = std::min(sight_, hashed_.size() - 1);
    const auto &[number, chunk] = *std::next(hashed_.begin(), static_cast<std::ptrdiff_t>(ahead));
    // None is missing between them.
    return number == nextPlace_ + ahead && (ahead == sight_ || chunk->last);
}

/// The chunks that can be seen now, and could not before.
std::vector<const Chunk *> Pipeline::comeIntoSight()
{
    std::vector<const Chunk *> fresh;
    for (auto at = hashed_.find(nextSight_);
         at != hashed_.end() && nextSight_ <= nextPlace_ + sight_; at = hashed_.find(nextSight_)) {
        fresh.push_back(at->second.get());
        ++nextSight_;
    }
    return fresh;
}

void Pipeline::place(Lock &lock)
{
    placing_ = true;
    const std::vector<const Chunk *> fresh = comeIntoSight();
    ChunkPtr chunk = std::move(hashed_.begin()->second);
    hashed_.erase(hashed_.begin());
    lock.unlock();
    for (const Chunk *const seen : fresh)
        lookUp(*seen);
    auto placed = placeBlocks(*chunk, defragmenter_.settle());
    if (placed && chunk->last)
        placed = flush();
    if (!placed)
        fail(std::move(placed).error());
    lock.lock();
    placing_ = false;
    ++nextPlace_;
    allPlaced_ = allPlaced_ || chunk->last;
    spare_.push_back(std::move(chunk));
    room_.notify_one();
    work_.notify_one();
    if (allPlaced_)
        written_.notify_one();
}

void Pipeline::lookUp(const Chunk &chunk)
{
    KnownBlocks known(chunk.cuts.size());
    if (settings_.deduplication)
        for (std::size_t i = 0; i < known.size(); ++i)
            if (!chunk.cuts[i].zero)
                known[i] = duplicates_.find(chunk.cuts[i].id);
    defragmenter_.see(chunk.cuts, std::move(known));
}

Result<void> Pipeline::placeBlocks(const Chunk &chunk, const KnownBlocks &blocks)
{
    std::uint64_t zeros = 0;
    std::uint64_t fresh = 0;
    auto known = blocks.cbegin();
    for (const Cut &cut : chunk.cuts) {
        const std::optional<StoredBlock> &stored = *known++;
        if (cut.zero) {
            zeros += cut.length;
            ARCA_CHECK(merger_.addZeros(cut.length));
            continue;
        }
        if (settings_.deduplication) {
            // Since it was looked up the stream may have stored it itself.
            if (const auto there =
                    stored ? std::optional(stored->place) : duplicates_.findOwn(cut.id)) {
                ARCA_CHECK(merger_.addBlock(*there));
                continue;
            }
        }
        fresh += cut.length;
        if (auto full = gatherer_.makeRoom(cut.length))
            ARCA_CHECK(queueFrame(std::move(full)));
        ARCA_TRY(const BlockRef place, gatherer_.add(cut.id, chunk.at(cut)));
        if (settings_.deduplication)
            duplicates_.addOwn(place, cut.id);
        ARCA_CHECK(merger_.addBlock(place));
    }
    const std::lock_guard hold(mutex_);
    totals_.zeroBytes += zeros;
    totals_.newBytes += fresh;
    return {};
}

Result<void> Pipeline::queueFrame(std::unique_ptr<Frame> frame)
{
    {
        const std::lock_guard hold(mutex_);
        frame->sequence = nextFrame_++;
        ++framesInFlight_;
        toSeal_.push_back(std::move(frame));
    }
    work_.notify_one();
    return {};
}

Result<void> Pipeline::flush()
{
    if (auto last = gatherer_.takeLast())
        ARCA_CHECK(queueFrame(std::move(last)));
    return merger_.flush();
}

void Pipeline::seal(Lock &lock, FrameCoder &coder)
{
    std::unique_ptr<Frame> frame = std::move(toSeal_.front());
    toSeal_.pop_front();
    lock.unlock();
    Result<void> done;
    if (!frame->raw.empty())
        done = coder.seal(settings_, frame->pack->cipher, frame->pack->header.id, frame->number,
                          frame->raw, frame->sealed);
    if (!done)
        fail(std::move(done).error());
    else
        gatherer_.learn(frame->raw.size(), frame->sealed.bytes.size());
    lock.lock();
    const std::uint64_t sequence = frame->sequence;
    sealed_.emplace(sequence, std::move(frame));
    if (sequence == nextWrite_)
        written_.notify_one();
}

void Pipeline::write()
{
    guarded([&] {
        Lock lock(mutex_);
        for (;;) {
            const auto ready = [&] {
                return !sealed_.empty() && sealed_.begin()->first == nextWrite_;
            };
            written_.wait(lock, [&] {
                return isOver() || ready() || (allPlaced_ && nextWrite_ == nextFrame_);
            });
            if (isOver())
                return;
            if (!ready())
                break;
            const std::unique_ptr<Frame> frame = std::move(sealed_.begin()->second);
            sealed_.erase(sealed_.begin());
            lock.unlock();
            auto done = writeFrame(*frame);
            if (!done)
                fail(std::move(done).error());
            lock.lock();
            ++nextWrite_;
            --framesInFlight_;
            work_.notify_one();
        }
        finished_ = true;
        work_.notify_all();
        room_.notify_all();
    });
}

Result<void> Pipeline::writeFrame(const Frame &frame)
{
    if (!pack_) {
        ARCA_TRY(pack_, domain_.packs().begin({frame.pack->header.id, 1}, frame.pack->header));
    }
    if (!frame.raw.empty())
        ARCA_CHECK(pack_->append(frame.sealed, frame.blocks));
    if (!frame.endsPack)
        return {};
    ARCA_CHECK(pack_->commit());
    if (settings_.deduplication)
        domain_.hints().remember(frame.pack->header.id, pack_->index());
    const std::lock_guard hold(mutex_);
    totals_.storedBytes += pack_->storedBytes();
    pack_.reset();
    return {};
}

} // namespace

Result<std::unique_ptr<StreamWriter>> StreamWriter::begin(Domain &domain, AvoidedPacks avoided,
                                                          const Settings &settings, RunSink &runs)
{
    auto pipeline = std::make_unique<Pipeline>(domain, std::move(avoided), settings, runs);
    ARCA_CHECK(pipeline->start());
    return std::unique_ptr<StreamWriter>(std::move(pipeline));
}

} // namespace arca::engine
