// Buffers that packs are read into, used again and again: what the system does for fresh pages
// costs as much as the reading itself. A buffer comes back when its last user lets it go, on any
// thread, also after the pool has gone.
#ifndef KEEL_CLIENT_ENGINE_PACKS_IO_BUFFERS_H
#define KEEL_CLIENT_ENGINE_PACKS_IO_BUFFERS_H

#include "client/base/pages.h"

#include <mutex>
#include <vector>

namespace arca::engine
{

class IoBuffers : public std::enable_shared_from_this<IoBuffers>
{
public:
    static constexpr std::size_t kSmall = std::size_t{512} << 10;
    static constexpr std::size_t kLarge = std::size_t{2} << 20;

    /// Returns at least `bytes` (no more than kLarge), aligned for direct transfers and not
    /// cleared. The pool itself belongs to a shared_ptr. Throws bad_alloc.
    std::shared_ptr<std::byte> take(std::size_t bytes);

private:
    std::shared_ptr<std::byte> takeFrom(std::vector<std::byte *> IoBuffers::*free,
                                        std::size_t bytes);

    std::mutex mutex_; // guards all below
    std::vector<Pages> slabs_;
    std::vector<std::byte *> small_; // free ones, parts of slabs
    std::vector<std::byte *> large_; // free ones, whole slabs
};

} // namespace arca::engine

#endif
