// The operations of the scripted storage client that send, find, read and delete objects.

#include "tests/scripted/scripted_call.h"

#include <algorithm>
#include <cstring>
#include <utility>

static std::string joined(const hoxObjName &name)
{
    return std::string(name.fsName) + name.hlName + name.llName;
}

/// The fields are filled from a clean record, so what is not written is the terminator.
template <std::size_t size> static void put(char (&field)[size], const std::string &text)
{
    std::memcpy(field, text.data(), std::min(size - 1, text.size()));
}

static ScriptedObject *objectOf(const hox64_t &id, std::string *name = nullptr)
{
    for (auto &[key, object] : scriptedClient()->objects)
        if (object.id.hi == id.hi && object.id.lo == id.lo) {
            if (name)
                *name = key;
            return &object;
        }
    return nullptr;
}

/// Hands out what is left of the object that is being read.
static int16_t deliver(DataBlk *block)
{
    std::string &rest = scriptedClient()->receivingData;
    const std::size_t count = std::min<std::size_t>(block->bufferLen, rest.size());
    std::memcpy(block->bufferPtr, rest.data(), count);
    rest.erase(0, count);
    block->numBytes = static_cast<uint32_t>(count);
    return rest.empty() ? HOX_RC_FINISHED : HOX_RC_MORE_DATA;
}

static void describe(const ScriptedObject &object, qryRespBackupData *record)
{
    *record = {};
    record->stVersion = HOX_QRY_RESP_BACKUP_VERSION;
    record->objState = HOX_STATE_ACTIVE;
    record->objId = object.id;
    record->mediaClass = object.mediaClass;
    record->insDate = object.inserted;
    record->expDate = object.expires;
    record->restoreOrder.word[0] = object.restoreOrder;
    put(record->mcName, object.className);
    put(record->objInfo, object.info);
    record->objInfoLength = HOX_MAX_OBJ_INFO;
}

extern "C" {

BARE_OPERATION(hoxBeginTxn, 0, hoxHandle_t)

static int16_t endTransaction(uint8_t vote, uint16_t *reason)
{
    ScriptedClient &client = *scriptedClient();
    const auto answer = client.called("hoxEndTxn", scriptedFields("vote=%d", vote));
    const std::string name = std::exchange(client.sendingName, "");
    const bool poisoned = std::exchange(client.poisoned, false);
    *reason = static_cast<uint16_t>(answer.reason);
    if (answer.scripted)
        return static_cast<int16_t>(answer.rc);
    if (vote == HOX_VOTE_ABORT) {
        *reason = HOX_RC_ABORTED;
        return HOX_RC_CHECK_REASON;
    }
    if (poisoned) {
        *reason = HOX_RC_STEP_FAILED;
        return HOX_RC_CHECK_REASON;
    }
    if (!name.empty()) {
        ScriptedObject object;
        object.data = client.sendingData;
        object.id = {7, client.nextObject++};
        object.className = client.sendingClass;
        client.objects[name] = object;
    }
    return 0;
}

OPERATION(hoxEndTxn)(hoxHandle_t, uint8_t vote, uint16_t *reason)
{
    return endTransaction(vote, reason);
}

OPERATION(hoxEndTxnEx)(hoxHandle_t, const hoxEndTxnExIn_t *input, hoxEndTxnExOut_t *output)
{
    return endTransaction(input->vote, &output->reason);
}

OPERATION(hoxBindMC)(hoxHandle_t, const hoxObjName *name, uint8_t sendType, mcBindKey *binding)
{
    CALL("hoxBindMC", "type=%d name=%s", sendType, joined(*name).c_str());
    *binding = {};
    put(binding->mcName, scriptedClient()->boundClass);
    return 0;
}

OPERATION(hoxSendObj)
(hoxHandle_t, uint8_t sendType, void *, const hoxObjName *name, const ObjAttr *attributes,
 DataBlk *)
{
    CALL("hoxSendObj", "type=%d name=%s owner=%s estimate=%u:%u class=%s info=%s:%d", sendType,
         joined(*name).c_str(), attributes->owner, attributes->sizeEstimate.hi,
         attributes->sizeEstimate.lo, shown(attributes->mcNameP), attributes->objInfo,
         attributes->objInfoLength);
    ScriptedClient &client = *scriptedClient();
    client.sendingName = joined(*name);
    client.sendingClass = attributes->mcNameP ? attributes->mcNameP : client.boundClass;
    client.sendingData.clear();
    client.poisoned = false;
    return 0;
}

OPERATION(hoxSendData)(hoxHandle_t, DataBlk *data)
{
    CALL("hoxSendData", "bytes=%u", data->bufferLen);
    scriptedClient()->sendingData.append(data->bufferPtr, data->bufferLen);
    data->numBytes = data->bufferLen;
    return 0;
}

BARE_OPERATION(hoxEndSendObj, 0, hoxHandle_t)

OPERATION(hoxEndSendObjEx)(hoxHandle_t, const hoxEndSendObjExIn_t *, hoxEndSendObjExOut_t *output)
{
    BARE_CALL("hoxEndSendObjEx");
    *output = scriptedClient()->totals;
    return 0;
}

OPERATION(hoxBeginQuery)(hoxHandle_t, uint8_t queryType, const void *queryData)
{
    ScriptedClient &client = *scriptedClient();
    client.queriesClass = queryType == HOX_QUERY_MGMT_CLASS;
    client.answered = false;
    if (client.queriesClass) {
        const auto *query = static_cast<const qryMCData *>(queryData);
        client.queried = query->mcName;
        CALL("hoxBeginQuery", "type=4 class=%s detail=%d", query->mcName, query->detail);
        return 0;
    }
    const auto *query = static_cast<const qryBackupData *>(queryData);
    client.queried = joined(*query->objName);
    CALL("hoxBeginQuery", "type=%d name=%s owner=%s state=%d", queryType, client.queried.c_str(),
         shown(query->owner), query->objState);
    return 0;
}

OPERATION(hoxGetNextQObj)(hoxHandle_t, DataBlk *data)
{
    CALL("hoxGetNextQObj", "bytes=%u", data->bufferLen);
    ScriptedClient &client = *scriptedClient();
    const auto object = client.objects.find(client.queried);
    if (!client.queriesClass && object == client.objects.end())
        return HOX_RC_NO_MATCH;
    if (std::exchange(client.answered, true))
        return HOX_RC_FINISHED;
    if (client.queriesClass) {
        auto *record = reinterpret_cast<qryRespMCData *>(data->bufferPtr);
        *record = {};
        put(record->mcName, client.queried);
    } else {
        describe(object->second, reinterpret_cast<qryRespBackupData *>(data->bufferPtr));
    }
    data->numBytes = data->bufferLen;
    return HOX_RC_MORE_DATA;
}

BARE_OPERATION(hoxEndQuery, 0, hoxHandle_t)

OPERATION(hoxBeginGetData)
(hoxHandle_t, uint8_t mustBeActive, uint8_t getType, const hoxGetList *list)
{
    CALL("hoxBeginGetData", "mustBeActive=%d type=%d count=%u id=%u:%u", mustBeActive, getType,
         list->numObjId, list->objId->hi, list->objId->lo);
    return 0;
}

OPERATION(hoxGetObj)(hoxHandle_t, const hox64_t *id, DataBlk *)
{
    CALL("hoxGetObj", "id=%u:%u", id->hi, id->lo);
    const ScriptedObject *object = objectOf(*id);
    if (!object)
        return HOX_RC_OBJECT_UNKNOWN;
    scriptedClient()->receivingData = object->data;
    return HOX_RC_MORE_DATA;
}

OPERATION(hoxGetData)(hoxHandle_t, DataBlk *data)
{
    CALL("hoxGetData", "bytes=%u", data->bufferLen);
    return deliver(data);
}

BARE_OPERATION(hoxEndGetObj, 0, hoxHandle_t)
BARE_OPERATION(hoxEndGetData, 0, hoxHandle_t)

OPERATION(hoxDeleteObj)(hoxHandle_t, uint8_t delType, const hoxDelInfo *info)
{
    std::string name;
    if (delType == HOX_DELETE_BACKUP_ID)
        objectOf(info->backID.objId, &name);
    CALL("hoxDeleteObj", "type=%d name=%s", delType, name.c_str());
    return scriptedClient()->objects.erase(name) ? 0 : HOX_RC_OBJECT_UNKNOWN;
}

OPERATION(hoxGroupHandler)(hoxHandle_t, const hoxGroupIn_t *input, hoxGroupOut_t *output)
{
    std::string members;
    for (uint32_t i = 0; i < input->memberCount; ++i)
        members += scriptedFields(" %u:%u", input->memberObjId[i].hi, input->memberObjId[i].lo);
    CALL("hoxGroupHandler", "action=%d leads=%d tag=%s name=%s leader=%u:%u members=%s",
         input->action, input->isLeader, shown(input->tag),
         input->objName ? joined(*input->objName).c_str() : "", input->leaderObjId.hi,
         input->leaderObjId.lo, members.c_str());
    output->leaderObjId = {0, 9};
    return 0;
}

// The agent looks these up and calls none of them.
BARE_OPERATION(hoxDeleteAccess, HOX_RC_NOT_SUPPORTED, hoxHandle_t, uint32_t)
BARE_OPERATION(hoxDeleteFS, HOX_RC_NOT_SUPPORTED, hoxHandle_t, const char *, uint8_t)
BARE_OPERATION(hoxEndGetDataEx, HOX_RC_NOT_SUPPORTED, hoxHandle_t, const hoxEndGetDataExIn_t *,
               hoxEndGetDataExOut_t *)
BARE_OPERATION(hoxQueryAccess, HOX_RC_NOT_SUPPORTED, hoxHandle_t, qryRespAccessData *, uint16_t *)
BARE_OPERATION(hoxRenameObj, HOX_RC_NOT_SUPPORTED, hoxHandle_t, uint8_t, const hoxObjName *,
               const char *, const char *)
BARE_OPERATION(hoxSetAccess, HOX_RC_NOT_SUPPORTED, hoxHandle_t, uint8_t, const hoxObjName *,
               const char *, const char *)
BARE_OPERATION(hoxUpdateObj, HOX_RC_NOT_SUPPORTED, hoxHandle_t, uint8_t, const hoxObjName *,
               const ObjAttr *, uint32_t)

} // extern "C"
