// Reading an option file: choosing it, its lines, and looking one option up. Nothing here reports:
// the error log itself reads the file, for every line.
//
// Keyword-value lines; a line that begins with an asterisk, after white space too, is a comment;
// keywords in any case; the last occurrence of a keyword wins in the whole reading, the first in a
// single look-up.
// A line of more than 512 characters counts as several. Any thread; nothing here is shared.
#ifndef KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_OPTIONFILE_H
#define KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_OPTIONFILE_H

#include <cstdint>
#include <cstdio>

#include "agents/oracle/common/orcobj.h"

/// The longest line with its terminator.
constexpr long ORC_OPTION_LINE_SIZE = 513;

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

/// Opens the file that VELO_OPTFILE names (one pair of quotes around the path is removed), or the
/// default one when that is not set, empty or too long; file.path is set in either case. Returns 0,
/// or 2534 when it cannot be opened or holds more than 16 MiB.
std::uint16_t veloOpenOptionFile(OptionFile &file);

/// Rewinds the file and copies the cleaned value of the first line with that keyword (upper case)
/// to value (ORC_OPTION_SIZE characters); blanks or quotes alone are a value, "". Returns 0, or
/// 65535 with value untouched when there is no such line or nothing follows its keyword.
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
