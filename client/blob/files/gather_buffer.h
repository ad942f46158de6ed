// What a blob's bytes are gathered in until they make a portion that goes the fast way. Belongs to
// one thread.
#ifndef KEEL_CLIENT_BLOB_FILES_GATHER_BUFFER_H
#define KEEL_CLIENT_BLOB_FILES_GATHER_BUFFER_H

#include "client/base/bytes.h"
#include "client/blob/files/file_layer.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

namespace arca::blob
{

class GatherBuffer
{
public:
    /// Throws std::bad_alloc.
    GatherBuffer() : bytes_(static_cast<std::byte *>(std::aligned_alloc(kTransferUnit, kPortion)))
    {
        if (!bytes_)
            throw std::bad_alloc();
    }
    /// Takes as much as there is room for, and tells how much.
    std::size_t take(ByteView bytes)
    {
        const std::size_t length = std::min(bytes.size(), kPortion - used_);
        std::copy_n(bytes.begin(), length, bytes_.get() + used_);
        used_ += length;
        return length;
    }
    bool isFull() const { return used_ == kPortion; }
    ByteView content() const { return {bytes_.get(), used_}; }
    void clear() { used_ = 0; }
    /// Gives the memory back; nothing can be taken any more.
    void release()
    {
        bytes_.reset();
        used_ = 0;
    }

private:
    static constexpr std::size_t kPortion = std::size_t{4} << 20;
    struct Free {
        void operator()(std::byte *bytes) const { std::free(bytes); }
    };

    std::unique_ptr<std::byte, Free> bytes_; // touched only as far as it is used
    std::size_t used_ = 0;
};

} // namespace arca::blob

#endif
