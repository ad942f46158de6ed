// Access for other nodes. This level grants none: what a node stored is its own.
#include "client/api/client.h"

using namespace arca::api;

namespace
{

std::int16_t notOffered(hoxHandle_t handle)
{
    return inSession(handle, [](Session &) -> Code {
        return refused(HOX_RC_NOT_SUPPORTED, "access is not granted to other nodes");
    });
}

} // namespace

std::int16_t hoxSetAccess(hoxHandle_t handle, std::uint8_t, const hoxObjName *, const char *,
                          const char *)
{
    return notOffered(handle);
}

std::int16_t hoxQueryAccess(hoxHandle_t handle, qryRespAccessData *, std::uint16_t *)
{
    return notOffered(handle);
}

std::int16_t hoxDeleteAccess(hoxHandle_t handle, std::uint32_t)
{
    return notOffered(handle);
}
