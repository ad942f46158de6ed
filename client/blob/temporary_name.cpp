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
/// Before the number of the process: the owner follows it.
static constexpr char kOwned = '0';
static constexpr std::size_t kRandomBytes = 8;
static constexpr std::size_t kOwnerBytes = 4;

Result<std::string> ownerDigits(const std::string &whose)
{
    if (whose.empty())
        return std::string();
    ARCA_TRY(const Sha256 digest, sha256({viewOf(whose)}));
    return toHex(ByteView(digest).first(kOwnerBytes));
}

Result<std::string> newTemporaryName(const std::string &whose)
{
    ARCA_TRY(const std::string owner, ownerDigits(whose));
    Bytes random(kRandomBytes - owner.size() / 2);
    ARCA_CHECK(fillRandom(random));
    return "tmp/" + (owner.empty() ? std::string() : std::string(1, kOwned)) +
           std::to_string(getpid()) + "-" + owner + toHex(random);
}

bool mayCountFor(std::string_view fileName, std::string_view ownerDigits)
{
    const auto dash = fileName.find('-');
    return ownerDigits.empty() || !fileName.starts_with(kOwned) || dash == fileName.npos ||
           fileName.substr(dash + 1).starts_with(ownerDigits);
}

std::string_view processIn(std::string_view fileName)
{
    const std::string_view number = fileName.substr(0, fileName.find('-'));
    return number.substr(number.starts_with(kOwned) ? 1 : 0);
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
    return processIn(fileName) == std::to_string(getpid());
#endif
}

} // namespace arca::blob
