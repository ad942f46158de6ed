// The verbs of arca node, one file each.
#ifndef KEEL_TOOLS_ARCA_NODE_VERBS_H
#define KEEL_TOOLS_ARCA_NODE_VERBS_H

#include "tools/arca/command.h"

namespace arca::tool
{

void addNodeAdd(CLI::App &verb, Command &command);
void addNodeList(CLI::App &verb, Command &command);
void addNodePasswd(CLI::App &verb, Command &command);
void addNodeRemove(CLI::App &verb, Command &command);

} // namespace arca::tool

#endif
