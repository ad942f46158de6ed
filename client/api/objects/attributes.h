// The attributes that an application gives an object, when it sends it and later. The caller holds
// the session's mutex.
#ifndef KEEL_CLIENT_API_OBJECTS_ATTRIBUTES_H
#define KEEL_CLIENT_API_OBJECTS_ATTRIBUTES_H

#include "client/api/session/session.h"

namespace arca::api
{

constexpr std::uint32_t kEveryAttribute = HOX_UPDOBJ_OWNER | HOX_UPDOBJ_INFO | HOX_UPDOBJ_MC;

/// Fails with HOX_RC_BAD_ARGUMENT when `sendType` does not mean a backup.
Answer<void> expectBackup(std::uint8_t sendType);

/// Takes the attributes that `mask` names into `piece`, nothing cut; a null or empty class name
/// becomes the default class, another one gets the case it was defined in; a class whose record
/// cannot be read is bound all the same. After a failure some may have been taken. Errors:
/// HOX_RC_NULL_ARGUMENT, HOX_RC_BAD_VERSION, HOX_RC_BAD_ARGUMENT, HOX_RC_MC_UNKNOWN.
Answer<void> takeAttributes(Session &session, const ObjAttr *attributes, std::uint32_t mask,
                            store::PieceDescription &piece);

} // namespace arca::api

#endif
