// Expiry: see the header for the rule.
#include "agents/common/maint/mtexpire.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

namespace
{

constexpr std::int64_t kDay = 86400;

struct Version {
    std::uint64_t objId;
    std::int64_t inactTime, insTime;
    std::uint64_t size, storedSize;
    const mtClass_t *rule; // null: its class is unknown

    [[nodiscard]] auto age() const { return std::tuple(inactTime, insTime, objId); }
    [[nodiscard]] bool isTooOld(std::int64_t now) const
    {
        return rule->daysKept != mtNoLimit && now - inactTime >= rule->daysKept * kDay;
    }
};

bool sameName(const hoxObjName &a, const hoxObjName &b)
{
    return std::strcmp(a.llName, b.llName) == 0 && std::strcmp(a.hlName, b.hlName) == 0 &&
           std::strcmp(a.fsName, b.fsName) == 0;
}

/// The versions of the present name.
class Name
{
public:
    bool is(const dhoxBackupObject_t &object) const { return sameName(name_, object.objName); }

    void begin(const dhoxBackupObject_t &object)
    {
        name_ = object.objName;
        versions_.clear();
        hasActive_ = false;
    }

    void add(const dhoxBackupObject_t &object, const mtClass_t *rule)
    {
        if (object.objState == HOX_STATE_INACTIVE) {
            versions_.push_back({object.objId, object.inactTime, object.insTime, object.size,
                                 object.storedSize, rule});
        } else {
            hasActive_ = true;
        }
    }

    /// Returns the versions to delete, the oldest first: an interruption leaves the newest.
    std::vector<mtObject_t> outdated(std::int64_t now)
    {
        std::ranges::sort(versions_, std::greater<>(), &Version::age);
        std::vector<mtObject_t> going;
        std::size_t staying = 0;
        for (const Version &version : versions_) {
            const bool stays =
                version.rule == nullptr || (staying == 0 && !hasActive_) ||
                (!version.isTooOld(now) &&
                 (version.rule->versionsKept == mtNoLimit || staying < version.rule->versionsKept));
            if (stays) {
                ++staying;
            } else {
                going.push_back(objectOf(version));
            }
        }
        std::ranges::reverse(going);
        return going;
    }

private:
    mtObject_t objectOf(const Version &version) const
    {
        mtObject_t object;
        object.objId = version.objId;
        object.fsName = name_.fsName;
        object.hlName = name_.hlName;
        object.llName = name_.llName;
        object.size = version.size;
        object.storedSize = version.storedSize;
        return object;
    }

    hoxObjName name_{};
    std::vector<Version> versions_;
    bool hasActive_ = false;
};

using Rules = std::map<std::string, mtClass_t, std::less<>>;

int readRules(const mtSession &session, Rules &rules)
{
    std::vector<mtClass_t> classes;
    const int rc = mtClasses(session, true, classes);
    for (mtClass_t &known : classes) {
        std::string name = known.name;
        rules.emplace(std::move(name), std::move(known));
    }
    return rc;
}

} // namespace

int mtExpire(const mtSession &finding, const mtSession &changing, const mtExpiry_t &expiry,
             const mtRemovalReport_t &report, mtExpired_t &totals)
{
    totals = mtExpired_t{};
    Rules rules;
    // What is bound to a class that cannot be read stays.
    const int damage = readRules(changing, rules);
    if (damage != HOX_RC_OK && damage != HOX_RC_REPOSITORY_DAMAGED) {
        return damage;
    }
    mtRemoval removal(changing, expiry.dryRun ? mtAction_t::nothing : mtAction_t::remove,
                      [&](const mtObject_t &object, int rc) {
                          totals.deleted += rc == HOX_RC_OK ? 1U : 0U;
                          totals.size += rc == HOX_RC_OK ? object.size : 0U;
                          totals.storedSize += rc == HOX_RC_OK ? object.storedSize : 0U;
                          return report(object, rc);
                      });
    Name name;
    int rc = HOX_RC_OK;
    const auto settle = [&] {
        for (mtObject_t &object : name.outdated(expiry.now)) {
            const bool meant =
                expiry.among == nullptr || std::ranges::binary_search(*expiry.among, object.objId);
            rc = rc == HOX_RC_OK && meant ? removal.add(std::move(object)) : rc;
        }
        return rc == HOX_RC_OK;
    };
    mtFilter_t filter;
    filter.fsName = expiry.names.fsName;
    filter.hlName = expiry.names.hlName;
    filter.llName = expiry.names.llName;
    filter.progress = expiry.names.progress;
    filter.objState = HOX_STATE_ANY;
    const int asked =
        mtQueryObjects(finding, filter, mtOrder_t::name, [&](const dhoxBackupObject_t &object) {
            if (!name.is(object)) {
                if (!settle()) {
                    return false;
                }
                name.begin(object);
            }
            ++totals.looked;
            totals.inactive += object.objState == HOX_STATE_INACTIVE ? 1U : 0U;
            const auto rule = rules.find(object.mcName);
            name.add(object, rule == rules.end() ? nullptr : &rule->second);
            return true;
        });
    // A query that was ended by the progress means stop: nothing more is deleted.
    if (rc == HOX_RC_OK && asked != HOX_RC_ABORTED && settle()) {
        rc = removal.finish();
    }
    rc = rc != HOX_RC_OK ? rc : asked;
    return rc != HOX_RC_OK ? rc : damage;
}
