// Putting a stream together ahead of its reader. One thread plans: which frames the next part of
// the stream needs, and where their bytes come to lie in the window. It waits with each frame until
// the stream was planned well beyond it, so that all that is near is taken from it at once. Others
// read, several at a time, so that nothing waits for a single access to the disk. Workers open and
// expand a frame and put its bytes into their places. The caller's thread only copies from the
// front.
//
// One mutex guards the window's book-keeping and the queues; reading, opening and copying are done
// without it.
#include "client/engine/restoring/stream_reader.h"

#include "client/base/thread.h"
#include "client/engine/packs/outcome.h"
#include "client/engine/restoring/frame_fetcher.h"
#include "client/engine/restoring/later_revision.h"
#include "client/engine/restoring/restore_queue.h"
#include "client/engine/restoring/restore_tasks.h"
#include "client/engine/restoring/restore_window.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace arca::engine
{

namespace
{

constexpr unsigned kReadsAtOnce = 4;
constexpr std::size_t kWorthWaking = std::size_t{1} << 20;

class ReadAhead final : public StreamReader
{
public:
    ReadAhead(const PackStore &packs, const Settings &settings, RunSource &runs)
        : tasks_(packs, runs, settings.memory / 16 * 5), fetcher_(settings.memory / 4),
          later_(packs), workers_(workersFor(settings)), portion_(settings.memory / 16),
          window_(settings.memory / 2), queue_(settings.memory / 4)
    {
    }
    ~ReadAhead() override;

    void start();
    Result<std::size_t> read(std::span<std::byte> into) override;
    std::vector<DamagedPart> damage() override;

private:
    using Lock = std::unique_lock<std::mutex>;

    void lookAhead();
    Result<void> planPortion(std::size_t room);
    void dispatch(std::vector<RestoreTaskPtr> tasks);
    void readStretches();
    void wakeWorkers(std::size_t tasks);
    void expand();
    Result<void> fill(RestoreTask &task, FrameCoder &coder, Bytes &scratch);
    Result<void> fillFromLater(const RestoreTask &task, FrameCoder &coder);
    void put(const Part &part, ByteView bytes);
    void failFrame(const RestoreTask &task, const Stretch *stretch, Error failure);
    void failForMemory();
    void wakeAll();
    bool isOver() const { return stopping_ || outcome_.failed(); }
    /// Whether the caller's thread goes on. For each little portion it would take a processor away
    /// from a worker. What is being fetched at any time is more than this.
    bool isWorthWaking() const
    {
        return window_.ready() >= kWorthWaking ||
               (window_.isClosed() && (window_.ready() > 0 || window_.atEnd()));
    }
    template <class Work> void guarded(Work work);

    // Of the thread that looks ahead.
    RestoreTasks tasks_;
    FrameFetcher fetcher_;

    LaterRevisions later_;
    const unsigned workers_;
    const std::size_t portion_; // so much is planned at a time
    const std::shared_ptr<IoBuffers> buffers_ = std::make_shared<IoBuffers>();

    std::mutex mutex_; // guards all below, but for the memory of the window
    std::condition_variable room_;
    std::condition_variable reads_;
    std::condition_variable work_;
    std::condition_variable ready_;
    RestoreWindow window_;
    RestoreQueue queue_;
    bool stopping_ = false;
    Outcome outcome_;
    std::set<DamagedPart> damage_;

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

void ReadAhead::start()
{
    const auto noMemory = [this] { failForMemory(); };
    threads_.reserve(1 + kReadsAtOnce + workers_);
    threads_.emplace_back([this] { guarded([this] { lookAhead(); }); }, noMemory);
    for (unsigned i = 0; i < kReadsAtOnce; ++i)
        threads_.emplace_back([this] { guarded([this] { readStretches(); }); }, noMemory);
    for (unsigned i = 0; i < workers_; ++i)
        threads_.emplace_back([this] { guarded([this] { expand(); }); }, noMemory);
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
    reads_.notify_all();
    work_.notify_all();
    ready_.notify_all();
}

template <class Work> void ReadAhead::guarded(Work work)
{
    try {
        work();
    } catch (...) {
        const std::lock_guard hold(mutex_);
        outcome_.failByException();
    }
    wakeAll();
}

void ReadAhead::lookAhead()
{
    while (!tasks_.allPlanned()) {
        std::size_t room = 0;
        {
            Lock lock(mutex_);
            room_.wait(lock, [&] { return isOver() || window_.room() >= portion_; });
            if (isOver())
                return;
            room = window_.room();
        }
        if (auto done = planPortion(room); !done) {
            const std::lock_guard hold(mutex_);
            if (const auto part = tasks_.damage())
                damage_.insert(*part);
            outcome_.fail(std::move(done).error());
            return;
        }
        for (auto due = tasks_.takeDue(); !due.empty(); due = tasks_.takeDue())
            dispatch(std::move(due));
    }
}

/// Plans as much of the stream as the window has room for.
Result<void> ReadAhead::planPortion(std::size_t room)
{
    ARCA_TRY(const std::size_t planned, tasks_.plan(room));
    const std::lock_guard hold(mutex_);
    window_.extend(planned);
    if (tasks_.allPlanned()) {
        window_.close();
        ready_.notify_one();
    }
    return {};
}

void ReadAhead::dispatch(std::vector<RestoreTaskPtr> tasks)
{
    std::vector<FetchedFrame *> frames;
    for (const RestoreTaskPtr &task : tasks)
        if (task->frame.pack)
            frames.push_back(&task->frame);
    const FrameFetcher::Stretches fresh = fetcher_.assign(frames);
    const std::lock_guard hold(mutex_);
    wakeWorkers(queue_.add(fresh, std::move(tasks)));
    if (queue_.canRead())
        reads_.notify_one();
}

void ReadAhead::wakeWorkers(std::size_t tasks)
{
    for (; tasks != 0; --tasks)
        work_.notify_one();
}

void ReadAhead::readStretches()
{
    Lock lock(mutex_);
    for (;;) {
        reads_.wait(lock, [&] { return isOver() || queue_.canRead(); });
        if (isOver())
            return;
        const std::shared_ptr<Stretch> stretch = queue_.beginRead();
        if (queue_.canRead())
            reads_.notify_one(); // another one
        lock.unlock();
        auto done = stretch->read(*buffers_);
        lock.lock();
        if (!done) {
            outcome_.fail(std::move(done).error());
            return; // and everybody is woken
        }
        wakeWorkers(queue_.endRead(stretch));
    }
}

void ReadAhead::expand()
{
    FrameCoder coder;
    Bytes scratch;
    Lock lock(mutex_);
    for (;;) {
        work_.wait(lock, [&] { return isOver() || queue_.canExpand(); });
        if (isOver())
            return;
        const RestoreTaskPtr task = queue_.takeTask();
        lock.unlock();
        auto done = fill(*task, coder, scratch);
        const std::shared_ptr<Stretch> stretch = std::move(task->frame.stretch);
        lock.lock();
        if (queue_.letGo(stretch.get()))
            reads_.notify_one();
        const bool wasWorthIt = isWorthWaking();
        if (!done)
            failFrame(*task, stretch.get(), std::move(done).error());
        else
            for (const Part &part : task->parts)
                window_.filled(part.position, part.length);
        if (!done || (!wasWorthIt && isWorthWaking()))
            ready_.notify_one();
    }
}

/// The mutex is held. A revision that is gone has no damage.
void ReadAhead::failFrame(const RestoreTask &task, const Stretch *stretch, Error failure)
{
    if (failure.kind == ErrorKind::damaged && stretch != nullptr && !stretch->isGone()) {
        const PackName &pack = task.frame.pack->pack->which();
        damage_.insert({pack.id, pack.revision, DamageKind::frame, task.frame.number});
    }
    outcome_.fail(std::move(failure));
}

std::vector<DamagedPart> ReadAhead::damage()
{
    const std::lock_guard hold(mutex_);
    return {damage_.begin(), damage_.end()};
}

/// Brings the bytes of a task to their places in the window.
Result<void> ReadAhead::fill(RestoreTask &task, FrameCoder &coder, Bytes &scratch)
{
    if (!task.frame.pack) {
        for (const Part &part : task.parts)
            put(part, {});
        return {};
    }
    if (task.frame.stretch->isGone())
        return fillFromLater(task, coder);
    const OpenPack &pack = *task.frame.pack->pack;
    const FrameEntry &entry = task.frame.entry();
    const Part &first = task.parts.front();
    const auto place = window_.memoryAt(first.position, first.length);
    // A frame that is needed as it is goes straight to its place.
    const bool whole = task.parts.size() == 1 && place.size() == entry.rawBytes;
    if (!whole && scratch.size() < entry.rawBytes)
        scratch.resize(std::max<std::size_t>(entry.rawBytes, kFrameBytes));
    const auto raw = whole ? place : std::span(scratch).first(entry.rawBytes);
    ARCA_TRY(const ByteView sealed, task.frame.stretch->sealed(entry));
    auto opened = coder.open(pack.cipher(), pack.which().id, task.frame.number, entry, sealed, raw);
    if (!opened)
        return inContext(std::move(opened).error(), "the pack " + pack.blobName());
    if (!whole)
        for (const Part &part : task.parts)
            put(part, raw.subspan(part.offset, part.length));
    return {};
}

Result<void> ReadAhead::fillFromLater(const RestoreTask &task, FrameCoder &coder)
{
    for (const Part &part : task.parts)
        ARCA_CHECK(
            later_.read(*task.frame.pack, task.frame.number, part.offset, part.length, coder,
                        [&](std::uint32_t at, ByteView bytes) {
                            put({at, bytes.size(), part.position + (at - part.offset)}, bytes);
                        }));
    return {};
}

/// Empty bytes: zeros.
void ReadAhead::put(const Part &part, ByteView bytes)
{
    for (std::size_t done = 0; done < part.length;) {
        const auto room = window_.memoryAt(part.position + done, part.length - done);
        if (bytes.empty())
            std::fill(room.begin(), room.end(), std::byte{0});
        else
            std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(done), room.size(),
                        room.begin());
        done += room.size();
    }
}

Result<std::size_t> ReadAhead::read(std::span<std::byte> into)
{
    std::size_t filled = 0;
    while (filled < into.size()) {
        std::span<std::byte> ready;
        {
            Lock lock(mutex_);
            if (window_.ready() == 0)
                ready_.wait(lock, [&] { return isOver() || isWorthWaking(); });
            ARCA_CHECK(outcome_.now());
            if (window_.ready() == 0)
                break;
            ready =
                window_.memoryAt(window_.front(), std::min(into.size() - filled, window_.ready()));
        }
        std::copy(ready.begin(), ready.end(), into.begin() + static_cast<std::ptrdiff_t>(filled));
        filled += ready.size();
        const std::lock_guard hold(mutex_);
        const std::size_t before = window_.room();
        window_.giveOut(ready.size());
        if (before < portion_ && window_.room() >= portion_)
            room_.notify_one();
    }
    return filled;
}

} // namespace

Result<std::unique_ptr<StreamReader>> StreamReader::begin(const PackStore &packs,
                                                          const Settings &settings, RunSource &runs)
{
    auto reader = std::make_unique<ReadAhead>(packs, settings, runs);
    reader->start();
    return std::unique_ptr<StreamReader>(std::move(reader));
}

} // namespace arca::engine
