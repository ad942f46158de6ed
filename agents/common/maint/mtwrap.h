// Logs of programs that stay small: whole lines, appended by any number of processes and threads,
// and a file that is put aside when it is full.
//
// NAME is the file that is written. A line that would make it larger than the maximum first renames
// NAME to NAME.1, NAME.1 to NAME.2 and so on; the oldest of those kept is overwritten. What holds,
// whichever processes rename or are killed at any moment:
// 1. No line is split or lost, and none is written into a file that was put aside.
// 2. A file is put aside only by a process that holds the lock on it.
// 3. While another process keeps that lock for longer than psFileLock tries, the line is appended
//    without it. Only then may the line end up in a file that was put aside, may the file pass its
//    maximum, and may a full disk leave a part of the line.
//
// Where the caller can tell its logs from other files, a file that is not empty and no such log is
// neither appended to, nor renamed, nor overwritten: a person may have given the name of a data
// file, or keep other files beside the log.
//
// The error log that agent and client share is never wrapped: after a failed night the first
// failure must still be in it. A file of its name is refused.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTWRAP_H
#define KEEL_AGENTS_COMMON_MAINT_MTWRAP_H

#include <cstdint>
#include <string_view>

struct mtWrapLimits_t {
    std::uint64_t maximum = std::uint64_t{10}
                            << 20; // bytes of a file; a longer line gets a file for itself
    unsigned kept = 5;             // files put aside; 0: a full file is emptied
    /// Tells from the first bytes of a file, at most 64, whether it is such a log; null: any is.
    bool (*isLog)(std::string_view beginning) = nullptr;
};

/// Appends the line, and a newline when it has none. Returns 0, or an errno value: EINVAL for the
/// error log, an empty or null path, and a text of more than one line; EEXIST when the file, or one
/// that would be renamed or overwritten, is no such log: then nothing is changed; ENOSPC and the
/// like leave nothing of the line behind, except as 3. says. Files are opened as psFileOpen does
/// it, new ones with mode 0600. Any thread; a mutex orders the threads of a process. Not synced.
int mtWrapAppend(const char *path, const mtWrapLimits_t &limits, std::string_view line) noexcept;

#endif
