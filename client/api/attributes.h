// The attributes that an application gives an object, when it sends it and later.
#ifndef KEEL_CLIENT_API_ATTRIBUTES_H
#define KEEL_CLIENT_API_ATTRIBUTES_H

#include "client/api/session.h"

namespace arca::api
{

constexpr std::uint32_t kEveryAttribute = HOX_UPDOBJ_OWNER | HOX_UPDOBJ_INFO | HOX_UPDOBJ_MC;

/// HOX_RC_BAD_ARGUMENT when it is not a backup.
Answer<void> expectBackup(std::uint8_t sendType);

/// Takes those that `mask` names into `piece`. HOX_RC_MC_UNKNOWN.
Answer<void> takeAttributes(Session &session, const ObjAttr *attributes, std::uint32_t mask,
                            store::PieceDescription &piece);

} // namespace arca::api

#endif
