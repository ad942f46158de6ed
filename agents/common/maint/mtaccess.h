// Access for other nodes: what the session's node lets them find and read. Each call returns the
// storage client's code, 0 for success. The session is idle: no transaction or query is under way.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTACCESS_H
#define KEEL_AGENTS_COMMON_MAINT_MTACCESS_H

#include <vector>

#include "agents/common/maint/mtsession.h"

/// Reads every rule, in the order of their numbers. HOX_RC_REPOSITORY_DAMAGED: those are read that
/// can be. After any other failure `rules` is empty.
int mtAccessRules(const mtSession &session, std::vector<qryRespAccessData> &rules);

/// Lets `node` (only `owner` there, when it is not empty) find and read the objects of that name; a
/// high- or low-level name "/*" means every one. Returns 0 also when the rule exists already; it is
/// not made twice.
int mtAccessGrant(const mtSession &session, const hoxObjName &name, const std::string &node,
                  const std::string &owner);

/// Deletes the rule of that number. HOX_RC_OBJECT_UNKNOWN when there is no such rule.
int mtAccessRevoke(const mtSession &session, std::uint32_t rule);

#endif
