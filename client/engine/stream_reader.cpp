// Putting a stream together ahead of its reader. One thread plans: which frames the next part of
// the stream needs, and where their bytes come to lie in the window. It waits with each frame until
// the stream was planned well beyond it, so that all that is near is taken from it at once. Others
// read, several at a time, so that nothing waits for a single access to the disk. Workers open and
// expand a frame and put its bytes into their places. The caller's thread only copies from the
// front.
//
// One mutex guards the window's book-keeping and the queues; reading, opening and copying are done
// without it.
#include "client/engine/stream_reader.h"

#include "client/base/thread.h"
#include "client/engine/frame_fetcher.h"
#include "client/engine/outcome.h"
#include "client/engine/restore_window.h"
#include "client/engine/stream_writer.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>

namespace arca::engine
{

namespace
{

constexpr std::uint64_t kFetchTogether = std::uint64_t{3} << 20;
/// Small reads go on side by side; of large ones the nearest is done first.
constexpr unsigned kReadsAtOnce = 4;
constexpr std::size_t kReadAtOnce = std::size_t{1} << 20;
constexpr std::size_t kWorthWaking = std::size_t{1} << 20;

/// Bytes of a frame, and where in the stream they belong.
struct Part {
    std::uint32_t offset = 0;
    std::size_t length = 0;
    std::uint64_t position = 0;
};

/// A frame to expand; without one, zeros.
struct Task {
    FetchedFrame frame;
    std::vector<Part> parts; // the first is the nearest one

    void add(const Part &part)
    {
        if (!parts.empty() && parts.back().offset + parts.back().length == part.offset &&
            parts.back().position + parts.back().length == part.position)
            parts.back().length += part.length;
        else
            parts.push_back(part);
    }
};
using TaskPtr = std::unique_ptr<Task>;

class ReadAhead final : public StreamReader
{
public:
    ReadAhead(const PackStore &packs, const Settings &settings, RunSource &runs)
        : plan_(packs, runs), fetcher_(settings.memory / 4), workers_(workersFor(settings)),
          portion_(settings.memory / 16), horizon_(settings.memory / 16 * 5),
          maxRead_(settings.memory / 4), window_(settings.memory / 2)
    {
    }
    ~ReadAhead() override;

    void start();
    Result<std::size_t> read(std::span<std::byte> into) override;

private:
    using Lock = std::unique_lock<std::mutex>;

    void lookAhead();
    Result<void> planPortion(std::size_t room);
    Result<void> place(const Extent &extent);
    void dispatchDue();
    void dispatch(std::vector<TaskPtr> tasks);
    void readStretches();
    bool canRead() const;
    void use(TaskPtr task);
    void expand();
    Result<void> fill(Task &task, FrameCoder &coder, Bytes &scratch);
    void put(const Part &part, ByteView bytes);
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
    RestorePlan plan_;
    FrameFetcher fetcher_;
    std::optional<Extent> rest_; // what did not fit into the window any more
    std::uint64_t planned_ = 0;
    bool allPlanned_ = false;
    std::deque<TaskPtr> pending_; // not yet fetched, in the order of the stream
    std::map<std::pair<const PackLayout *, std::uint32_t>, Task *> open_; // the frames among them

    const unsigned workers_;
    const std::size_t portion_; // so much is planned at a time,
    const std::size_t horizon_; // and so far beyond a frame, before it is fetched
    const std::size_t maxRead_; // so much may have been read and not expanded
    const std::shared_ptr<IoBuffers> buffers_ = std::make_shared<IoBuffers>();

    std::mutex mutex_; // guards all below, but for the memory of the window
    std::condition_variable room_;
    std::condition_variable reads_;
    std::condition_variable work_;
    std::condition_variable ready_;
    RestoreWindow window_;
    std::deque<std::shared_ptr<Stretch>> toRead_;
    std::map<const Stretch *, std::vector<TaskPtr>> waiting_; // for what is not read yet
    std::size_t reading_ = 0;
    std::size_t read_ = 0; // bytes of stretches that tasks still need
    std::deque<TaskPtr> toExpand_;
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
    while (!allPlanned_) {
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
            outcome_.fail(std::move(done).error());
            return;
        }
        dispatchDue();
    }
}

/// Plans as much of the stream as the window has room for.
Result<void> ReadAhead::planPortion(std::size_t room)
{
    const std::uint64_t before = planned_;
    while (planned_ - before < room) {
        if (!rest_) {
            ARCA_TRY(rest_, plan_.next());
            allPlanned_ = !rest_;
            if (allPlanned_)
                break;
        }
        Extent now = *rest_;
        now.length = std::min<std::uint64_t>(now.length, room - (planned_ - before));
        ARCA_CHECK(place(now));
        planned_ += now.length;
        rest_->length -= now.length;
        rest_->offset += static_cast<std::uint32_t>(now.pack ? now.length : 0);
        if (rest_->length == 0)
            rest_.reset();
    }
    const std::lock_guard hold(mutex_);
    window_.extend(static_cast<std::size_t>(planned_ - before));
    if (allPlanned_) {
        window_.close();
        ready_.notify_one();
    }
    return {};
}

Result<void> ReadAhead::place(const Extent &extent)
{
    const Part part{extent.offset, static_cast<std::size_t>(extent.length), planned_};
    Task *task = nullptr;
    if (extent.pack) {
        if (extent.offset + extent.length > extent.pack->frames[extent.frame].rawBytes)
            return Error{ErrorKind::damaged, "a run leads beyond its frame"};
        Task *&known = open_[{extent.pack.get(), extent.frame}];
        if (known != nullptr) {
            known->add(part);
            return {};
        }
        pending_.push_back(std::make_unique<Task>());
        task = known = pending_.back().get();
        task->frame.pack = extent.pack;
        task->frame.number = extent.frame;
    } else {
        pending_.push_back(std::make_unique<Task>());
        task = pending_.back().get();
    }
    task->add(part);
    return {};
}

/// What lies far enough back is fetched; nothing of what comes later will be near it.
void ReadAhead::dispatchDue()
{
    std::vector<TaskPtr> due;
    std::uint64_t bytes = 0;
    while (!pending_.empty() &&
           (allPlanned_ || pending_.front()->parts.front().position + horizon_ <= planned_)) {
        const FetchedFrame &frame = pending_.front()->frame;
        if (frame.pack) {
            open_.erase({frame.pack.get(), frame.number});
            bytes += frame.entry().storedBytes;
        }
        due.push_back(std::move(pending_.front()));
        pending_.pop_front();
        if (bytes >= kFetchTogether) {
            dispatch(std::move(due));
            due.clear();
            bytes = 0;
        }
    }
    dispatch(std::move(due));
}

void ReadAhead::dispatch(std::vector<TaskPtr> tasks)
{
    std::vector<FetchedFrame *> frames;
    for (const TaskPtr &task : tasks)
        if (task->frame.pack)
            frames.push_back(&task->frame);
    const FrameFetcher::Stretches fresh = fetcher_.assign(frames);
    const std::lock_guard hold(mutex_);
    for (const auto &stretch : fresh) {
        waiting_.try_emplace(stretch.get());
        toRead_.push_back(stretch);
    }
    for (TaskPtr &task : tasks) {
        const auto reading = waiting_.find(task->frame.stretch.get());
        if (reading != waiting_.end()) {
            reading->second.push_back(std::move(task));
        } else {
            use(std::move(task));
            work_.notify_one();
        }
    }
    if (canRead())
        reads_.notify_one();
}

/// What it needs is in memory. With the mutex.
void ReadAhead::use(TaskPtr task)
{
    if (Stretch *const stretch = task->frame.stretch.get(); stretch != nullptr)
        read_ += stretch->users++ == 0 ? stretch->bytes() : 0;
    toExpand_.push_back(std::move(task));
}

bool ReadAhead::canRead() const
{
    return !toRead_.empty() && read_ < maxRead_ &&
           (reading_ == 0 || reading_ + toRead_.front()->bytes() <= kReadAtOnce);
}

void ReadAhead::readStretches()
{
    Lock lock(mutex_);
    for (;;) {
        reads_.wait(lock, [&] { return isOver() || canRead(); });
        if (isOver())
            return;
        const std::shared_ptr<Stretch> stretch = std::move(toRead_.front());
        toRead_.pop_front();
        reading_ += stretch->bytes();
        if (canRead())
            reads_.notify_one(); // another one
        lock.unlock();
        auto done = stretch->read(*buffers_);
        lock.lock();
        reading_ -= stretch->bytes();
        if (!done) {
            outcome_.fail(std::move(done).error());
            return; // and everybody is woken
        }
        auto tasks = waiting_.extract(stretch.get());
        for (TaskPtr &task : tasks.mapped()) {
            use(std::move(task));
            work_.notify_one();
        }
    }
}

void ReadAhead::expand()
{
    FrameCoder coder;
    Bytes scratch;
    Lock lock(mutex_);
    for (;;) {
        work_.wait(lock, [&] { return isOver() || !toExpand_.empty(); });
        if (isOver())
            return;
        TaskPtr task = std::move(toExpand_.front());
        toExpand_.pop_front();
        lock.unlock();
        auto done = fill(*task, coder, scratch);
        const std::shared_ptr<Stretch> stretch = std::move(task->frame.stretch);
        lock.lock();
        if (stretch && --stretch->users == 0) {
            const bool wasFull = read_ >= maxRead_;
            read_ -= stretch->bytes();
            if (wasFull && canRead())
                reads_.notify_one();
        }
        const bool wasWorthIt = isWorthWaking();
        if (!done)
            outcome_.fail(std::move(done).error());
        else
            for (const Part &part : task->parts)
                window_.filled(part.position, part.length);
        if (!done || (!wasWorthIt && isWorthWaking()))
            ready_.notify_one();
    }
}

/// Brings the bytes of a task to their places in the window.
Result<void> ReadAhead::fill(Task &task, FrameCoder &coder, Bytes &scratch)
{
    if (!task.frame.pack) {
        for (const Part &part : task.parts)
            put(part, {});
        return {};
    }
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
