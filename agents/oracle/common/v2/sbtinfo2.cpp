// sbtinfo2: describes the pieces of a list.
#include "agents/oracle/common/v2/sbtinfo2.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "agents/common/dhoxapi.h"
#include "agents/oracle/common/diagnostics/callscope.h"
#include "agents/oracle/common/diagnostics/errorlog.h"
#include "agents/oracle/common/session/veloquery.h"
#include "agents/oracle/common/session/velosession.h"
#include "agents/oracle/unx/psnaming.h"
#include "common/cu/cutime.h"
#include "common/string/ststring.h"
#include "common/ut/utmem.h"

namespace
{

constexpr std::int32_t kPairsPerName = 10;
constexpr std::size_t kNameRoom = 512;
constexpr std::size_t kLabelRoom = 64;
constexpr std::size_t kCommentRoom = 30;
// The names are counted up to here; a longer list must lack its null pointer.
constexpr std::int32_t kMostNames = 1 << 24;

std::size_t pairCount(std::int32_t names)
{
    return static_cast<std::size_t>(names) * kPairsPerName + 1;
}

// Fills the array front to back. The add calls return false, and add nothing, when there is no
// memory for a value; the caller stops then.
class InfoWriter
{
public:
    explicit InfoWriter(sbtPair *array) : array_(array) {}

    bool addText(std::uint64_t code, std::size_t room, const char *text)
    {
        auto *value = static_cast<char *>(utCalloc(1, room));
        if (value == nullptr) {
            return false;
        }
        stCopy(value, room, text);
        return add(code, value);
    }
    bool addNumber(std::uint64_t code, std::uint64_t number)
    {
        auto *value = static_cast<std::uint64_t *>(utMalloc(sizeof number));
        if (value == nullptr) {
            return false;
        }
        *value = number;
        return add(code, value);
    }
    bool add(std::uint64_t code, void *value)
    {
        array_[used_++] = sbtPair{code, value};
        return true;
    }

private:
    sbtPair *array_;
    std::size_t used_ = 0;
};

bool describe(InfoWriter &info, const dhoxBackupObject_t &object, int handle, const char *name)
{
    const std::uint64_t method = std::strcmp(object.objInfo, "stStream") == 0 ? 1 : 2;
    const std::uint64_t shared = object.mediaClass == HOX_MEDIA_FIXED ? 2 : 1;
    const int label = static_cast<int>(object.restoreOrder);
    char labelText[kLabelRoom];
    std::snprintf(labelText, sizeof labelText, "%d", label);
    const bool whole =
        info.addNumber(SBTBFINFO_METHOD, method) && info.addNumber(SBTBFINFO_SHARE, shared) &&
        info.addNumber(SBTBFINFO_ORDER, shared) &&
        info.addNumber(SBTBFINFO_CRETIME, veloSecondsOf(object.insDate)) &&
        info.addNumber(SBTBFINFO_EXPTIME, veloSecondsOf(object.expDate)) &&
        info.addText(SBTBFINFO_LABEL, kLabelRoom, labelText) &&
        (object.mcName[0] == '\0' || info.addText(SBTBFINFO_COMMENT, kCommentRoom, object.mcName));
    ORC_TRACE(2, " %s: hoxHandle = %d, SBTBFINFO_METHOD = %d\n", name, handle,
              static_cast<int>(method));
    ORC_TRACE(2, " %s: hoxHandle = %d, SBTBFINFO_SHARE = %d\n", name, handle,
              static_cast<int>(shared));
    ORC_TRACE(2, " %s: hoxHandle = %d, SBTBFINFO_ORDER = %d\n", name, handle,
              static_cast<int>(shared));
    ORC_TRACE(2, " %s: hoxHandle = %d, SBTBFINFO_LABEL = %d\n", name, handle, label);
    return whole;
}

// Adds the pairs of one name. Returns ORC_RC_OK, ORC_RC_NO_MEMORY, or the storage client's code of
// a query that failed.
std::uint16_t answerOne(orcObj_t *ctx, const char *pieceName, InfoWriter &info, EntryScope &scope)
{
    const char *name = scope.name();
    const int handle = static_cast<int>(ctx->hoxHandle);
    if (!psveloPieceNameFits(pieceName)) {
        // A name that no piece can have is answered as not found.
        return info.addText(SBTBFINFO_NAME, kNameRoom, pieceName) &&
                       info.add(SBTBFINFO_NOTFOUND, nullptr)
                   ? ORC_RC_OK
                   : ORC_RC_NO_MEMORY;
    }
    ORC_TRACE(2, " %s: Calling psveloFillObjName(), hoxHandle: %d\n\n", name, handle);
    psveloFillObjName(ctx, pieceName);
    const hoxObjName &object = ctx->hoxName;
    const char *owner = ctx->options[OPT_VELO_OWNER];
    BackupQuery query(ctx, object);
    query.clearAnswer();

    ORC_TRACE(2, " %s: Calling HOXBEGINQUERY(), hoxHandle = %d\n", name, handle);
    std::int16_t rc = query.begin();
    if (rc != HOX_RC_OK) {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(scope,
                   " %s: Exit HOXBEGINQUERY() failed, hoxHandle = %d, rc = %d, "
                   "Object Name = '%s%s%s', Owner '%s', Object State = %d\n\n",
                   name, handle, rc, object.fsName, object.hlName, object.llName, owner,
                   HOX_STATE_ACTIVE);
        return static_cast<std::uint16_t>(rc);
    }
    if (!info.addText(SBTBFINFO_NAME, kNameRoom, pieceName)) {
        query.end();
        return ORC_RC_NO_MEMORY;
    }
    ORC_TRACE(2, " %s: hoxHandle = %d, SBTBFINFO_NAME = '%s'\n", name, handle, pieceName);
    ORC_TRACE(2, " %s: Calling HOXGETNEXTQOBJ(), hoxHandle = %d\n", name, handle);
    while ((rc = query.next()) == HOX_RC_MORE_DATA) {
        const dhoxBackupObject_t &found = query.answer();
        ORC_TRACE(2, " %s: hoxHandle = %d, rc = %d, Object Name = '%s%s%s', Copy Group # = %d\n",
                  name, handle, rc, found.objName.fsName, found.objName.hlName,
                  found.objName.llName, static_cast<int>(found.copyGroup));
        ORC_TRACE(2,
                  " %s: hoxHandle = %d, Object Name = '%s%s%s Mgmt Class Name = '%s', "
                  "Object Id = %d%d\n",
                  name, handle, found.objName.fsName, found.objName.hlName, found.objName.llName,
                  found.mcName, static_cast<int>(found.objId >> 32),
                  static_cast<int>(found.objId & 0xFFFFFFFFU));
    }

    bool whole = true;
    const bool finished = rc == HOX_RC_FINISHED || rc == HOX_RC_OK;
    if (rc == HOX_RC_NO_MATCH || (finished && !query.answered())) {
        whole = info.add(SBTBFINFO_NOTFOUND, nullptr);
        ORC_TRACE(2, " %s: hoxHandle = %d, rc = %d, No Match for File = '%s%s%s' - OK\n", name,
                  handle, rc, object.fsName, object.hlName, object.llName);
    } else if (finished) {
        ORC_TRACE(2, " %s: hoxHandle = %d, rc = %d, File '%s%s%s' exists\n", name, handle, rc,
                  object.fsName, object.hlName, object.llName);
        whole = describe(info, query.answer(), handle, name);
    } else {
        veloReportApiFailure(ctx, rc);
        SCOPE_EXIT(scope,
                   " %s: Exit HOXGETNEXTQOBJ() failed, hoxHandle = %d, rc = %d, "
                   "Object Name = '%s%s%s', Owner '%s'\n\n",
                   name, handle, rc, object.fsName, object.hlName, object.llName, owner);
        return static_cast<std::uint16_t>(rc);
    }
    query.end();
    return whole ? ORC_RC_OK : ORC_RC_NO_MEMORY;
}

// Allocates the array of ctx->infoCount names and fills it.
std::uint16_t answerAll(orcObj_t *ctx, char **pieceNames, EntryScope &scope)
{
    const std::size_t pairs = pairCount(ctx->infoCount);
    ctx->bkupInfoTypeP = static_cast<sbtPair *>(utCalloc(pairs, sizeof(sbtPair)));
    if (ctx->bkupInfoTypeP == nullptr) {
        return ORC_RC_NO_MEMORY;
    }
    if (trTest(TR_MEMORY)) {
        for (std::size_t i = 0; i < pairs; ++i) {
            KEEL_TRACE(
                TR_MEMORY, " %s: hoxHandle = %d, localInfoTypeP : %#x\n", scope.name(),
                static_cast<int>(ctx->hoxHandle),
                static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(&ctx->bkupInfoTypeP[i])));
        }
    }
    InfoWriter info(ctx->bkupInfoTypeP);
    for (std::int32_t i = 0; i < ctx->infoCount; ++i) {
        if (const std::uint16_t rc = answerOne(ctx, pieceNames[i], info, scope); rc != ORC_RC_OK) {
            return rc;
        }
    }
    info.add(SBTBFINFO_END, nullptr);
    return ORC_RC_OK;
}

// False when the list or the state is wrong, which is then reported.
bool acceptable(orcObj_t *ctx, char **pieceNames, EntryScope &scope)
{
    const int handle = static_cast<int>(ctx->hoxHandle);
    const bool idle = ctx->state == ORC_STATE_INITIALISED || ctx->state == ORC_STATE_IDLE;
    if (pieceNames == nullptr) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportMessage(ctx, OrcMessage(2501, scope.name()));
        if (idle) {
            ctx->state = ORC_STATE_IDLE;
        }
        SCOPE_EXIT(scope, "%s: Exit - File list to query is NULL, hoxHandle = %d\n\n", scope.name(),
                   handle);
        return false;
    }
    if (!idle) {
        veloReportWrongState(ctx, scope.name());
        SCOPE_EXIT(scope, " %s: Exit - wrong state, hoxHandle = %d, state = %d\n\n", scope.name(),
                   handle, ctx->state);
        return false;
    }
    return true;
}

std::int32_t countNames(char **pieceNames)
{
    std::int32_t count = 0;
    while (count < kMostNames && pieceNames[count] != nullptr) {
        ++count;
    }
    return count;
}

} // namespace

// Dates are read as daylight-saving time whatever the season: the database compares them with
// values that earlier releases computed so.
std::uint64_t veloSecondsOf(const hoxDate &date)
{
    tm calendar{};
    calendar.tm_year = date.year - 1900;
    calendar.tm_mon = date.month - 1;
    calendar.tm_mday = date.day;
    calendar.tm_hour = date.hour;
    calendar.tm_min = date.minute;
    calendar.tm_sec = date.second;
    calendar.tm_isdst = 1;
    const std::time_t seconds = date.year == 0 ? -1 : cuTimeOf(calendar);
    return seconds < 0 ? 0 : static_cast<std::uint64_t>(seconds);
}

void veloFreeInfo(orcObj_t *ctx, const char *function, InfoFreed occasion)
{
    sbtPair *array = ctx->bkupInfoTypeP;
    if (array == nullptr) {
        return;
    }
    const bool query = occasion == InfoFreed::ForTheNextQuery;
    const int handle = static_cast<int>(ctx->hoxHandle);
    const auto shown = [](const void *address) {
        return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(address));
    };
    for (std::size_t i = 0; i < pairCount(ctx->infoCount); ++i) {
        if (query) {
            KEEL_TRACE(TR_MEMORY, " %s: hoxHandle = %d, localInfoP : %#x\n", function, handle,
                       shown(array[i].value));
        } else {
            KEEL_TRACE(TR_MEMORY,
                       " %s: Deleting structure in InfoArray, hoxHandle = %d, localInfoP = %#x\n",
                       function, handle, shown(array[i].value));
        }
        utFree(array[i].value);
    }
    if (query) {
        ORC_TRACE(2, " %s: Free Query Pointer, hoxHandle = %d, bkupInfoTypeP: %#x\n", function,
                  handle, shown(array));
    }
    utFree(array);
    ctx->bkupInfoTypeP = nullptr;
    ctx->infoCount = 0;
}

int sbtinfo2(void *context, unsigned long /*flags*/, char **pieceNames, sbtPair **information)
{
    EntryScope scope("sbtinfo2()");
    auto *ctx = static_cast<orcObj_t *>(context);
    if (ctx == nullptr) {
        veloReportNull(scope.name(), "ctx");
        SCOPE_EXIT(scope, " %s: Exit - NULL context\n\n", scope.name());
        return -1;
    }
    if (!acceptable(ctx, pieceNames, scope)) {
        return -1;
    }
    if (information == nullptr) {
        ctx->sbtErrCode = SBT_FAILED;
        veloReportMessage(ctx, OrcMessage(2539, scope.name(), "info"));
        SCOPE_EXIT(scope, " %s: Exit - NULL information pointer\n\n", scope.name());
        return -1;
    }
    veloFreeInfo(ctx, scope.name(), InfoFreed::ForTheNextQuery);
    if (const std::int16_t rc = veloSession(ctx); rc != 0) {
        ctx->sbtErrCode = SBT_FAILED;
        SCOPE_EXIT(scope, " %s: Exit veloSession() failed, hoxHandle = %d, rc       : %d\n\n",
                   scope.name(), static_cast<int>(ctx->hoxHandle), rc);
        return -1;
    }
    ctx->state = ORC_STATE_QUERY;
    ctx->infoCount = countNames(pieceNames);
    ORC_TRACE(2, " %s: hoxHandle = %d, Files to query =  %d\n", scope.name(),
              static_cast<int>(ctx->hoxHandle), ctx->infoCount);
    const std::uint16_t rc = answerAll(ctx, pieceNames, scope);
    *information = ctx->bkupInfoTypeP;
    if (rc == ORC_RC_NO_MEMORY) {
        veloReportNoMemory(ctx);
        SCOPE_EXIT(scope, " %s: Exit - No Memory\n\n", scope.name());
    } else if (rc != ORC_RC_OK) {
        scope.leave();
    }
    if (rc != ORC_RC_OK) {
        ctx->sbtErrCode = SBT_FAILED;
    } else {
        ORC_TRACE(2, " %s: Calling HOXTERMINATE(), hoxHandle = %d\n", scope.name(),
                  static_cast<int>(ctx->hoxHandle));
    }
    veloEndSession(ctx);
    ctx->state = ORC_STATE_IDLE;
    return rc == ORC_RC_OK ? 0 : -1;
}
