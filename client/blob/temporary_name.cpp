// Names in tmp: see the header.
#include "client/blob/temporary_name.h"

#include "client/base/bytes.h"
#include "client/base/crypto/hash.h"
#include "client/base/text.h"

#include <unistd.h>

namespace arca::blob
{

/// Between the name of a claim and the rest of the name of what is parked under it.
static constexpr char kParked = '.';
static constexpr std::size_t kRandomBytes = 8;

Result<std::string> newTemporaryName()
{
    Bytes random(kRandomBytes);
    ARCA_CHECK(fillRandom(random));
    return "tmp/" + std::to_string(getpid()) + "-" + toHex(random);
}

std::string parkedName(const std::string &claim, const std::string &temporary)
{
    return claim + kParked + temporary.substr(temporary.rfind('-') + 1);
}

bool isTemporaryName(std::string_view fileName)
{
    const auto isRandom = [](std::string_view text) {
        return text.size() == 2 * kRandomBytes &&
               text.find_first_not_of("0123456789abcdef") == text.npos;
    };
    const auto dash = fileName.find('-');
    if (dash == 0 || dash == fileName.npos ||
        fileName.substr(0, dash).find_first_not_of("0123456789") != fileName.npos)
        return false;
    const std::string_view random = fileName.substr(dash + 1);
    const auto dot = random.find(kParked);
    return isRandom(random.substr(0, dot)) &&
           (dot == random.npos || isRandom(random.substr(dot + 1)));
}

std::string lockedFor(const std::string &fileName)
{
    return fileName.substr(0, fileName.find(kParked));
}

bool ownedByThisProcess([[maybe_unused]] const std::string &fileName)
{
#if __has_include(<sys/file.h>)
    return false;
#else
    return fileName.starts_with(std::to_string(getpid()) + "-");
#endif
}

} // namespace arca::blob
