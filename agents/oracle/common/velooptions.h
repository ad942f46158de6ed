// The option file: choosing it, reading it whole into a context, and looking one option up.
//
// Keyword-value lines; a line whose first character is an asterisk is a comment; keywords in any
// case; the last occurrence of a keyword wins in the whole reading, the first in a single look-up.
// The tokeniser keeps no state of its own, so files may be read on several threads at once.
#ifndef KEEL_AGENTS_ORACLE_COMMON_VELOOPTIONS_H
#define KEEL_AGENTS_ORACLE_COMMON_VELOOPTIONS_H

#include <cstdint>
#include <cstdio>

#include "agents/oracle/common/orcobj.h"

constexpr std::size_t ORC_OPTION_PATH_SIZE = 1025;

/// The 21 keywords; the index is the option's number.
extern const char *const optLookup[OPT_COUNT];

/// An option file while it is read; closes itself.
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
    int encoding = 0; // of the file, as the line reader wants it back
    int flags = 0;

private:
    std::FILE *stream_ = nullptr;
};

/// While one lives, this thread does not report an option file that does not open.
class OptionFileSilence
{
public:
    OptionFileSilence();
    ~OptionFileSilence();
    OptionFileSilence(const OptionFileSilence &) = delete;
    OptionFileSilence &operator=(const OptionFileSilence &) = delete;
};

/// Clears the whole context and fills its option block. 0, 2534 with the reason in the early error
/// log, or the code of a path helper.
std::uint16_t veloSetOptions(orcObj_t *ctx);

/// Opens the file that VELO_OPTFILE names, else the default one; path is set in either case. 2534.
std::uint16_t veloOpenOptionFile(OptionFile &file);

/// Reads every line into the option block; stops at the first bad one with 2534. path serves in
/// messages.
std::uint16_t veloParseOptionFile(orcObj_t *ctx, std::FILE *stream, const char *path, int encoding,
                                  int flags);

/// The value of the first line with that keyword (upper case), into value (ORC_OPTION_SIZE
/// characters). 0, or 65535 with value untouched. Rewinds the file first.
std::uint16_t veloGetOption(std::FILE *stream, const char *keyword, char *value, int encoding,
                            int flags);

/// One line of the file, cut apart in place.
struct OptionLine {
    char *keyword = nullptr; // upper case; null when the line has none
    char *rest = nullptr;    // what follows the one separator behind it; null when there is none
};
OptionLine veloSplitOptionLine(char *line);

/// Cleans a value in place: leading white space, double quotes, trailing white space go. Returns
/// its start.
char *veloCleanOptionValue(char *value);

#endif
