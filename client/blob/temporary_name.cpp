// Names in tmp: see the header.
#include "client/blob/temporary_name.h"

#include "client/base/bytes.h"
#include "client/base/hash.h"
#include "client/base/text.h"

#include <unistd.h>

namespace arca::blob
{

/// Between the name of a claim and the rest of the name of what is parked under it.
static constexpr char kParked = '.';

Result<std::string> newTemporaryName()
{
    Bytes random(8);
    ARCA_CHECK(fillRandom(random));
    return "tmp/" + std::to_string(getpid()) + "-" + toHex(random);
}

std::string parkedName(const std::string &claim, const std::string &temporary)
{
    return claim + kParked + temporary.substr(temporary.rfind('-') + 1);
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
