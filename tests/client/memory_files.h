// A file layer in memory that tells what survives the loss of power from what does not: the content
// of a file as of its last sync, the names of a directory as of its last sync. Any operation can be
// made to fail, or to be the last one before the power goes. Any thread may use it.
#ifndef KEEL_TESTS_CLIENT_MEMORY_FILES_H
#define KEEL_TESTS_CLIENT_MEMORY_FILES_H

#include "client/blob/file_layer.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace arca::test
{

class MemoryFiles final : public blob::FileLayer
{
public:
    MemoryFiles();

    struct Node {
        bool directory = false;
        std::string content, durableContent;
        std::map<std::string, std::shared_ptr<Node>> names, durableNames;
        bool locked = false;
        int links = 0;
    };

    /// The n-th operation from now (1 is the next) fails with `kind`; 0: none does.
    void failAt(int n, ErrorKind kind) { arm(n, false, kind); }
    /// The n-th operation from now, and all after it, fail: the machine has stopped.
    void stopAt(int n) { arm(n, true, ErrorKind::io); }
    /// Whether the operation that was to fail has come.
    bool hasFailed() const
    {
        const auto one = hold();
        return failed_;
    }

    enum class Loss {
        everythingUnsynced, // names and content
        contentUnsynced,    // names were written back in time, what they lead to was not
        namesUnsynced,      // the other way round
    };
    /// The machine starts again; every lock is free.
    void losePower(Loss loss);

    /// Everything as it is now, as if it were synced; nobody has a file open when it is put back.
    std::shared_ptr<Node> snapshot() const;
    void putBack(const std::shared_ptr<Node> &snapshot);

    /// Changes one byte of a file, or cuts it, without anybody noticing.
    std::string &contentOf(const std::string &path);
    /// Every path of a file, those of directories not.
    std::vector<std::string> paths() const;

    // FileLayer
    Result<std::unique_ptr<blob::File>> create(const std::string &path) override;
    Result<std::unique_ptr<blob::File>> open(const std::string &path) override;
    Result<std::unique_ptr<blob::File>> openForLocking(const std::string &path,
                                                       bool create) override;
    Result<void> moveNew(const std::string &from, const std::string &to) override;
    Result<void> unlink(const std::string &path) override;
    Result<void> makeDirectory(const std::string &path) override;
    Result<void> syncDirectory(const std::string &path) override;
    Result<void> list(const std::string &path,
                      const std::function<bool(const std::string &)> &visit) override;
    Result<bool> isDirectory(const std::string &path) override;

    Result<void> operation(const std::string &what);
    /// One operation at a time, those on files included.
    std::unique_lock<std::recursive_mutex> hold() const { return std::unique_lock(mutex_); }

private:
    void arm(int n, bool stay, ErrorKind kind);
    std::shared_ptr<Node> find(const std::string &path) const;
    std::shared_ptr<Node> parentOf(const std::string &path, std::string &name) const;

    mutable std::recursive_mutex mutex_; // guards all below, and every node
    std::shared_ptr<Node> root_ = std::make_shared<Node>();
    int countdown_ = 0;
    bool stay_ = false, failed_ = false;
    ErrorKind kind_ = ErrorKind::io;
};

} // namespace arca::test

#endif
