// The files of a test as another host has them.
#ifndef KEEL_TESTS_CLIENT_STORE_ANOTHER_HOST_H
#define KEEL_TESTS_CLIENT_STORE_ANOTHER_HOST_H

#include "tests/client/store/memory_files.h"

#include <functional>
#include <set>
#include <utility>

namespace arca::test
{

/// Its locks are its own, and it can be stopped before
/// each step that others see.
class AnotherHost final : public blob::FileLayer
{
public:
    explicit AnotherHost(MemoryFiles &files) : files_(files) {}

    /// Runs `then` before the n-th step from now; 1 is the next.
    void stopBefore(int n, std::function<void()> then)
    {
        left_ = n;
        then_ = std::move(then);
    }
    /// Where it is false no file can have two names.
    bool links = true;
    /// Asked before the names of a directory are synced.
    std::function<Result<void>(const std::string &)> beforeSync;
    /// Runs in the middle of the next listing: a name that comes then, or goes, is not in it.
    std::function<void()> whileListing;
    /// Asked before a file gets the name of a blob.
    std::function<void(const std::string &)> beforeName;
    bool hasStopped() const { return left_ <= 0; }
    /// Everything fails from the decision of a change on; `decided`: from just after it.
    void dieDeciding(bool decided)
    {
        diesDeciding_ = true;
        hasDecided_ = decided;
    }

    Result<std::unique_ptr<blob::File>> create(const std::string &path) override
    {
        return files_.create(path);
    }
    Result<std::unique_ptr<blob::File>> open(const std::string &path) override
    {
        return files_.open(path);
    }
    Result<std::unique_ptr<blob::File>> openForLocking(const std::string &path,
                                                       bool create) override
    {
        if (!create)
            return files_.openForLocking(path, create);
        // Before a removal compares and unlinks, and where a repair has its claims.
        if (path.starts_with("/r/locks/remove-") || path.starts_with("/r/locks/change-"))
            step();
        static int locks = 0; // that no other one meets: a new file each time
        return files_.create(path + ".of-another-host-" + std::to_string(++locks));
    }
    Result<void> moveNew(const std::string &from, const std::string &to) override
    {
        step();
        if (beforeName)
            beforeName(to);
        const bool decides = diesDeciding_ && to.starts_with("/r/outcomes/");
        if (decides && !hasDecided_)
            files_.stopAt(1);
        auto moved = files_.moveNew(from, to);
        if (decides && hasDecided_)
            files_.stopAt(1);
        return moved;
    }
    Result<bool> link(const std::string &from, const std::string &to) override
    {
        step();
        return links ? files_.link(from, to) : Result<bool>(false);
    }
    Result<void> unlink(const std::string &path) override { return files_.unlink(path); }
    Result<void> makeDirectory(const std::string &path) override
    {
        return files_.makeDirectory(path);
    }
    Result<void> syncDirectory(const std::string &path) override
    {
        if (beforeSync)
            ARCA_CHECK(beforeSync(path));
        return files_.syncDirectory(path);
    }
    Result<void> list(const std::string &path,
                      const std::function<bool(const std::string &)> &visit) override
    {
        if (path.find("/coming/") != std::string::npos ||
            path.find("/quarantine/") != std::string::npos) // the first and the last of a visit
            step();
        if (!whileListing)
            return files_.list(path, visit);
        std::set<std::string> before;
        ARCA_CHECK(files_.list(path, [&](const auto &name) { return before.insert(name).second; }));
        std::exchange(whileListing, nullptr)();
        return files_.list(path,
                           [&](const auto &name) { return !before.contains(name) || visit(name); });
    }
    Result<bool> isDirectory(const std::string &path) override { return files_.isDirectory(path); }

private:
    void step()
    {
        if (left_ > 0 && --left_ == 0)
            then_();
    }

    MemoryFiles &files_;
    int left_ = 0;
    bool diesDeciding_ = false, hasDecided_ = false;
    std::function<void()> then_;
};

} // namespace arca::test

#endif
