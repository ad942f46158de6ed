// Test flags: switches for tests in the field and in the laboratory, from VELO_TEST_FLAGS.
#include "common/string/ststring.h"
#include "common/thrd/psmutex.h"
#include "common/ut/trace.h"

#include <cstring>

namespace
{
// The flags one after the other, each a name and a value with their terminators, and an empty name
// at the end. Flags are few and rarely looked up, so a linear search will do. flagsMutex guards the
// array, but not the readers of a value that trTestFlag has handed out.
constexpr std::size_t capacity = 1024;
constinit psMutex_t flagsMutex;
constinit char flagTexts[capacity] = "";

const char *behind(const char *text) noexcept
{
    return text + std::strlen(text) + 1;
}

std::string_view nextWord(std::string_view &text) noexcept
{
    while (!text.empty() && stIsSpaceAscii(text.front()))
        text.remove_prefix(1);
    std::size_t length = 0;
    while (length < text.size() && !stIsSpaceAscii(text[length]))
        ++length;
    const std::string_view word = text.substr(0, length);
    text.remove_prefix(length);
    return word;
}
} // namespace

unsigned trTestEnable(const char *flags) noexcept
{
    psMutexGuard guard(flagsMutex);
    unsigned rc = 0;
    std::size_t used = 0;
    std::string_view rest = flags == nullptr ? "" : flags;
    for (std::string_view word = nextWord(rest); !word.empty(); word = nextWord(rest)) {
        const std::size_t equals = word.find('=');
        const std::string_view name = word.substr(0, equals);
        const std::string_view value =
            equals == std::string_view::npos ? "" : word.substr(equals + 1);
        if (name.empty() || used + name.size() + value.size() + 3 > capacity) {
            rc = TR_RC_FLAG;
            continue;
        }
        stCopy(flagTexts + used, capacity - used, name);
        used += name.size() + 1;
        stCopy(flagTexts + used, capacity - used, value);
        used += value.size() + 1;
    }
    flagTexts[used] = '\0';
    return rc;
}

bool trTestFlag(const char *name, const char **value) noexcept
{
    psMutexGuard guard(flagsMutex);
    for (const char *at = flagTexts; *at != '\0'; at = behind(behind(at))) {
        if (name == nullptr || !stEqualNoCase(at, name))
            continue;
        if (value != nullptr)
            *value = behind(at);
        return true;
    }
    return false;
}
