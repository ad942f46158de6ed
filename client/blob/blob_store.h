// Where blobs live: immutable byte strings under names, a directory today, an object store later. A
// store knows bytes and names, never what a piece is.
//
// What every store promises:
//   - put-if-absent: commit() makes the whole blob appear under its name in one atomic step, or
//     answers `exists` and changes nothing; no blob is ever overwritten or appended to.
//   - durability: when commit() or remove() has returned, its effect survives the loss of power.
//   When
//     commit() failed, see Unsure for what became of the name.
//   - a writer that is dropped, or whose process dies, leaves nothing that shows. What it leaves
//   behind
//     is found by removeLeftovers(), which never touches the work of a living writer.
//
// Names are made of lower-case letters, digits, '.', '-' and '/' between components; none of these
// is empty, "." or "..", so that a thing has one name and no name leads out of the store. Several
// threads and processes may use one store at once; a writer belongs to one thread. Any number of
// threads may read from one reader.
#ifndef KEEL_CLIENT_BLOB_BLOB_STORE_H
#define KEEL_CLIENT_BLOB_BLOB_STORE_H

#include "client/base/bytes.h"
#include "client/base/result.h"

#include <functional>
#include <memory>
#include <set>
#include <string>

namespace arca::blob
{

/// What commit() does with a name that leads to the blob already, when making it survive a loss of
/// power fails. The commit fails either way.
enum class Unsure {
    leave,    // another process may count on the blob by now
    takeBack, // nobody counts on it before commit() has returned; whoever saw it finds it gone
};

/// Success, or badArgument: it is no name that a blob can have. A store asks this of every name
/// that it is given, as some come from a command line.
Result<void> expectBlobName(const std::string &name);

class BlobReader;

class BlobWriter
{
public:
    /// Without commit() the blob is given up.
    virtual ~BlobWriter() = default;

    /// Nothing is promised of the bytes before commit(). After an error: drop the writer.
    virtual Result<void> append(ByteView bytes) = 0;
    /// Reads what was appended, before any name leads to it: what is proven wrong then never gets a
    /// name. Append nothing after it. The reader looks into the writer, which must outlive it, and
    /// is not for link() or remove(). After an error: drop the writer.
    virtual Result<std::unique_ptr<BlobReader>> readBack() = 0;
    /// Ends the writer, whatever comes back.
    virtual Result<void> commit(const std::string &name, Unsure unsure = Unsure::leave) = 0;
};

class BlobReader
{
public:
    virtual ~BlobReader() = default;

    virtual std::uint64_t size() const = 0;
    /// Reads into.size() bytes; fewer only at the end of the blob.
    virtual Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) = 0;
    /// A hint that this range will be read soon.
    virtual void readAhead(std::uint64_t offset, std::uint64_t length) = 0;
};

/// A lock that is held as long as it lives; it goes with its process, too.
class BlobLock
{
public:
    virtual ~BlobLock() = default;
};

class BlobStore
{
public:
    virtual ~BlobStore() = default;

    /// `whose`: any text, for which the writer counts as a claim; empty: it counts for every one.
    virtual Result<std::unique_ptr<BlobWriter>> begin(const std::string &whose = {}) = 0;
    /// `notFound`. What an open reader reads stays readable when the blob is removed.
    virtual Result<std::unique_ptr<BlobReader>> open(const std::string &name) = 0;
    /// Visits every name that begins with `prefix`, in no order; `visit` answers false to stop. The
    /// last component may be given in part.
    virtual Result<void> list(const std::string &prefix,
                              const std::function<bool(const std::string &name)> &visit) = 0;
    /// The same with what tells the blob from others that had its name before or come to have it:
    /// as long as a name has that stamp, it leads to the same blob. 0: nothing tells.
    virtual Result<void>
    listStamped(const std::string &prefix,
                const std::function<bool(const std::string &name, std::uint64_t stamp)> &visit) = 0;
    /// Removes the very blob that `opened` reads: when the name leads to another blob by now, or to
    /// none, it answers `notFound` and removes nothing.
    virtual Result<void> remove(const std::string &name, BlobReader &opened) = 0;
    /// Makes a name that was found survive a loss of power, when its writer may not have come to
    /// that.
    virtual Result<void> sync(const std::string &name) = 0;
    /// Cleans up behind writers that died.
    virtual Result<void> removeLeftovers() = 0;
    /// A lock among all users of the store, in this process and in others; null when it is held.
    /// `name` is one component; `doing` is what others are told who wait for it, as in "removing
    /// pieces". It ends with its process, and is not handed on to a child that is forked.
    virtual Result<std::unique_ptr<BlobLock>> tryLock(const std::string &name,
                                                      const std::string &doing) = 0;
    /// The same lock, waited for, but not for ever: `conflict`, which names the holder.
    virtual Result<std::unique_ptr<BlobLock>> lock(const std::string &name,
                                                   const std::string &doing) = 0;

    /// Returns the writers that live now, in any process, by names that are not used again. A
    /// writer is a claim of its holder on what was there when it began. `whose`: leaves out those
    /// that were begun for another one; some of them may be returned all the same, as those of
    /// earlier releases are, which name nobody. Empty: all.
    virtual Result<std::set<std::string>> livingWriters(const std::string &whose = {}) = 0;

    /// Keeps some space back for work that frees space. What cannot be kept now is kept by a later
    /// call.
    virtual void keepReserve() = 0;
    /// Gives up a part of it; false when nothing is left. See withReserve().
    virtual bool giveUpReserve() = 0;
};

/// Does work that frees space in the end, and needs a little for that: as long as there is none, it
/// is done anew with a part of what the store keeps back. So it must be such that it can be done
/// anew.
template <class Work> auto withReserve(BlobStore &store, const Work &work) -> decltype(work())
{
    auto done = work();
    while (!done && done.error().kind == ErrorKind::full && store.giveUpReserve())
        done = work();
    return done;
}

/// Reads a small blob whole; `damaged` when it is larger than `limit`. `name` is for the error.
Result<Bytes> readWhole(BlobReader &reader, const std::string &name, std::size_t limit);
Result<Bytes> readWhole(BlobStore &store, const std::string &name, std::size_t limit);
/// Puts a small blob.
Result<void> putWhole(BlobStore &store, const std::string &name, ByteView bytes);

} // namespace arca::blob

#endif
