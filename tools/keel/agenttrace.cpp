// See agenttrace.h.
#include "tools/keel/agenttrace.h"

#include "tools/keel/channel/failure.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

namespace keel
{

namespace
{

constexpr std::string_view kTag = "ARCA Trace  ";
constexpr std::size_t kPositionAt = 12;
constexpr std::size_t kPositionWidth = 12;
constexpr std::size_t kMaximumAt = 24;
constexpr std::size_t kMaximumWidth = 10;
constexpr std::size_t kLongestHeader = 256;
constexpr std::uint64_t kBeingMade = 123456789012;
constexpr std::string_view kMarker = "\nEND OF DATA\n\n";
constexpr std::string_view kContinued = "\nContinued at beginning of ";
constexpr std::string_view kContinuedInSegment = "\nContinued at beginning of segment ";
constexpr std::size_t kLongestContinued = kContinuedInSegment.size() + 12;

/// More than the agent writes as one line.
constexpr std::size_t kLongestLine = 16384;

std::string textAt(const TraceSource &source, std::uint64_t at, std::size_t length)
{
    std::string text(std::min<std::uint64_t>(length, source.size - at), '\0');
    text.resize(std::min(text.size(), source.read(at, text)));
    return text;
}

/// A number left-aligned in a field of blanks.
std::optional<std::uint64_t> number(std::string_view field)
{
    const std::size_t digits = std::min(field.find(' '), field.size());
    std::uint64_t value = 0;
    const auto parsed = std::from_chars(field.data(), field.data() + digits, value);
    if (digits == 0 || parsed.ec != std::errc() || parsed.ptr != field.data() + digits ||
        field.find_first_not_of(' ', digits) != std::string_view::npos)
        return std::nullopt;
    return value;
}

struct Header {
    std::uint64_t dataStart;
    std::uint64_t position;
};

Header headerOf(std::string_view first, std::uint64_t size)
{
    const std::size_t end = first.find("\n\n");
    if (end == std::string_view::npos || end < kMaximumAt + kMaximumWidth)
        throw Failure("the first line of the trace is cut");
    const auto position = number(first.substr(kPositionAt, kPositionWidth));
    if (!position || !number(first.substr(kMaximumAt, kMaximumWidth)))
        throw Failure("the first line of the trace holds no numbers");
    Header header = {end + 2, *position};
    if (header.position == kBeingMade)
        header.position = size;
    if (header.position < header.dataStart || header.position > size)
        throw Failure("the first line of the trace names a place outside it");
    return header;
}

/// Returns where the newest line ends. A process that died while it wrote may have left a line,
/// with END OF DATA behind it, that the first line of the file does not count yet.
std::uint64_t endOfNewest(const TraceSource &source, std::uint64_t position)
{
    const std::size_t found = textAt(source, position, kLongestLine).find(kMarker);
    return found == std::string::npos ? position : position + found;
}

/// Returns the lines from before the last wrap, without the first, whose beginning is overwritten.
TraceExtent oldest(const TraceSource &source, std::uint64_t from)
{
    std::uint64_t to = source.size;
    const std::uint64_t tailAt = to - std::min<std::uint64_t>(to - from, kLongestContinued);
    const std::size_t continued = textAt(source, tailAt, kLongestContinued).rfind(kContinued);
    if (continued != std::string::npos)
        to = tailAt + continued;
    const std::size_t end = textAt(source, from, kLongestLine).find('\n');
    if (end != std::string::npos)
        from = std::min(from + end + 1, to);
    return {from, to};
}

} // namespace

TraceLayout layoutOf(const TraceSource &source)
{
    const std::string first = textAt(source, 0, kLongestHeader);
    if (!first.starts_with(kTag))
        throw Failure("this is no trace of the agent");
    TraceLayout layout;
    // In a trace without a maximum the product's name follows the tag after one more blank.
    if (first.size() > kPositionAt && first[kPositionAt] == ' ') {
        layout.lines.push_back({0, source.size});
        return layout;
    }
    layout.wrapping = true;
    const Header header = headerOf(first, source.size);
    layout.leftForNext =
        textAt(source, header.position, kContinuedInSegment.size()) == kContinuedInSegment;
    if (layout.leftForNext) {
        layout.lines.push_back({header.dataStart, header.position});
        return layout;
    }
    const std::uint64_t newest = endOfNewest(source, header.position);
    const bool marked = textAt(source, newest, kMarker.size()) == kMarker;
    layout.lines.push_back(oldest(source, marked ? newest + kMarker.size() : newest));
    layout.lines.push_back({header.dataStart, newest});
    return layout;
}

// A trace always begins in the first segment, so that the newest lines are in the run from there
// to the first segment that is not full. What follows is older: what the same trace wrote in its
// round before, or runs of earlier traces, which end in the same way.
std::vector<std::size_t> segmentOrder(const std::vector<TraceLayout> &layouts)
{
    std::vector<std::size_t> order;
    std::vector<std::size_t> run;
    for (std::size_t segment = 0; segment < layouts.size(); ++segment) {
        run.push_back(segment);
        if (!layouts[segment].leftForNext || segment + 1 == layouts.size()) {
            order.insert(order.begin(), run.begin(), run.end());
            run.clear();
        }
    }
    return order;
}

} // namespace keel
