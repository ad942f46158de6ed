// Groups of objects, for object maintenance: one operation of the client with an action code.
#include "agents/common/dhoxapi.h"

int DHoxApi::group(DBaseApiStatus *status, hoxHandle_t handle, const GroupRequest &request)
{
    hoxGroupIn_t input{};
    input.stVersion = HOX_GROUP_VERSION;
    input.action = request.action;
    input.leaderObjId = request.leader;
    input.memberObjId = request.members;
    input.memberCount = request.count;
    hoxGroupOut_t output{};
    output.stVersion = HOX_GROUP_VERSION;
    return dhoxGroupHandler(status, handle, &input, &output);
}

int DHoxApi::groupOpen(DBaseApiStatus *status, hoxHandle_t handle, const char *tag,
                       const hoxObjName *name, hox64_t *leader)
{
    hoxGroupIn_t input{};
    input.stVersion = HOX_GROUP_VERSION;
    input.action = HOX_GROUP_OPEN;
    input.isLeader = 1;
    input.tag = tag;
    input.objName = name;
    hoxGroupOut_t output{};
    output.stVersion = HOX_GROUP_VERSION;
    const std::int16_t rc = dhoxGroupHandler(status, handle, &input, &output);
    if (rc == HOX_RC_OK) {
        *leader = output.leaderObjId;
    }
    return rc;
}
