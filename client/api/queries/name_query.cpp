// Objects by their exact name.
#include "client/api/objects/filespace_check.h"
#include "client/api/queries/found_objects.h"
#include "client/api/queries/queries.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"

namespace arca::api
{

BegunQuery beginNameQuery(Session &session, const qryBackupData *asked)
{
    ARCA_CHECK(expectVersion(asked, asked == nullptr ? std::uint16_t{0} : asked->stVersion,
                             HOX_QRY_BACKUP_VERSION, "the query record"));
    ARCA_TRY(const store::ObjectName name, objectNameOf(asked->objName));
    ARCA_TRY(const std::string owner,
             pointerText(asked->owner, HOX_MAX_OWNER_NAME, "the owner name"));
    auto query = std::make_unique<FoundObjects>();
    // First of all: the answer must not show whether an object that was not granted is there.
    ARCA_TRY(const bool readable, mayRead(session, name));
    if (!readable)
        return BegunQuery(std::move(query));
    ARCA_CHECK(expectFilespace(session, name.filespace));
    const auto answer = [&](store::PieceInfo piece) {
        if (owner.empty() || piece.description.owner == owner)
            query->add(std::move(piece));
    };
    if (asked->objState != HOX_STATE_INACTIVE) {
        auto found = session.space->find(name);
        if (!found && isUnreadable(found.error()))
            query->endWith(std::move(found).error());
        else if (!found)
            return Refusal(std::move(found).error());
        else if (*found)
            answer(std::move(**found));
    }
    if (asked->objState == HOX_STATE_INACTIVE || asked->objState == HOX_STATE_ANY) {
        std::optional<Error> passedOver;
        ARCA_TRY(auto found, session.space->inactiveOf(name, &passedOver));
        if (passedOver && !query->endsWithDamage())
            query->endWith(std::move(*passedOver));
        for (store::PieceInfo &piece : found)
            answer(std::move(piece));
    }
    return BegunQuery(std::move(query));
}

} // namespace arca::api
