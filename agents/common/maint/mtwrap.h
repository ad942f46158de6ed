// Logs of programs that stay small: whole lines, appended by any number of processes and threads,
// and a file that is put aside when it is full.
//
// NAME is the file that is written. A line that would make it larger than the maximum first renames
// NAME to NAME.1, NAME.1 to NAME.2 and so on; the oldest of those kept is given up. No line is
// split, lost, or written into a file that was put aside, whatever process renames when and whoever
// is killed in between.
//
// The error log that agent and client share is never wrapped: who reads it after a failed night
// must find the first failure in it. A file of its name is refused.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTWRAP_H
#define KEEL_AGENTS_COMMON_MAINT_MTWRAP_H

#include <cstdint>
#include <string_view>

struct mtWrapLimits_t {
    std::uint64_t maximum = std::uint64_t{10}
                            << 20; // bytes of a file; a longer line is alone in it
    unsigned kept = 5;             // files put aside; 0: a full file is begun anew
};

/// Appends the line, with the newline that it may lack. 0, or the errno of what went wrong: EINVAL
/// for the error log and for text that holds more than one line; ENOSPC and the like leave nothing
/// of the line behind.
int mtWrapAppend(const char *path, const mtWrapLimits_t &limits, std::string_view line) noexcept;

#endif
