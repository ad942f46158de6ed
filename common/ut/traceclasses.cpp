// The names of the trace classes and of the aggregates that stand for several.
#include "common/ut/traceclasses.h"

#include "common/string/ststring.h"
#include "common/ut/tracewords.h"

namespace
{
constexpr std::uint64_t bit(trClass which) noexcept
{
    return std::uint64_t{1} << which;
}

constexpr std::uint64_t levels = bit(TR_ORCLEVEL0) | bit(TR_ORCLEVEL1) | bit(TR_ORCLEVEL2);
constexpr std::uint64_t details = bit(TR_TIMESTAMP) - 1;

struct NamedBits {
    std::string_view name;
    std::uint64_t bits;
};

constexpr NamedBits names[] = {
    {"ORCLEVEL0", bit(TR_ORCLEVEL0)},
    {"ORCLEVEL1", bit(TR_ORCLEVEL1)},
    {"ORCLEVEL2", bit(TR_ORCLEVEL2)},
    {"ORCBUFF", bit(TR_ORCBUFF)},
    {"GENERAL", bit(TR_GENERAL)},
    {"LINKEDLIST", bit(TR_LINKEDLIST)},
    {"NLS", bit(TR_NLS)},
    {"EXTRC_DETAIL", bit(TR_EXTRC_DETAIL)},
    {"API", bit(TR_API)},
    {"PERFORM", bit(TR_PERFORM)},
    {"MEMORY", bit(TR_MEMORY)},
    {"TIMESTAMP", bit(TR_TIMESTAMP)},
    {"PID", bit(TR_PID)},
    {"TID", bit(TR_TID)},
    {"PREFIX", bit(TR_PREFIX)},
    {"CLIENTTYPE", bit(TR_CLIENTTYPE)},
    // Aggregates.
    {"ORACLE", levels},
    {"ORC", levels},
    {"ORACLEALL", levels | bit(TR_ORCBUFF)},
    {"APIDETAIL", bit(TR_API) | bit(TR_PERFORM) | bit(TR_EXTRC_DETAIL)},
    {"COMMON", bit(TR_GENERAL) | bit(TR_NLS) | bit(TR_LINKEDLIST) | bit(TR_MEMORY)},
    {"SERVICE", details & ~bit(TR_ORCBUFF)},
    {"ALL", details},
};
} // namespace

std::uint64_t trClassBits(std::string_view name) noexcept
{
    if (name.size() > 3 && stEqualNoCase(name.substr(0, 3), "TR_"))
        name.remove_prefix(3);
    for (const NamedBits &known : names)
        if (stEqualNoCase(known.name, name))
            return known.bits;
    return 0;
}
