// Access for other nodes: what the session's node lets them find and read. Codes are the storage
// client's; the session is idle.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTACCESS_H
#define KEEL_AGENTS_COMMON_MAINT_MTACCESS_H

#include <vector>

#include "agents/common/maint/mtsession.h"

/// Every rule, in the order of their numbers.
int mtAccessRules(const mtSession &session, std::vector<qryRespAccessData> &rules);

/// Lets `node` (only `owner` there, when it is not empty) read the objects of that name; a high- or
/// low-level name "/*" means every one. A rule that is there already is not made twice.
int mtAccessGrant(const mtSession &session, const hoxObjName &name, const std::string &node,
                  const std::string &owner);

/// HOX_RC_OBJECT_UNKNOWN when there is no such rule.
int mtAccessRevoke(const mtSession &session, std::uint32_t rule);

#endif
