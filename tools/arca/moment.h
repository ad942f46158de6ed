// Times and sizes as people type them, and ages as people read them.
#ifndef KEEL_TOOLS_ARCA_MOMENT_H
#define KEEL_TOOLS_ARCA_MOMENT_H

#include <cstdint>
#include <string>

namespace arca::tool
{

/// Returns a time ago ("40s", "90m", "12h", "7d", "8w") or a UTC time ("2026-11-21",
/// "2026-11-21T08:31", "2026-11-21T08:31:00Z") as seconds since 1970, more than 0: a query takes 0
/// for no limit. Throws UsageError, whose text names `option`, when the text is neither, or a day
/// that no calendar has.
std::int64_t momentFrom(const std::string &text, const std::string &option);

/// Returns bytes from "4096", "500k", "10M", "1.5G", "2T", in powers of 1,024, rounded down; more
/// than 0, as above. Throws UsageError, whose text names `option`.
std::uint64_t sizeFrom(const std::string &text, const std::string &option);

/// Returns "40 s", "5 min", "7 h", "12 d", rounded down; less than 0 as 0.
std::string ageText(std::int64_t seconds);

} // namespace arca::tool

#endif
