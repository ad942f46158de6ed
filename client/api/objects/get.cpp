// Reading objects back.
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"
#include "client/base/text.h"

using namespace arca;
using namespace arca::api;

namespace
{

constexpr std::uint32_t kMaxObjects = 4096;

/// Returns the name of the object. Errors: HOX_RC_OBJECT_UNKNOWN, also for an object that is there
/// but not granted, and for a damaged one of another node, of which nothing shows whether it was
/// granted: a reader cannot tell them apart.
Answer<store::ObjectName> expectReadable(Session &session, store::PieceId id, bool mustBeActive)
{
    auto found = session.space->find(id);
    if (!found && session.isGuest() &&
        (found.error().kind == ErrorKind::notFound || found.error().kind == ErrorKind::damaged))
        return refused(HOX_RC_OBJECT_UNKNOWN);
    if (!found)
        return Refusal(std::move(found).error());
    ARCA_TRY(const bool readable, mayRead(session, found->description.name));
    if (!readable)
        return refused(HOX_RC_OBJECT_UNKNOWN);
    if (mustBeActive && !found->isActive())
        return refused(HOX_RC_OBJECT_UNKNOWN, "the object is inactive");
    return std::move(found->description.name);
}

/// For each block of an object: the rule may be taken back at any time.
Answer<void> expectStillGranted(Session &session)
{
    ARCA_TRY(const bool readable, mayRead(session, session.retrieval->name));
    if (!readable)
        return refused(HOX_RC_ACCESS_DENIED, "node " + printable(session.space->node()) +
                                                 " took the access to the object back");
    return {};
}

Answer<Retrieval> beginRetrieval(Session &session, bool mustBeActive, std::uint8_t getType,
                                 const hoxGetList *list)
{
    ARCA_CHECK(expectVersion(list, list == nullptr ? std::uint16_t{0} : list->stVersion,
                             HOX_GETLIST_VERSION, "the object list"));
    if (getType != HOX_GET_BACKUP)
        return refused(HOX_RC_BAD_ARGUMENT, "the get type is unknown");
    if (list->numObjId == 0 || list->numObjId > kMaxObjects)
        return refused(HOX_RC_BAD_ARGUMENT, "an object list has 1 to 4,096 identifiers");
    if (list->objId == nullptr)
        return refused(HOX_RC_NULL_ARGUMENT, "the object list is null");
    Retrieval retrieval;
    for (std::uint32_t i = 0; i < list->numObjId; ++i) {
        const store::PieceId id = joined(list->objId[i]);
        ARCA_CHECK(expectReadable(session, id, mustBeActive));
        retrieval.ids.push_back(id);
    }
    return retrieval;
}

/// HOX_RC_MORE_DATA or HOX_RC_FINISHED. On failure the block counts no bytes, whatever its buffer
/// holds.
Code readBlock(Retrieval &retrieval, DataBlk *data)
{
    ARCA_TRY(const auto room, roomIn(data));
    data->numBytes = 0;
    ARCA_TRY(const std::size_t got, retrieval.object->read(room));
    data->numBytes = static_cast<std::uint32_t>(got);
    retrieval.bytes += got;
    return outcome(retrieval.object->atEnd() ? HOX_RC_FINISHED : HOX_RC_MORE_DATA);
}

Code endRetrieval(Session &session)
{
    if (!session.retrieval || session.retrieval->object)
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    session.retrieval.reset();
    return success();
}

} // namespace

std::int16_t hoxBeginGetData(hoxHandle_t handle, std::uint8_t mustBeActive, std::uint8_t getType,
                             const hoxGetList *list)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.isIdle())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_TRY(session.retrieval, beginRetrieval(session, mustBeActive != 0, getType, list));
        return success();
    });
}

std::int16_t hoxGetObj(hoxHandle_t handle, const hox64_t *objId, DataBlk *data)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.retrieval || session.retrieval->object)
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        if (objId == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the object identifier is null");
        Retrieval &retrieval = *session.retrieval;
        const store::PieceId id = joined(*objId);
        if (std::find(retrieval.ids.begin(), retrieval.ids.end(), id) == retrieval.ids.end())
            return refused(HOX_RC_OBJECT_UNKNOWN, "the identifier is not of the object list");
        if (data != nullptr)
            ARCA_CHECK(roomIn(data));
        ARCA_TRY(retrieval.name, expectReadable(session, id, false)); // rules change since the list
        ARCA_TRY(retrieval.object, session.space->openPiece(id));
        return data == nullptr ? outcome(HOX_RC_MORE_DATA) : readBlock(retrieval, data);
    });
}

std::int16_t hoxGetData(hoxHandle_t handle, DataBlk *data)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.retrieval || !session.retrieval->object)
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_CHECK(roomIn(data));
        data->numBytes = 0;
        ARCA_CHECK(expectStillGranted(session));
        return readBlock(*session.retrieval, data);
    });
}

std::int16_t hoxEndGetObj(hoxHandle_t handle)
{
    return inSession(handle, [](Session &session) -> Code {
        if (!session.retrieval || !session.retrieval->object)
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        session.retrieval->object.reset();
        return success();
    });
}

std::int16_t hoxEndGetData(hoxHandle_t handle)
{
    return inSession(handle, [](Session &session) -> Code { return endRetrieval(session); });
}

std::int16_t hoxEndGetDataEx(hoxHandle_t handle, const hoxEndGetDataExIn_t *input,
                             hoxEndGetDataExOut_t *output)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_CHECK(expectVersion(input, input == nullptr ? std::uint16_t{0} : input->stVersion,
                                 HOX_ENDGETEX_VERSION, "the record of the end"));
        if (output == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "there is no place for the totals");
        ARCA_CHECK(expectFillable(output, HOX_ENDGETEX_VERSION, "the record of the totals"));
        const std::uint64_t bytes = session.retrieval ? session.retrieval->bytes : 0;
        ARCA_TRY(const std::int16_t code, endRetrieval(session));
        *output = hoxEndGetDataExOut_t{};
        output->stVersion = HOX_ENDGETEX_VERSION;
        output->totalBytesReceived = split(bytes);
        return code;
    });
}
