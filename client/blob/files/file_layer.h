// The operating system's files as the directory store sees them: one seam through which every
// system call goes, so that a test can make the n-th one fail or lose what was not synced.
// systemFiles() and filesBelow() are the real ones. Any thread may use a layer; a File belongs to
// one thread, but that any number of them may be in readAt() at once.
#ifndef KEEL_CLIENT_BLOB_FILES_FILE_LAYER_H
#define KEEL_CLIENT_BLOB_FILES_FILE_LAYER_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace arca::blob
{

/// What tells one file from another whatever it is called. Not used again while somebody has the
/// file open.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileIdentity &) const = default;
};

constexpr std::size_t kTransferUnit = 4096;

class File
{
public:
    virtual ~File() = default;

    /// Appends all of it. After an error how much was written is not known. Fastest with large
    /// portions whose memory and length, and all lengths before, are multiples of kTransferUnit.
    virtual Result<void> write(ByteView bytes) = 0;
    /// A new file gets this length and the space for it, whatever it then holds. `full`.
    virtual Result<void> allocate(std::uint64_t bytes) = 0;
    /// Fewer bytes than asked for only at the end of the file. Fastest in such portions, too.
    virtual Result<std::size_t> readAt(std::uint64_t offset, std::span<std::byte> into) = 0;
    virtual Result<std::uint64_t> size() = 0;

    /// Content and length survive the loss of power. After an error their state is unknown.
    virtual Result<void> sync() = 0;
    /// A hint that this range will be read soon, and in order. It never fails.
    virtual void readAhead(std::uint64_t offset, std::uint64_t length) = 0;

    /// Takes a lock against other processes and other Files of this one, held until the File goes,
    /// or its process; a child that is forked does not have it. Returns false when it is held.
    virtual Result<bool> lock() = 0;
    /// Replaces the content of a file that is only there to be locked. What cannot be written is
    /// left out.
    virtual void setNote(std::string_view) {}
    virtual Result<FileIdentity> identity() = 0;
    /// Whether any name still leads to the file.
    virtual Result<bool> hasName() = 0;
};

/// Every path is absolute. Errors: notFound, exists, full, readOnly, denied, io.
class FileLayer
{
public:
    virtual ~FileLayer() = default;

    /// A new file, readable by its owner only. `exists` when the name is taken.
    virtual Result<std::unique_ptr<File>> create(const std::string &path) = 0;
    /// An existing regular file, for reading; or so that it can be locked, created if wanted.
    virtual Result<std::unique_ptr<File>> open(const std::string &path) = 0;
    virtual Result<std::unique_ptr<File>> openForLocking(const std::string &path, bool create) = 0;

    /// Gives the file the name `to` in one step, and takes `from` away; `exists` when `to` is
    /// taken. `to` survives the loss of power only after syncDirectory.
    virtual Result<void> moveNew(const std::string &from, const std::string &to) = 0;
    /// Gives the file of `from` the name `to` as well, in one step. Returns false, with nothing
    /// done, where a file cannot have two names. Errors: notFound, exists.
    virtual Result<bool> link(const std::string &from, const std::string &to) = 0;
    virtual Result<void> unlink(const std::string &path) = 0;
    /// `exists` when there is a directory.
    virtual Result<void> makeDirectory(const std::string &path) = 0;
    virtual Result<void> syncDirectory(const std::string &path) = 0;
    /// The names in a directory, without "." and ".."; `visit` answers false to stop.
    virtual Result<void> list(const std::string &path,
                              const std::function<bool(const std::string &)> &visit) = 0;
    virtual Result<bool> isDirectory(const std::string &path) = 0;
    /// What tells a file from any other that had the path, or will have it; 0 when nothing does.
    struct State {
        bool directory = false;
        std::uint64_t stamp = 0;
    };
    virtual Result<State> state(const std::string &path)
    {
        ARCA_TRY(const bool directory, isDirectory(path));
        return State{directory, 0};
    }

    struct Entry {
        std::string name;
        State state; // without a stamp when none was asked for, or when it has just gone
    };
    /// Returns the entries of a directory whose names begin with `begin`, at once: it is cheaper
    /// than list() and state() of each.
    virtual Result<std::vector<Entry>> entries(const std::string &path, std::string_view begin,
                                               bool stamped);
};

/// The operating system's own, which follows symbolic links. Lives as long as the process.
FileLayer &systemFiles();

/// Returns the files below `root`, the absolute path of a directory, which may lead through
/// symbolic links. Every path must be the root or lie below it, and there no link is ever followed:
/// one on the way, or in a file's or a directory's place, is an error that names it (`damaged` from
/// open(), else `io`); to entries() and state() it is no directory, and unlink() removes the link
/// itself.
std::unique_ptr<FileLayer> filesBelow(std::string root);

/// What an errno means to us, with a sentence that names the action and the path.
Error fromErrno(int number, const std::string &action, const std::string &path);

} // namespace arca::blob

#endif
