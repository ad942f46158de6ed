// The pieces that a verb means: a pattern and filters, the same for all verbs.
#ifndef KEEL_TOOLS_ARCA_SELECTION_H
#define KEEL_TOOLS_ARCA_SELECTION_H

#include "agents/common/maint/mtquery.h"
#include "tools/arca/command.h"

#include <string>

namespace arca::tool
{

/// As given on the command line; an empty text is a filter that was not given.
struct Selection {
    std::string pattern; // of piece names; empty: every piece
    std::string filespace;
    std::string className, owner;
    std::string older, newer, larger, smaller;
    bool inactive = false; // inactive pieces only; neither flag: active pieces only
    bool all = false;      // active and inactive pieces
};

/// Adds the options of the filters; the verb itself adds the operand PATTERN.
void addSelectionOptions(tools::Verb verb, Selection &selection);

/// Returns true when any option but the pattern is given.
bool hasFilters(const Selection &selection);

/// Returns the filter of a query, with its progress shown. A pattern with "//" names a filespace
/// and a piece. Such a pattern, and one without "*" and "?", means pieces of the agent only
/// (high-level name "/"). --filespace gets a slash in front where it lacks one. Throws UsageError
/// when a time or a size is malformed, the pattern and --filespace both name a filespace, or
/// typedName() throws it.
mtFilter_t filterFrom(const Selection &selection);

/// Returns the failure "no piece matches df_*".
Error noMatch(const Selection &selection);

} // namespace arca::tool

#endif
