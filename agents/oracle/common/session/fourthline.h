// The last of the first four lines of an output, which may hold anything. A line is cut at 512
// characters, its end included; what follows the cut, be it the line end alone, is the next line.
// One thread.
#ifndef KEEL_AGENTS_ORACLE_COMMON_SESSION_FOURTHLINE_H
#define KEEL_AGENTS_ORACLE_COMMON_SESSION_FOURTHLINE_H

#include <cstddef>
#include <cstring>

class LastOfFourLines
{
public:
    /// Takes the next part of the output. Returns false once the four lines are complete; what
    /// follows them is ignored.
    bool take(const char *data, std::size_t size)
    {
        for (std::size_t i = 0; i < size && lines_ < kLines; ++i) {
            building_[used_++] = data[i];
            if (data[i] == '\n' || used_ == kLineSize - 1) {
                finishLine();
            }
        }
        return lines_ < kLines;
    }
    /// Ends the output, in the middle of a line too: what take() gets afterwards is a new line.
    /// Returns the line, with its line end; "" when there was no output. The text, which a NUL of
    /// the output ends, is the object's and is overwritten by the next line.
    const char *last()
    {
        if (used_ != 0 && lines_ < kLines) {
            finishLine();
        }
        return line_;
    }

private:
    static constexpr std::size_t kLineSize = 513;
    static constexpr int kLines = 4;

    void finishLine()
    {
        building_[used_] = '\0';
        std::memcpy(line_, building_, used_ + 1);
        used_ = 0;
        ++lines_;
    }

    char building_[kLineSize] = "";
    char line_[kLineSize] = "";
    std::size_t used_ = 0;
    int lines_ = 0;
};

#endif
