// A blob that is being written into a directory store: a file in tmp, locked while its writer
// lives.
#ifndef KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_WRITER_H
#define KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_WRITER_H

#include "client/blob/blob_store.h"
#include "client/blob/files/file_layer.h"
#include "client/blob/files/gather_buffer.h"
#include "client/blob/parking.h"

namespace arca::blob
{

/// What a writer needs of the store that it writes into.
class WritersStore
{
public:
    /// The layer that leads to the store.
    virtual FileLayer &files() = 0;
    /// Where the file of that name is, for the layer.
    virtual std::string pathOf(const std::string &name) const = 0;
    /// Gives `temporary` the blob's name, as commit() promises; `written` is that file, synced.
    virtual Result<void> publish(const std::string &temporary, const std::string &name,
                                 File &written, Unsure unsure) = 0;

protected:
    ~WritersStore() = default;
};

class DirectoryWriter final : public BlobWriter, public ParkingWriter
{
public:
    /// `store` must outlive the writer. Call claim() before anything else.
    DirectoryWriter(WritersStore &store, std::string temporary);
    ~DirectoryWriter() override;

    /// Makes the file and takes the lock that shows the writer alive. Returns false when the name
    /// was taken, or when a cleaner came between the two and took the file for a dead writer's.
    Result<bool> claim();

    /// Instead of append(): space that no other file gets, whatever is in it.
    Result<void> allocate(std::uint64_t bytes) { return file_->allocate(bytes); }

    Result<void> append(ByteView bytes) override;
    Result<std::unique_ptr<BlobReader>> readBack() override;
    Result<void> park(const BlobWriter &claim) override;
    Result<void> commit(const std::string &name, Unsure unsure) override;

private:
    Result<void> writeRest();

    WritersStore &store_;
    std::unique_ptr<File> file_; // null before claim(), parked, and once the name is the blob's
    bool parked_ = false;
    std::string temporary_;
    GatherBuffer gathered_;
};

} // namespace arca::blob

#endif
