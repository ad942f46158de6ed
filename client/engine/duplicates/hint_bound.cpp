// Which packs lose their hints, and the sweep behind them: see the header.
#include "client/engine/duplicates/hint_bound.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

namespace arca::engine
{

namespace
{

/// A use is written down again only when this many packs came since: most look-ups write nothing.
constexpr std::int64_t kStale = 16;
/// Packs that lose their hints for one that comes. More than come in at once, so the bound holds.
constexpr int kDroppedAtOnce = 8;
/// Several times what a pack adds, so that what is dead stays a small part of the file.
constexpr int kSweptAtOnce = 2048;
/// No count comes near it, and sums of some do not overflow.
constexpr std::int64_t kMostCounted = std::int64_t{1} << 48;

} // namespace

bool HintBound::prepare()
{
    get_ = database_.prepare("SELECT value FROM about WHERE name=?1");
    set_ = database_.prepare("INSERT OR REPLACE INTO about VALUES(?1, ?2)");
    use_ = database_.prepare("UPDATE packs SET used=?2 WHERE number=?1");
    count_ = database_.prepare("UPDATE packs SET hints=?2 WHERE number=?1");
    hintsOf_ = database_.prepare("SELECT hints FROM packs WHERE number=?1");
    oldest_ = database_.prepare("SELECT number, hints FROM packs WHERE hints>0 AND number<>?1"
                                " ORDER BY used, number LIMIT ?2");
    part_ = database_.prepare("SELECT h.key, h.pack, ifnull(p.hints, 0) FROM hints h"
                              " LEFT JOIN packs p ON p.number=h.pack"
                              " WHERE h.key>?1 ORDER BY h.key LIMIT ?2");
    drop_ = database_.prepare("DELETE FROM hints WHERE key=?1 AND pack=?2");
    now_ = count(get("next"));
    return get_ && set_ && use_ && count_ && hintsOf_ && oldest_ && part_ && drop_;
}

void HintBound::letGo()
{
    for (Statement *statement : {&get_, &set_, &use_, &count_, &hintsOf_, &oldest_, &part_, &drop_})
        statement->reset();
}

std::int64_t HintBound::get(const char *name)
{
    StatementUse use(get_);
    use.bind(1, std::string_view(name));
    return use.row() ? use.number(0) : 0;
}

std::int64_t HintBound::count(std::int64_t value)
{
    if (value >= 0 && value <= kMostCounted)
        return value;
    database_.doubt();
    return 0;
}

bool HintBound::set(const char *name, std::int64_t value)
{
    StatementUse use(set_);
    use.bind(1, std::string_view(name));
    use.bind(2, value);
    return use.done();
}

std::int64_t HintBound::next()
{
    now_ = count(get("next")) + 1;
    return set("next", now_) ? now_ : 0;
}

void HintBound::found(std::int64_t pack, std::int64_t used)
{
    if (used <= now_ - kStale)
        found_.insert(pack);
}

bool HintBound::write()
{
    for (const std::int64_t pack : std::exchange(found_, {})) {
        StatementUse use(use_);
        use.bind(1, pack);
        use.bind(2, now_);
        if (!use.done())
            return false;
    }
    return true;
}

std::int64_t HintBound::hintsOf(std::int64_t pack)
{
    StatementUse use(hintsOf_);
    use.bind(1, pack);
    return use.row() ? count(use.number(0)) : 0;
}

bool HintBound::added(std::int64_t pack, std::int64_t hints)
{
    const std::int64_t before = hintsOf(pack);
    {
        StatementUse use(count_);
        use.bind(1, pack);
        use.bind(2, hints);
        if (!use.done())
            return false;
    }
    return set("hints", std::max<std::int64_t>(0, count(get("hints")) + hints - before)) &&
           makeRoom(pack) && sweep();
}

bool HintBound::forgotten(std::int64_t pack)
{
    return set("hints", std::max<std::int64_t>(0, count(get("hints")) - hintsOf(pack)));
}

bool HintBound::makeRoom(std::int64_t keep)
{
    std::int64_t all = count(get("hints"));
    if (all <= mostHints_)
        return true;
    std::vector<std::pair<std::int64_t, std::int64_t>> oldest;
    {
        StatementUse use(oldest_);
        use.bind(1, keep);
        use.bind(2, std::int64_t{kDroppedAtOnce});
        while (use.row())
            oldest.emplace_back(use.number(0), count(use.number(1)));
        if (!use.atEnd())
            return false;
    }
    for (const auto &[pack, hints] : oldest) {
        if (all <= mostHints_)
            break;
        StatementUse use(count_);
        use.bind(1, pack);
        use.bind(2, std::int64_t{0});
        if (!use.done())
            return false;
        all -= hints;
    }
    return set("hints", std::max<std::int64_t>(0, all));
}

bool HintBound::sweep()
{
    // From where the last one ended, in the order of the table.
    const std::int64_t from = get("swept");
    std::int64_t to = from;
    int seen = 0;
    std::vector<std::pair<std::int64_t, std::int64_t>> dead;
    {
        StatementUse use(part_);
        use.bind(1, from == 0 ? std::numeric_limits<std::int64_t>::min() : from);
        use.bind(2, std::int64_t{kSweptAtOnce});
        for (; use.row(); ++seen) {
            to = use.number(0);
            if (use.number(2) == 0)
                dead.emplace_back(to, use.number(1));
        }
        if (!use.atEnd())
            return false;
    }
    for (const auto &[key, pack] : dead) {
        StatementUse use(drop_);
        use.bind(1, key);
        use.bind(2, pack);
        if (!use.done())
            return false;
    }
    return set("swept", seen < kSweptAtOnce ? 0 : to);
}

} // namespace arca::engine
