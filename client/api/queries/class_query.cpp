// Management classes.
#include "client/api/queries/answer_record.h"
#include "client/api/queries/queries.h"
#include "client/api/session/session.h"
#include "client/base/text.h"

#include <deque>

namespace arca::api
{

namespace
{

class Classes final : public Query
{
public:
    explicit Classes(bool inDetail) : inDetail_(inDetail) {}
    void add(store::ManagementClass known) { left_.push_back(std::move(known)); }
    void endWith(Refusal damage) { damage_ = std::move(damage); }

    Code next(Session &session, DataBlk *data) override;

private:
    const bool inDetail_;
    std::deque<store::ManagementClass> left_;
    std::optional<Refusal> damage_; // told when all others were fetched
};

void fillAnswer(qryRespMCData &record, const store::ManagementClass &known, bool detail)
{
    record = qryRespMCData{};
    record.stVersion = HOX_QRY_RESP_MC_VERSION;
    fill(record.mcName, known.name);
    if (!detail)
        return;
    fill(record.description, known.description);
    fill(record.stgPool, known.storagePool);
    record.isDefault = known.isDefault() ? 1 : 0;
    record.backupCopyGroup = 1;
    record.versionsKept = known.versionsKept;
    record.daysKept = known.daysKept;
    record.isDeleted = known.retired ? 1 : 0;
}

Code Classes::next(Session &, DataBlk *data)
{
    if (left_.empty() && damage_)
        return *damage_;
    if (left_.empty())
        return end();
    ARCA_CHECK(deliver<qryRespMCData>(data, HOX_QRY_RESP_MC_VERSION, [&](auto &record) {
        fillAnswer(record, left_.front(), inDetail_);
    }));
    left_.pop_front();
    return answered();
}

} // namespace

BegunQuery beginClassQuery(Session &session, const qryMCData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_MC_VERSION, "the query record"));
    auto query = std::make_unique<Classes>(asked->detail != 0);
    const auto retired =
        asked->detail == 2 ? store::Policy::Retired::included : store::Policy::Retired::left;
    store::Policy policy = session.repository->policy();
    if (asked->mcName == nullptr || *asked->mcName == '\0') {
        std::vector<std::string> damaged;
        ARCA_TRY(auto classes, policy.list(retired, &damaged));
        for (store::ManagementClass &known : classes)
            query->add(std::move(known));
        if (!damaged.empty())
            query->endWith(damagedRecords("management classes cannot be read", damaged));
        return BegunQuery(std::move(query));
    }
    // A name too long to be any class matches none.
    const std::string_view name(asked->mcName, strnlen(asked->mcName, HOX_MAX_MC_NAME + 1));
    ARCA_TRY(auto found, policy.find(name, retired));
    if (found)
        query->add(std::move(*found));
    return BegunQuery(std::move(query));
}

} // namespace arca::api
