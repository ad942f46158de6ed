// The verbs of arca key, one file each.
#ifndef KEEL_TOOLS_ARCA_NODES_KEY_VERBS_H
#define KEEL_TOOLS_ARCA_NODES_KEY_VERBS_H

#include "tools/arca/command.h"

namespace arca::tool
{

void addKeyExport(tools::Verb verb, Command &command);
void addKeyImport(tools::Verb verb, Command &command);

} // namespace arca::tool

#endif
