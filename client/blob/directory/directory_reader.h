// Readers of files as blobs: of one that has a name, and of one that is being written.
#ifndef KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_READER_H
#define KEEL_CLIENT_BLOB_DIRECTORY_DIRECTORY_READER_H

#include "client/blob/blob_store.h"
#include "client/blob/files/file_layer.h"

namespace arca::blob
{

class DirectoryReader final : public BlobReader
{
public:
    DirectoryReader(std::unique_ptr<File> file, std::uint64_t size)
        : file_(std::move(file)), size_(size)
    {
    }

    std::uint64_t size() const override { return size_; }
    Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) override
    {
        return file_->readAt(offset, into);
    }
    void readAhead(std::uint64_t offset, std::uint64_t length) override
    {
        file_->readAhead(offset, length);
    }
    File &file() { return *file_; }

private:
    std::unique_ptr<File> file_;
    std::uint64_t size_;
};

/// What a writer has written, through the writer's own file.
class WrittenReader final : public BlobReader
{
public:
    WrittenReader(File &file, std::uint64_t size) : file_(file), size_(size) {}

    std::uint64_t size() const override { return size_; }
    Result<std::size_t> read(std::uint64_t offset, std::span<std::byte> into) override
    {
        return file_.readAt(offset, into);
    }
    void readAhead(std::uint64_t offset, std::uint64_t length) override
    {
        file_.readAhead(offset, length);
    }

private:
    File &file_;
    const std::uint64_t size_;
};

} // namespace arca::blob

#endif
