// A text that is used as its own format string, without the danger of one.
#include "common/ut/utnoargs.h"

namespace
{
// The characters that may stand between the percent sign and the letter of a conversion.
constexpr std::string_view conversionParts = "-+ #0'I123456789.*$hlLqjzt";
constexpr std::string_view conversionLetters = "diouxXeEfFgGaAcCsSpnm%";

// Hands the pieces of plain text to put, in order.
template <class Put> void eachPlainPiece(std::string_view text, Put put)
{
    while (!text.empty()) {
        const std::size_t percent = text.find('%');
        put(text.substr(0, percent));
        if (percent == std::string_view::npos)
            return;
        text.remove_prefix(percent);
        const std::size_t end = text.find_first_not_of(conversionParts, 1);
        if (text.substr(1, 1) == "%") {
            put(text.substr(1, 1));
            text.remove_prefix(2);
        } else if (end != std::string_view::npos &&
                   conversionLetters.find(text[end]) != std::string_view::npos) {
            text.remove_prefix(end + 1);
        } else { // the percent sign of "(25.50%)": no conversion begins with it
            put(text.substr(0, 1));
            text.remove_prefix(1);
        }
    }
}
} // namespace

std::string utFormatNoArgs(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    eachPlainPiece(text, [&](std::string_view piece) { out += piece; });
    return out;
}

std::size_t utFormatNoArgs(char *out, std::size_t size, std::string_view text) noexcept
{
    if (out == nullptr || size == 0)
        return 0;
    std::size_t length = 0;
    eachPlainPiece(text, [&](std::string_view piece) {
        length += piece.copy(out + length, size - 1 - length);
    });
    out[length] = '\0';
    return length;
}
