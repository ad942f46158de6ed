// Which pieces a verb means: a pattern and filters, the same for all verbs.
#ifndef KEEL_TOOLS_ARCA_SELECTION_H
#define KEEL_TOOLS_ARCA_SELECTION_H

#include "agents/common/maint/mtquery.h"
#include "tools/arca/command.h"

#include <string>

namespace arca::tool
{

struct Selection {
    std::string pattern; // of piece names; empty: every one
    std::string filespace;
    std::string className, owner;
    std::string older, newer, larger, smaller;
    bool inactive = false; // in place of the active ones
    bool all = false;      // active and inactive
};

/// The options; the operand PATTERN is the verb's own matter.
void addSelectionOptions(tools::Verb verb, Selection &selection);

/// Returns true when anything but the pattern narrows the selection.
bool hasFilters(const Selection &selection);

/// `badArgument` when a time or a size is none.
Result<mtFilter_t> filterFrom(const Selection &selection);

/// "no piece matches df_*", for what comes to nothing.
Error noMatch(const Selection &selection);

} // namespace arca::tool

#endif
