// Files in memory: see the header.
#include "tests/client/memory_files.h"

#include <algorithm>
#include <functional>

namespace arca::test
{

namespace
{

using Node = MemoryFiles::Node;

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
        if (holdsLock_)
            node_->locked = false;
    }

    Result<void> write(ByteView bytes) override
    {
        const auto one = files_.hold();
        if (auto allowed = files_.operation("write"); !allowed) {
            // A write that fails may have come half way.
            node_->content.append(textOf(bytes.first(bytes.size() / 2)));
            return allowed;
        }
        node_->content.append(textOf(bytes));
        return {};
    }
    Result<std::size_t> readAt(std::uint64_t offset, std::span<std::byte> into) override
    {
        const auto one = files_.hold();
        ARCA_CHECK(files_.operation("read"));
        const auto from =
            viewOf(node_->content).subspan(std::min<std::size_t>(offset, node_->content.size()));
        const std::size_t length = std::min(from.size(), into.size());
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
        const auto one = files_.hold();
        ARCA_CHECK(files_.operation("sync"));
        node_->durableContent = node_->content;
        return {};
    }
    void readAhead(std::uint64_t, std::uint64_t) override {}
    Result<bool> lock(bool) override
    {
        const auto one = files_.hold();
        ARCA_CHECK(files_.operation("lock"));
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
    arm(0, false, ErrorKind::io);
    root_ = copyOf(*snapshot);
}

MemoryFiles::MemoryFiles()
{
    root_->directory = true;
}

void MemoryFiles::arm(int n, bool stay, ErrorKind kind)
{
    const auto one = hold();
    countdown_ = n;
    stay_ = stay;
    failed_ = false;
    kind_ = kind;
}

Result<void> MemoryFiles::operation(const std::string &what)
{
    const auto one = hold();
    const bool last = countdown_ > 0 && --countdown_ == 0;
    if (!last && !(failed_ && stay_))
        return {};
    failed_ = true;
    return Error{kind_, what + " was made to fail"};
}

void MemoryFiles::losePower(Loss loss)
{
    const auto one = hold();
    arm(0, false, ErrorKind::io);
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
    const auto one = hold();
    ARCA_CHECK(operation("create"));
    std::string name;
    const auto parent = parentOf(path, name);
    if (!parent)
        return absent(path);
    if (parent->names.contains(name))
        return Error{ErrorKind::exists, path};
    const auto node = std::make_shared<Node>();
    node->links = 1;
    parent->names[name] = node;
    return std::unique_ptr<blob::File>(std::make_unique<MemoryFile>(*this, node));
}

Result<std::unique_ptr<blob::File>> MemoryFiles::open(const std::string &path)
{
    const auto one = hold();
    ARCA_CHECK(operation("open"));
    const auto node = find(path);
    if (!node || node->directory)
        return absent(path);
    return std::unique_ptr<blob::File>(std::make_unique<MemoryFile>(*this, node));
}

Result<std::unique_ptr<blob::File>> MemoryFiles::openForLocking(const std::string &path, bool make)
{
    const auto one = hold();
    return make && !find(path) ? create(path) : open(path);
}

Result<void> MemoryFiles::moveNew(const std::string &from, const std::string &to)
{
    const auto one = hold();
    ARCA_CHECK(operation("move"));
    std::string fromName, toName;
    const auto fromParent = parentOf(from, fromName);
    const auto toParent = parentOf(to, toName);
    const auto node = find(from);
    if (!node || !toParent)
        return absent(from);
    if (toParent->names.contains(toName))
        return Error{ErrorKind::exists, to};
    toParent->names[toName] = node;
    fromParent->names.erase(fromName);
    return {};
}

Result<void> MemoryFiles::unlink(const std::string &path)
{
    const auto one = hold();
    ARCA_CHECK(operation("unlink"));
    std::string name;
    const auto parent = parentOf(path, name);
    const auto node = find(path);
    if (!node)
        return absent(path);
    parent->names.erase(name);
    --node->links;
    return {};
}

Result<void> MemoryFiles::makeDirectory(const std::string &path)
{
    const auto one = hold();
    ARCA_CHECK(operation("mkdir"));
    std::string name;
    const auto parent = parentOf(path, name);
    if (!parent)
        return absent(path);
    if (parent->names.contains(name))
        return Error{ErrorKind::exists, path};
    const auto node = std::make_shared<Node>();
    node->directory = true;
    parent->names[name] = node;
    return {};
}

Result<void> MemoryFiles::syncDirectory(const std::string &path)
{
    const auto one = hold();
    ARCA_CHECK(operation("syncdir"));
    const auto node = find(path);
    if (!node)
        return absent(path);
    node->durableNames = node->names;
    return {};
}

Result<void> MemoryFiles::list(const std::string &path,
                               const std::function<bool(const std::string &)> &visit)
{
    std::map<std::string, std::shared_ptr<Node>> names;
    {
        const auto one = hold();
        ARCA_CHECK(operation("list"));
        const auto node = find(path);
        if (!node)
            return absent(path);
        names = node->names;
    }
    for (const auto &[name, below] : names)
        if (!visit(name))
            break;
    return {};
}

Result<bool> MemoryFiles::isDirectory(const std::string &path)
{
    const auto one = hold();
    ARCA_CHECK(operation("stat"));
    const auto node = find(path);
    return node && node->directory;
}

} // namespace arca::test
