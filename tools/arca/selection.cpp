// Which pieces: see the header.
#include "tools/arca/selection.h"

#include "client/base/text.h"
#include "tools/arca/interrupt.h"
#include "tools/arca/moment.h"
#include "tools/arca/piece_name.h"

namespace arca::tool
{

void addSelectionOptions(tools::Verb verb, Selection &selection)
{
    const struct {
        const char *name;
        std::string *value;
        const char *help, *type;
    } options[] = {
        {"--filespace", &selection.filespace, "Of filespaces of that name or pattern", "PATTERN"},
        {"--class", &selection.className, "Bound to that management class", "NAME"},
        {"--owner", &selection.owner, "Of that owner", "NAME"},
        {"--older", &selection.older, "Stored before then: a time ago (12h, 7d) or a UTC time",
         "TIME"},
        {"--newer", &selection.newer, "Stored since then", "TIME"},
        {"--larger", &selection.larger, "Of that size (500k, 10M, 1.5G) or more", "SIZE"},
        {"--smaller", &selection.smaller, "Of that size or less", "SIZE"},
    };
    for (const auto &option : options)
        verb.addOption(option.name, *option.value, option.help).valueName(option.type);
    const tools::Option inactive =
        verb.addFlag("--inactive", selection.inactive, "Inactive versions, not the active ones");
    verb.addFlag("--all", selection.all, "Active and inactive versions").excludes(inactive);
}

bool hasFilters(const Selection &selection)
{
    for (const std::string *given :
         {&selection.filespace, &selection.className, &selection.owner, &selection.older,
          &selection.newer, &selection.larger, &selection.smaller})
        if (!given->empty())
            return true;
    return selection.inactive || selection.all;
}

mtFilter_t filterFrom(const Selection &selection)
{
    mtFilter_t filter;
    filter.progress = shownQuery("");
    const TypedName typed = typedName(selection.pattern);
    filter.fsName = typed.filespace;
    if (!typed.piece.empty())
        filter.llName = "/" + typed.piece;
    // The name of one piece, as the agent stores it: then it is found without a search.
    if (!typed.filespace.empty() ||
        (!typed.piece.empty() && typed.piece.find_first_of("*?") == std::string::npos))
        filter.hlName = "/";
    if (!selection.filespace.empty() && !filter.fsName.empty())
        throw UsageError(printable(selection.pattern) +
                         " names a filespace itself; leave --filespace out");
    if (!selection.filespace.empty())
        filter.fsName = (selection.filespace.starts_with('/') ? "" : "/") + selection.filespace;
    filter.mcName = selection.className;
    filter.owner = selection.owner;
    if (selection.all || selection.inactive)
        filter.objState = selection.all ? HOX_STATE_ANY : HOX_STATE_INACTIVE;
    if (!selection.older.empty())
        filter.insertedBefore = momentFrom(selection.older, "--older");
    if (!selection.newer.empty())
        filter.insertedFrom = momentFrom(selection.newer, "--newer");
    if (!selection.larger.empty())
        filter.minSize = sizeFrom(selection.larger, "--larger");
    if (!selection.smaller.empty())
        filter.maxSize = sizeFrom(selection.smaller, "--smaller");
    return filter;
}

Error noMatch(const Selection &selection)
{
    const std::string what = selection.inactive ? "no inactive version" : "no piece";
    return {ErrorKind::notFound,
            what + (selection.pattern.empty() ? " is there that fits"
                                              : " matches " + printable(selection.pattern))};
}

} // namespace arca::tool
