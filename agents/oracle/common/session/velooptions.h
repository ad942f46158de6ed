// The option file: choosing it, reading it whole into a context, and looking one option up.
//
// Keyword-value lines; a line whose first character is an asterisk is a comment; keywords in any
// case; the last occurrence of a keyword wins in the whole reading, the first in a single look-up.
// A line of more than 512 characters counts as several. Any thread; nothing here is shared.
// "Reported" means: in the early error log (psNonNlsErrorMsg).
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOOPTIONS_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_VELOOPTIONS_H

#include <cstdint>
#include <cstdio>

#include "agents/oracle/common/orcobj.h"

constexpr std::size_t ORC_OPTION_PATH_SIZE = 1025;

/// The 21 keywords; the index is the option's number.
extern const char *const optLookup[OPT_COUNT];

/// An option file while it is read; owns its stream and closes it.
class OptionFile
{
public:
    OptionFile() = default;
    ~OptionFile() { close(); }
    OptionFile(const OptionFile &) = delete;
    OptionFile &operator=(const OptionFile &) = delete;

    [[nodiscard]] std::FILE *stream() const { return stream_; }
    void adopt(std::FILE *stream) { stream_ = stream; }
    void close()
    {
        if (stream_ != nullptr) {
            std::fclose(stream_);
            stream_ = nullptr;
        }
    }

    char path[ORC_OPTION_PATH_SIZE] = "";
    int encoding = 0; // both from psFileOpen, for the line reader
    int flags = 0;

private:
    std::FILE *stream_ = nullptr;
};

/// While an object lives, its thread reports no failure of the option file.
class OptionFileSilence
{
public:
    OptionFileSilence();
    ~OptionFileSilence();
    OptionFileSilence(const OptionFileSilence &) = delete;
    OptionFileSilence &operator=(const OptionFileSilence &) = delete;
};

/// Clears the whole context and fills its option block: defaults, then the option file. Returns 0,
/// 2534 (reported), or the code of a path helper; on failure a part of the options may be set.
std::uint16_t veloSetOptions(orcObj_t *ctx);

/// Opens the file that VELO_OPTFILE names, else the default one; file.path is set in either case.
/// Returns 0, or 2534 (reported) when it cannot be opened or holds more than 16 MiB.
std::uint16_t veloOpenOptionFile(OptionFile &file);

/// Reads every line into the option block. Returns 0, or 2534 (reported) at the first line with an
/// unknown keyword or without a value; the lines before it are stored. path serves in messages.
std::uint16_t veloParseOptionFile(orcObj_t *ctx, std::FILE *stream, const char *path, int encoding,
                                  int flags);

/// Rewinds the file and copies the value of the first line with that keyword (upper case) to value
/// (ORC_OPTION_SIZE characters). Returns 0, or 65535 with value untouched when there is no such
/// line or it has no value.
std::uint16_t veloGetOption(std::FILE *stream, const char *keyword, char *value, int encoding,
                            int flags);

/// One line of the file, cut apart in place.
struct OptionLine {
    char *keyword = nullptr; // upper case; null when the line has none
    char *rest = nullptr;    // what follows the one separator behind it; null when there is none
};
/// Cuts line apart in place; the results point into it.
OptionLine veloSplitOptionLine(char *line);

/// Removes leading white space, double quotes and trailing white space in place. Returns the start
/// of the value, within the given text.
char *veloCleanOptionValue(char *value);

#endif
