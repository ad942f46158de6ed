// Large memory: whole pages, huge ones where the system has them, which make direct transfers
// (O_DIRECT) and wide buffers cheaper. The system provides a page when it is first written to.
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

constexpr std::size_t kPageAlignment = 4096; // of what allocatePages() returns, at least

/// Returns at least `bytes` bytes that hold anything; from 2 MiB on they are aligned to 2 MiB.
/// Throws std::bad_alloc. Any thread.
Pages allocatePages(std::size_t bytes);

} // namespace arca

#endif
