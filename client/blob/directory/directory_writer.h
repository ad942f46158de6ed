// A blob that is being written into a directory store: a file in tmp, locked while its writer
// lives.
#ifndef KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_WRITER_H
#define KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_WRITER_H

#include "client/blob/directory/directory_store.h"
#include "client/blob/files/gather_buffer.h"
#include "client/blob/parking.h"

namespace arca::blob
{

class DirectoryWriter final : public BlobWriter, public ParkingWriter
{
public:
    /// `store` must outlive the writer. Call claim() before anything else.
    DirectoryWriter(DirectoryStore &store, std::string temporary);
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

    DirectoryStore &store_;
    std::unique_ptr<File> file_; // null before claim(), parked, and once the name is the blob's
    bool parked_ = false;
    std::string temporary_;
    GatherBuffer gathered_;
};

} // namespace arca::blob

#endif
