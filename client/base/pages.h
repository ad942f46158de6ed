// Large memory: whole pages, huge ones where the system has them, which make direct transfers and
// wide buffers cheaper. It is had from the system when it is first written.
#ifndef KEEL_CLIENT_BASE_PAGES_H
#define KEEL_CLIENT_BASE_PAGES_H

#include <cstddef>
#include <cstdlib>
#include <memory>

namespace arca
{

struct FreePages {
    void operator()(std::byte *memory) const { std::free(memory); }
};
using Pages = std::unique_ptr<std::byte, FreePages>;

constexpr std::size_t kPageAlignment = 4096; // of what allocatePages() gives, at least

/// Throws std::bad_alloc.
Pages allocatePages(std::size_t bytes);

} // namespace arca

#endif
