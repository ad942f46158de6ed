// Management classes through the client.
#ifndef KEEL_CLIENT_API_OBJECTS_CLASS_CHANGE_H
#define KEEL_CLIENT_API_OBJECTS_CLASS_CHANGE_H

#include "client/api/session/session.h"

namespace arca::api
{

/// Does what hoxUpdateObj does with HOX_UPDATE_CLASS, durably, and makes all its checks: session
/// idle and for its own objects, null, sizes, `mask` (DEFINE or DELETE alone, or CHANGE with one
/// field at least). hoxapi.h has the codes; none is remembered here as the thread's last failure
/// (answer.h). The caller holds the session's mutex; `attributes` is not used after the return.
///
/// When the repository failed, the change may have been made; after any other failure the class is
/// unchanged. Of two calls that define a class at once the second gets HOX_RC_OBJECT_EXISTS; of two
/// that change it both succeed, and no field is lost. policy.h says what becomes of pieces.
Answer<void> changeClass(Session &session, const ObjAttr *attributes, std::uint32_t mask);

} // namespace arca::api

#endif
