// Any bytes as the storage client's answer to a query: what is taken has texts that end, and what
// is refused changes nothing.

#include "agents/common/dhoxapi.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

template <std::size_t N> static void requireText(const char (&text)[N])
{
    if (std::memchr(text, '\0', N) == nullptr)
        std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, std::size_t size)
{
    qryRespBackupData answer{};
    std::copy_n(data, std::min(size, sizeof answer), reinterpret_cast<unsigned char *>(&answer));
    dhoxBackupObject_t before;
    std::memset(&before, 'x', sizeof before);
    dhoxBackupObject_t taken;
    std::memcpy(&taken, &before, sizeof taken);
    if (!CopyApiQryRespBackupData(answer, taken)) {
        if (std::memcmp(&taken, &before, sizeof taken) != 0)
            std::abort();
        return 0;
    }
    requireText(taken.objName.fsName);
    requireText(taken.objName.hlName);
    requireText(taken.objName.llName);
    requireText(taken.mcName);
    requireText(taken.owner);
    requireText(taken.objInfo);
    return 0;
}
