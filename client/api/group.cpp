// Object groups. This level keeps none: every object stands for itself.
#include "client/api/client.h"

using namespace arca::api;

std::int16_t hoxGroupHandler(hoxHandle_t handle, const hoxGroupIn_t *, hoxGroupOut_t *)
{
    return inSession(handle, [](Session &) -> Code {
        return refused(HOX_RC_NOT_SUPPORTED, "objects are not grouped");
    });
}
