// The agent's own trace, put into the order of time. Any thread; the trace may be written
// meanwhile.
//
// A trace with a maximum begins with a line that names the place of the next line:
//
//    0..11  "ARCA Trace" padded with blanks
//   12..23  the position of the next line, decimal, left-aligned; 123456789012 while the file is
//           being made
//   24..33  the maximum in megabytes, left-aligned
//   34..    a blank, the build, and two line ends, behind which the data start
//
//     | first line | newest lines ... | END OF DATA | oldest lines ... | Continued at beginning |
//                  ^ data start       ^ position
//
// A file that was never full ends with END OF DATA. A file that is a segment of a larger trace is
// only written from its beginning to its end, and then says that another segment continues it;
// nothing behind that counts.
#ifndef KEEL_TOOLS_KEEL_AGENTTRACE_H
#define KEEL_TOOLS_KEEL_AGENTTRACE_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

namespace keel
{

/// A trace, wherever its bytes are. `read` fills the span from position `at` on and returns how
/// many bytes there were, fewer only at the end of the trace; what it throws passes through. It is
/// not kept.
struct TraceSource {
    std::uint64_t size = 0;
    std::function<std::size_t(std::uint64_t at, std::span<char> bytes)> read;
};

struct TraceExtent {
    std::uint64_t from;
    std::uint64_t to; ///< never less than from, never beyond the source
};

struct TraceLayout {
    std::vector<TraceExtent> lines; ///< in the order of time; the older of two may be empty
    bool wrapping = false;          ///< false: a file without a maximum, one extent of all of it
    bool leftForNext = false;       ///< a full segment, which the next one continues; one extent
};

/// Returns where the lines are, without reading them all: the first line, END OF DATA and
/// "Continued at ..." are left out, and so is a line whose beginning was overwritten; a last line
/// that the first line does not count yet is in. In a file that is being made all is newest. Throws
/// Failure when the source is no trace of the agent, or its first line makes no sense (a place
/// outside the file).
[[nodiscard]] TraceLayout layoutOf(const TraceSource &source);

/// Returns the order of time of the segments in `layouts`, which are in the order of their numbers,
/// as positions in it from 0: the newest run is from the first segment to the first that is not
/// leftForNext, and the runs behind it are older, the last the oldest.
[[nodiscard]] std::vector<std::size_t> segmentOrder(const std::vector<TraceLayout> &layouts);

} // namespace keel

#endif
