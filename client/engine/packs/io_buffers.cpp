// Slabs of one huge page each, whole or in parts. They go when the pool and the last buffer have
// gone; a stream needs a few of them, and needs them to its end.
#include "client/engine/packs/io_buffers.h"

namespace arca::engine
{

std::shared_ptr<std::byte> IoBuffers::take(std::size_t bytes)
{
    return bytes <= kSmall ? takeFrom(&IoBuffers::small_, kSmall)
                           : takeFrom(&IoBuffers::large_, kLarge);
}

std::shared_ptr<std::byte> IoBuffers::takeFrom(std::vector<std::byte *> IoBuffers::*free,
                                               std::size_t bytes)
{
    std::byte *memory = nullptr;
    {
        const std::lock_guard hold(mutex_);
        std::vector<std::byte *> &available = this->*free;
        if (available.empty()) {
            slabs_.push_back(allocatePages(kLarge));
            // Room for all there are, so that giving one back needs no memory.
            available.reserve(slabs_.size() * (kLarge / bytes));
            for (std::size_t at = 0; at < kLarge; at += bytes)
                available.push_back(slabs_.back().get() + at);
        }
        memory = available.back();
        available.pop_back();
    }
    return {memory, [self = shared_from_this(), free](std::byte *back) {
                const std::lock_guard hold(self->mutex_);
                (self.get()->*free).push_back(back);
            }};
}

} // namespace arca::engine
