// A file layer in memory that tells what survives the loss of power from what does not: the content
// of a file as of its last sync, the names of a directory as of its last sync. Any operation can be
// made to fail, or to be the last one before the power goes, and there may be no space left. All
// that changes something can be recorded. Any thread may use it.
#ifndef KEEL_TESTS_CLIENT_STORE_MEMORY_FILES_H
#define KEEL_TESTS_CLIENT_STORE_MEMORY_FILES_H

#include "client/blob/files/file_layer.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace arca::test
{

class MemoryFiles final : public blob::FileLayer
{
public:
    MemoryFiles();

    enum class Broken { no, reading, opening }; // from there on it fails, until it is mended
    struct Node {
        bool directory = false;
        Broken broken = Broken::no;
        std::string content, durableContent;
        std::map<std::string, std::shared_ptr<Node>> names, durableNames;
        bool locked = false;
        bool lostSome = false; // what the next sync tells
        int links = 0;
        std::uint64_t allocated = 0;
        std::uint64_t number = 0; // of a file, never used again
    };

    enum class Fault {
        fails,  // and does nothing
        tears,  // does its work, or a part, and tells that it failed; a read comes short
        isLost, // tells that it went well and does nothing, which the next sync finds out
        delays, // comes after what other threads do meanwhile
    };
    /// The n-th operation from now (1 is the next) goes wrong, with `kind`; 0: none does.
    void failAt(int n, ErrorKind kind, Fault fault = Fault::fails) { arm(n, false, kind, fault); }
    /// The n-th operation from now, and all after it, fail: the machine has stopped.
    void stopAt(int n) { arm(n, true, ErrorKind::io, Fault::fails); }
    /// Before the n-th operation from now, `what` is done, in the thread that comes to it: another
    /// process that does all its work between two steps of the first one. Later, when a lock of the
    /// repository /r is held then, for which the other process would wait; that of a reclaiming
    /// does not count.
    void runBefore(int n, std::function<void()> what);
    /// Whether that operation has come.
    bool hasRun() const
    {
        const auto one = hold();
        return !between_;
    }
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

    /// From now on so many more bytes find space; a new name takes 64. What goes gives space back.
    void limitSpace(std::uint64_t bytesLeft);
    void liftLimit();

    /// Something that was changed, or a note of the test between two changes.
    struct Event {
        enum Kind {
            create,
            write,
            sync,
            move,
            link,
            unlink,
            makeDirectory,
            syncDirectory,
            note
        } kind;
        std::string path{}, to{};
        std::uint64_t file = 0;
        std::string bytes{};
    };
    /// Appends what changes from now on to `events`; null: no more.
    void record(std::vector<Event> *events);
    void note(const std::string &text) { tell({Event::note, text}); }
    void tell(Event event);

    /// Everything as it is now, as if it were synced; nobody has a file open when it is put back.
    std::shared_ptr<Node> snapshot() const;
    void putBack(const std::shared_ptr<Node> &snapshot);

    /// Changes one byte of a file, or cuts it, without anybody noticing.
    std::string &contentOf(const std::string &path);
    void breakFile(const std::string &path, Broken how);
    /// How many names listings told so far.
    std::uint64_t namesTold() const { return namesTold_; }
    /// Every path of a file, those of directories not.
    std::vector<std::string> paths() const;

    // FileLayer
    Result<std::unique_ptr<blob::File>> create(const std::string &path) override;
    Result<std::unique_ptr<blob::File>> open(const std::string &path) override;
    Result<std::unique_ptr<blob::File>> openForLocking(const std::string &path,
                                                       bool create) override;
    Result<void> moveNew(const std::string &from, const std::string &to) override;
    Result<bool> link(const std::string &from, const std::string &to) override;
    Result<void> unlink(const std::string &path) override;
    Result<void> makeDirectory(const std::string &path) override;
    Result<void> syncDirectory(const std::string &path) override;
    Result<void> list(const std::string &path,
                      const std::function<bool(const std::string &)> &visit) override;
    Result<bool> isDirectory(const std::string &path) override;

    enum class Course { whole, torn, lost };
    /// What becomes of the operation that begins. A torn one does what it can and then fails.
    Result<Course> operation(const std::string &what);
    Error torn() const { return {kind_, "what was torn was made to fail"}; }
    /// Whether there is space for so much more.
    Result<void> take(std::uint64_t bytes);
    /// One operation at a time, those on files included.
    std::unique_lock<std::recursive_mutex> hold() const { return std::unique_lock(mutex_); }

private:
    void arm(int n, bool stay, ErrorKind kind, Fault fault);
    std::shared_ptr<Node> find(const std::string &path) const;
    std::shared_ptr<Node> parentOf(const std::string &path, std::string &name) const;
    bool someLockIsHeld() const;

    mutable std::recursive_mutex mutex_; // guards all below, and every node
    std::shared_ptr<Node> root_ = std::make_shared<Node>();
    int countdown_ = 0, untilBetween_ = 0;
    std::function<void()> between_;
    bool stay_ = false, failed_ = false;
    ErrorKind kind_ = ErrorKind::io;
    Fault fault_ = Fault::fails;
    std::uint64_t capacity_ = 0; // 0: no limit
    std::uint64_t nextNumber_ = 1;
    std::uint64_t namesTold_ = 0;
    std::vector<Event> *events_ = nullptr;
};

} // namespace arca::test

#endif
