// Files in memory: see the header.
#include "tests/client/store/memory_files.h"

#include <algorithm>
#include <functional>
#include <thread>
#include <utility>

namespace arca::test
{

namespace
{

using Node = MemoryFiles::Node;
using Event = MemoryFiles::Event;
using Course = MemoryFiles::Course;

class MemoryFile final : public blob::File
{
public:
    MemoryFile(MemoryFiles &files, std::shared_ptr<Node> node)
        : files_(files), node_(std::move(node))
    {
    }
    ~MemoryFile() override
    {
        const auto one = files_.hold();
        if (!holdsLock_)
            return;
        node_->locked = false;
    }

    Result<void> write(ByteView bytes) override
    {
        ARCA_TRY(const Course course, files_.operation("write"));
        const auto one = files_.hold();
        if (course == Course::lost)
            node_->lostSome = true;
        if (course == Course::lost)
            return {};
        auto room = files_.take(bytes.size());
        // A write that fails may have come half way.
        const bool half = course == Course::torn || !room;
        const std::string_view written = textOf(half ? bytes.first(bytes.size() / 2) : bytes);
        node_->content.append(written);
        files_.tell({Event::write, {}, {}, node_->number, std::string(written)});
        ARCA_CHECK(std::move(room));
        return course == Course::torn ? Result<void>(files_.torn()) : Result<void>();
    }
    Result<void> allocate(std::uint64_t bytes) override
    {
        ARCA_CHECK(files_.operation("allocate"));
        const auto one = files_.hold();
        ARCA_CHECK(files_.take(bytes));
        node_->allocated = bytes;
        return {};
    }
    Result<std::size_t> readAt(std::uint64_t offset, std::span<std::byte> into) override
    {
        ARCA_TRY(const Course course, files_.operation("read"));
        const auto one = files_.hold();
        if (node_->broken != MemoryFiles::Broken::no)
            return Error{ErrorKind::io, "the disk fails to read it"};
        const auto from =
            viewOf(node_->content).subspan(std::min<std::size_t>(offset, node_->content.size()));
        const std::size_t length =
            std::min(from.size(), into.size()) / (course == Course::torn ? 2 : 1);
        if (course == Course::lost)
            std::fill_n(into.begin(), length, std::byte{0});
        else
            std::copy_n(from.begin(), length, into.begin());
        return length;
    }
    Result<std::uint64_t> size() override
    {
        const auto one = files_.hold();
        return node_->content.size();
    }
    Result<void> sync() override
    {
        ARCA_TRY(const Course course, files_.operation("sync"));
        const auto one = files_.hold();
        if (course == Course::lost)
            return {};
        if (course == Course::torn || std::exchange(node_->lostSome, false))
            return files_.torn();
        node_->durableContent = node_->content;
        files_.tell({Event::sync, {}, {}, node_->number});
        return {};
    }
    void readAhead(std::uint64_t, std::uint64_t) override {}
    Result<bool> lock() override
    {
        ARCA_CHECK(files_.operation("lock"));
        auto one = files_.hold();
        if (node_->locked)
            return false;
        node_->locked = holdsLock_ = true;
        return true;
    }
    Result<blob::FileIdentity> identity() override
    {
        return blob::FileIdentity{1, reinterpret_cast<std::uintptr_t>(node_.get())};
    }
    Result<bool> hasName() override
    {
        const auto one = files_.hold();
        return node_->links > 0;
    }

private:
    MemoryFiles &files_;
    std::shared_ptr<Node> node_;
    bool holdsLock_ = false;
};

Error absent(const std::string &path)
{
    return {ErrorKind::notFound, "there is no " + path};
}

void revive(const std::shared_ptr<Node> &node, MemoryFiles::Loss loss)
{
    node->locked = false;
    if (loss != MemoryFiles::Loss::namesUnsynced)
        node->content = node->durableContent;
    if (loss != MemoryFiles::Loss::contentUnsynced)
        node->names = node->durableNames;
    node->durableContent = node->content;
    node->durableNames = node->names;
    for (auto &[name, below] : node->names) {
        below->links = 1;
        revive(below, loss);
    }
}

std::shared_ptr<Node> copyOf(const Node &node)
{
    auto copy = std::make_shared<Node>();
    copy->directory = node.directory;
    copy->content = copy->durableContent = node.content;
    copy->links = node.links;
    copy->allocated = node.allocated;
    copy->number = node.number;
    for (const auto &[name, below] : node.names)
        copy->names[name] = copyOf(*below);
    copy->durableNames = copy->names;
    return copy;
}

} // namespace

std::shared_ptr<Node> MemoryFiles::snapshot() const
{
    const auto one = hold();
    return copyOf(*root_);
}

void MemoryFiles::putBack(const std::shared_ptr<Node> &snapshot)
{
    const auto one = hold();
    arm(0, false, ErrorKind::io, Fault::fails);
    root_ = copyOf(*snapshot);
}

MemoryFiles::MemoryFiles()
{
    root_->directory = true;
}

void MemoryFiles::arm(int n, bool stay, ErrorKind kind, Fault fault)
{
    const auto one = hold();
    countdown_ = n;
    stay_ = stay;
    failed_ = false;
    kind_ = kind;
    fault_ = fault;
}

void MemoryFiles::runBefore(int n, std::function<void()> what)
{
    const auto one = hold();
    untilBetween_ = n;
    between_ = std::move(what);
}

bool MemoryFiles::someLockIsHeld() const
{
    const auto locks = find("/r/locks");
    return locks && std::ranges::any_of(locks->names, [](const auto &entry) {
               return entry.second->locked && !entry.first.starts_with("reclaim-");
           });
}

Result<Course> MemoryFiles::operation(const std::string &what)
{
    std::function<void()> between;
    {
        const auto one = hold();
        if (between_ && --untilBetween_ <= 0 && !someLockIsHeld())
            between = std::exchange(between_, nullptr);
    }
    if (between)
        between();
    {
        const auto one = hold();
        const bool last = countdown_ > 0 && --countdown_ == 0;
        if (!last && !(failed_ && stay_))
            return Course::whole;
        failed_ = true;
        if (fault_ == Fault::fails)
            return Error{kind_, what + " was made to fail"};
        if (fault_ != Fault::delays)
            return fault_ == Fault::tears ? Course::torn : Course::lost;
    }
    std::this_thread::yield();
    return Course::whole;
}

static std::uint64_t takenBelow(const Node &node)
{
    std::uint64_t taken = 64 + std::max<std::uint64_t>(node.content.size(), node.allocated);
    for (const auto &[name, below] : node.names)
        taken += takenBelow(*below);
    return taken;
}

void MemoryFiles::limitSpace(std::uint64_t bytesLeft)
{
    const auto one = hold();
    capacity_ = takenBelow(*root_) + bytesLeft;
}

void MemoryFiles::liftLimit()
{
    const auto one = hold();
    capacity_ = 0;
}

Result<void> MemoryFiles::take(std::uint64_t bytes)
{
    if (capacity_ != 0 && bytes > capacity_ - std::min(capacity_, takenBelow(*root_)))
        return Error{ErrorKind::full, "there is no space for it"};
    return {};
}

void MemoryFiles::record(std::vector<Event> *events)
{
    const auto one = hold();
    events_ = events;
}

void MemoryFiles::tell(Event event)
{
    const auto one = hold();
    if (events_ != nullptr)
        events_->push_back(std::move(event));
}

void MemoryFiles::losePower(Loss loss)
{
    const auto one = hold();
    arm(0, false, ErrorKind::io, Fault::fails);
    revive(root_, loss);
}

std::shared_ptr<Node> MemoryFiles::find(const std::string &path) const
{
    std::shared_ptr<Node> node = root_;
    for (std::size_t at = 1; node && at < path.size();) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        const std::string part = path.substr(at, end - at);
        at = end + 1;
        if (part.empty())
            continue;
        const auto found = node->names.find(part);
        node = found == node->names.end() ? nullptr : found->second;
    }
    return node;
}

std::shared_ptr<Node> MemoryFiles::parentOf(const std::string &path, std::string &name) const
{
    const auto slash = path.rfind('/');
    name = path.substr(slash + 1);
    return find(path.substr(0, slash));
}

std::string &MemoryFiles::contentOf(const std::string &path)
{
    return find(path)->content;
}

std::vector<std::string> MemoryFiles::paths() const
{
    std::vector<std::string> found;
    const std::function<void(const Node &, const std::string &)> walk = [&](const Node &node,
                                                                            const std::string &at) {
        for (const auto &[name, below] : node.names)
            if (below->directory)
                walk(*below, at + "/" + name);
            else
                found.push_back(at + "/" + name);
    };
    walk(*root_, "");
    return found;
}

Result<std::unique_ptr<blob::File>> MemoryFiles::create(const std::string &path)
{
    ARCA_TRY(const Course course, operation("create"));
    const auto one = hold();
    std::string name;
    const auto parent = parentOf(path, name);
    if (!parent)
        return absent(path);
    if (parent->names.contains(name))
        return Error{ErrorKind::exists, path};
    ARCA_CHECK(take(64));
    const auto node = std::make_shared<Node>();
    node->number = nextNumber_++;
    if (course == Course::lost) {
        parent->lostSome = true;
    } else {
        node->links = 1;
        parent->names[name] = node;
        tell({Event::create, path, {}, node->number});
    }
    if (course == Course::torn)
        return torn();
    return std::unique_ptr<blob::File>(std::make_unique<MemoryFile>(*this, node));
}

Result<std::unique_ptr<blob::File>> MemoryFiles::open(const std::string &path)
{
    ARCA_TRY(const Course course, operation("open"));
    const auto one = hold();
    if (course == Course::torn)
        return torn();
    const auto node = find(path);
    if (!node || node->directory)
        return absent(path);
    if (node->broken == Broken::opening)
        return Error{ErrorKind::io, "the disk fails to open " + path};
    return std::unique_ptr<blob::File>(std::make_unique<MemoryFile>(*this, node));
}

void MemoryFiles::breakFile(const std::string &path, Broken how)
{
    const auto one = hold();
    find(path)->broken = how;
}

Result<std::unique_ptr<blob::File>> MemoryFiles::openForLocking(const std::string &path, bool make)
{
    bool there = true;
    {
        const auto one = hold();
        there = find(path) != nullptr;
    }
    auto made = make && !there ? create(path) : open(path);
    return !made && made.error().kind == ErrorKind::exists ? open(path) : std::move(made);
}

Result<void> MemoryFiles::moveNew(const std::string &from, const std::string &to)
{
    ARCA_TRY(const Course course, operation("move"));
    const auto one = hold();
    std::string fromName, toName;
    const auto fromParent = parentOf(from, fromName);
    const auto toParent = parentOf(to, toName);
    const auto node = find(from);
    if (!node || !toParent)
        return absent(from);
    if (toParent->names.contains(toName))
        return Error{ErrorKind::exists, to};
    if (course == Course::lost) {
        fromParent->lostSome = toParent->lostSome = true;
        return {};
    }
    toParent->names[toName] = node;
    if (course == Course::torn) {
        ++node->links;
        return torn();
    }
    fromParent->names.erase(fromName);
    tell({Event::move, from, to, node->number});
    return {};
}

Result<bool> MemoryFiles::link(const std::string &from, const std::string &to)
{
    ARCA_TRY(const Course course, operation("link"));
    const auto one = hold();
    std::string toName;
    const auto toParent = parentOf(to, toName);
    const auto node = find(from);
    if (!node || !toParent)
        return absent(from);
    if (toParent->names.contains(toName))
        return Error{ErrorKind::exists, to};
    ARCA_CHECK(take(64));
    if (course == Course::lost) {
        toParent->lostSome = true;
        return true;
    }
    toParent->names[toName] = node;
    ++node->links;
    tell({Event::link, from, to, node->number});
    if (course == Course::torn)
        return torn();
    return true;
}

Result<void> MemoryFiles::unlink(const std::string &path)
{
    ARCA_TRY(const Course course, operation("unlink"));
    const auto one = hold();
    std::string name;
    const auto parent = parentOf(path, name);
    const auto node = find(path);
    if (!node)
        return absent(path);
    if (course == Course::lost) {
        parent->lostSome = true;
        return {};
    }
    parent->names.erase(name);
    --node->links;
    tell({Event::unlink, path});
    return course == Course::torn ? Result<void>(torn()) : Result<void>();
}

Result<void> MemoryFiles::makeDirectory(const std::string &path)
{
    ARCA_TRY(const Course course, operation("mkdir"));
    const auto one = hold();
    std::string name;
    const auto parent = parentOf(path, name);
    if (!parent)
        return absent(path);
    if (parent->names.contains(name))
        return Error{ErrorKind::exists, path};
    ARCA_CHECK(take(64));
    if (course == Course::lost) {
        parent->lostSome = true;
        return {};
    }
    const auto node = std::make_shared<Node>();
    node->directory = true;
    parent->names[name] = node;
    tell({Event::makeDirectory, path});
    return course == Course::torn ? Result<void>(torn()) : Result<void>();
}

Result<void> MemoryFiles::syncDirectory(const std::string &path)
{
    ARCA_TRY(const Course course, operation("syncdir"));
    const auto one = hold();
    const auto node = find(path);
    if (!node)
        return absent(path);
    if (course == Course::lost)
        return {};
    if (course == Course::torn || std::exchange(node->lostSome, false))
        return torn();
    node->durableNames = node->names;
    tell({Event::syncDirectory, path});
    return {};
}

Result<void> MemoryFiles::list(const std::string &path,
                               const std::function<bool(const std::string &)> &visit)
{
    ARCA_TRY(const Course course, operation("list"));
    std::map<std::string, std::shared_ptr<Node>> names;
    {
        const auto one = hold();
        const auto node = find(path);
        if (!node)
            return absent(path);
        names = node->names;
        namesTold_ += names.size();
    }
    std::size_t told = 0;
    for (const auto &[name, below] : names)
        if ((course == Course::torn && ++told > names.size() / 2) || !visit(name))
            break;
    return course == Course::torn ? Result<void>(torn()) : Result<void>();
}

Result<bool> MemoryFiles::isDirectory(const std::string &path)
{
    ARCA_CHECK(operation("stat"));
    const auto one = hold();
    const auto node = find(path);
    return node && node->directory;
}

} // namespace arca::test
