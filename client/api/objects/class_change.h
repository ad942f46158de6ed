// Management classes through the client.
#ifndef KEEL_CLIENT_API_OBJECTS_CLASS_CHANGE_H
#define KEEL_CLIENT_API_OBJECTS_CLASS_CHANGE_H

#include "client/api/session/session.h"

namespace arca::api
{

/// Does what hoxUpdateObj does with HOX_UPDATE_CLASS: defines, changes or deletes a class as `mask`
/// says, durably. The caller holds the session's mutex. hoxapi.h has the errors; after one the
/// class is unchanged.
Answer<void> changeClass(Session &session, const ObjAttr *attributes, std::uint32_t mask);

} // namespace arca::api

#endif
