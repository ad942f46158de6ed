// The verbs of arca node, one file each.
#ifndef KEEL_TOOLS_ARCA_NODES_NODE_VERBS_H
#define KEEL_TOOLS_ARCA_NODES_NODE_VERBS_H

#include "tools/arca/command.h"

namespace arca::tool
{

void addNodeAdd(tools::Verb verb, Command &command);
void addNodeList(tools::Verb verb, Command &command);
void addNodePasswd(tools::Verb verb, Command &command);
void addNodeRemove(tools::Verb verb, Command &command);

} // namespace arca::tool

#endif
