// Access for other nodes: what the session's node lets them find and read. Each call returns the
// storage client's code, 0 for success; a change that returned 0 is durable. The session is idle:
// no transaction or query is under way. In a session for another node's objects each call returns
// HOX_RC_ACCESS_DENIED.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTACCESS_H
#define KEEL_AGENTS_COMMON_MAINT_MTACCESS_H

#include <vector>

#include "agents/common/maint/mtsession.h"

/// Reads every rule, in the order of their numbers. HOX_RC_REPOSITORY_DAMAGED: those are read that
/// can be; the others grant nothing. After any other failure `rules` is empty.
int mtAccessRules(const mtSession &session, std::vector<qryRespAccessData> &rules);

/// Lets `node` (only `owner` there, when it is not empty) find and read the objects of that name; a
/// high- or low-level name "/*" means every one. Returns 0 also when the rule exists already; it is
/// not made twice. `node` need not be registered yet: the rule takes effect once it is and this
/// session's node starts its next session. HOX_RC_FS_UNKNOWN for a filespace that is not
/// registered; HOX_RC_BAD_ARGUMENT for an empty node, the session's own, or one rule above 1,024.
int mtAccessGrant(const mtSession &session, const hoxObjName &name, const std::string &node,
                  const std::string &owner);

/// Deletes the rule of that number. HOX_RC_OBJECT_UNKNOWN when there is no such rule.
int mtAccessRevoke(const mtSession &session, std::uint32_t rule);

#endif
