// Any bytes as a trace of the agent: they are refused, or every line that is to be printed lies in
// the file, none is printed twice, and segments are each printed once.
#include "tools/keel/agenttrace.h"
#include "tools/keel/channel/failure.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{

void require(bool condition)
{
    if (!condition)
        std::abort();
}

void check(const keel::TraceLayout &layout, std::uint64_t size)
{
    std::vector<keel::TraceExtent> lines = layout.lines;
    std::erase_if(lines, [](const keel::TraceExtent &extent) { return extent.from == extent.to; });
    std::ranges::sort(lines, {}, &keel::TraceExtent::from);
    std::uint64_t printed = 0;
    for (const keel::TraceExtent &extent : lines) {
        require(extent.from >= printed && extent.from <= extent.to && extent.to <= size);
        printed = extent.to;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    const auto read = [&](std::uint64_t at, std::span<char> wanted) {
        require(at <= bytes.size());
        return bytes.copy(wanted.data(), wanted.size(), static_cast<std::size_t>(at));
    };
    std::vector<keel::TraceLayout> layouts(size % 7);
    try {
        layouts.push_back(keel::layoutOf({bytes.size(), read}));
        check(layouts.back(), size);
    } catch (const keel::Failure &) {
    }
    for (std::size_t i = 0; i < layouts.size() && i < size; ++i)
        layouts[i].leftForNext = (data[i] & 1) != 0;
    std::vector<std::size_t> order = keel::segmentOrder(layouts);
    std::ranges::sort(order);
    require(order.size() == layouts.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        require(order[i] == i);
    return 0;
}
