// Objects by patterns and bounds.
#include "client/api/queries/object_answer.h"
#include "client/api/queries/queries.h"
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"
#include "client/base/text.h"
#include "client/store/listing/catalogue.h"

namespace arca::api
{

namespace
{

constexpr std::uint16_t kQueryWithoutProgress = 1; // version of qryObjectsData

class ObjectListing final : public Query
{
public:
    explicit ObjectListing(std::unique_ptr<store::Listing> objects) : objects_(std::move(objects))
    {
    }

    Code next(Session &session, DataBlk *data) override;

private:
    Answer<std::optional<store::PieceInfo>> nextReadable(Session &session);
    Code endOfAll(Session &session) const;
    Code endForGuest(Session &session) const;

    const std::unique_ptr<store::Listing> objects_;
    std::size_t seen_ = 0; // objects that it returned so far
    ObjectAnswer answer_;
};

Code ObjectListing::next(Session &session, DataBlk *data)
{
    ARCA_CHECK(ObjectAnswer::expectRecord(data));
    ARCA_TRY(const auto piece, nextReadable(session));
    if (!piece)
        return endOfAll(session);
    ARCA_CHECK(answer_.deliver(session, data, *piece));
    return answered();
}

/// Returns the next object that the session may find now; nothing at the end. Re-reads the access
/// rules before each object that they cover, so that a revoked rule ends the access at once, and
/// every 1,000 objects otherwise, so that a new rule is noticed.
Answer<std::optional<store::PieceInfo>> ObjectListing::nextReadable(Session &session)
{
    constexpr std::size_t kForOneLook = 1000;
    for (;;) {
        ARCA_TRY(auto piece, objects_->next());
        if (!piece)
            return std::optional<store::PieceInfo>();
        const store::ObjectName &name = piece->description.name;
        if (seen_++ % kForOneLook != 0 && !session.granted.covers(name))
            continue;
        ARCA_TRY(const bool readable, mayRead(session, name));
        if (readable)
            return piece;
    }
}

/// Ends a listing: with damage when objects were passed over, which the local log names.
Code ObjectListing::endOfAll(Session &session) const
{
    const auto &hurt = objects_->hurt();
    if (hurt.empty())
        return end();
    if (session.isGuest())
        return endForGuest(session);
    for (const std::string &one : hurt)
        (void)Client::instance().logLocally(one);
    return refused(HOX_RC_REPOSITORY_DAMAGED, hurt.front());
}

/// Ends a listing that met damage, for a session with another node's objects. It learns only
/// whether an object that it was granted is, or may be, damaged, and no blob names.
Code ObjectListing::endForGuest(Session &session) const
{
    bool any = false;
    for (const store::AccessRule &rule : session.granted.rules()) {
        any = any || !rule.namesOne();
        const auto found = rule.namesOne() ? session.space->find(rule.name)
                                           : Result<std::optional<store::PieceInfo>>(std::nullopt);
        if (!found && found.error().kind == ErrorKind::damaged)
            return refused(HOX_RC_REPOSITORY_DAMAGED,
                           "the object " + printable(rule.name.joined()) + " is damaged");
    }
    if (any)
        return refused(HOX_RC_REPOSITORY_DAMAGED,
                       "objects of node " + printable(session.space->node()) +
                           " are damaged, and some that it granted may be among them");
    return end();
}

Answer<store::ListSelection> selectionOf(const qryObjectsData &asked)
{
    store::ListSelection selection;
    ARCA_TRY(selection.filespace, pointerText(asked.fsName, HOX_MAX_FS_NAME, "the filespace"));
    ARCA_TRY(selection.highLevel,
             pointerText(asked.hlName, HOX_MAX_HL_NAME, "the high-level name"));
    ARCA_TRY(selection.lowLevel, pointerText(asked.llName, HOX_MAX_LL_NAME, "the low-level name"));
    ARCA_TRY(selection.owner, pointerText(asked.owner, HOX_MAX_OWNER_NAME, "the owner name"));
    ARCA_TRY(selection.managementClass,
             pointerText(asked.mcName, HOX_MAX_MC_NAME, "the management class"));
    using State = store::ListSelection::State;
    const bool known = asked.objState == HOX_STATE_ACTIVE || asked.objState == HOX_STATE_INACTIVE ||
                       asked.objState == HOX_STATE_ANY;
    if (!known || asked.order > HOX_ORDER_NAME)
        return refused(HOX_RC_BAD_ARGUMENT, "the state or the order of a query is unknown");
    selection.state = asked.objState == HOX_STATE_ACTIVE     ? State::active
                      : asked.objState == HOX_STATE_INACTIVE ? State::inactive
                                                             : State::any;
    selection.order = asked.order == HOX_ORDER_NAME ? store::CatalogueOrder::name
                                                    : store::CatalogueOrder::inserted;
    selection.insertedFrom = asked.insertedFrom;
    selection.insertedBefore = asked.insertedBefore;
    selection.inactiveBefore = asked.inactiveBefore;
    selection.minBytes = joined(asked.minSize);
    selection.maxBytes = joined(asked.maxSize);
    return selection;
}

} // namespace

BegunQuery beginListing(Session &session, const qryObjectsData *asked)
{
    const bool first = asked != nullptr && asked->stVersion == kQueryWithoutProgress;
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             first ? kQueryWithoutProgress : HOX_QRY_OBJECTS_VERSION,
                             "the query record"));
    ARCA_TRY(auto selection, selectionOf(*asked));
    store::Progress progress;
    if (!first && asked->progress != nullptr)
        progress = [tell = asked->progress, context = asked->progressContext,
                    guest = session.isGuest()](std::uint64_t done, std::uint64_t planned) {
            return tell(context, guest ? 0 : done, guest ? 0 : planned) == 0;
        };
    ARCA_TRY(auto objects,
             store::Listing::begin(*session.space, std::move(selection), std::move(progress)));
    return BegunQuery(std::make_unique<ObjectListing>(std::move(objects)));
}

} // namespace arca::api
