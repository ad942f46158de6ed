// Sending objects.
#include "client/api/objects/attributes.h"
#include "client/api/objects/filespace_check.h"
#include "client/api/session/client.h"
#include "client/api/session/records.h"

using namespace arca;
using namespace arca::api;

namespace
{

Answer<store::PieceDescription> describe(Session &session, const hoxObjName *name,
                                         const ObjAttr *attributes)
{
    store::PieceDescription piece;
    ARCA_TRY(piece.name, objectNameOf(name));
    ARCA_CHECK(takeAttributes(session, attributes, kEveryAttribute, piece));
    piece.sizeEstimate = joined(attributes->sizeEstimate);
    ARCA_CHECK(expectFilespace(session, piece.name.filespace));
    return piece;
}

Answer<void> sendBlock(Transaction &transaction, DataBlk *data)
{
    ARCA_TRY(const ByteView bytes, bytesIn(data));
    data->numBytes = 0;
    ARCA_CHECK(transaction.append(bytes));
    data->numBytes = data->bufferLen;
    return {};
}

Answer<void> beginObject(Session &session, std::uint8_t sendType, const hoxObjName *name,
                         const ObjAttr *attributes, DataBlk *data)
{
    ARCA_CHECK(expectBackup(sendType));
    if (data != nullptr)
        ARCA_CHECK(bytesIn(data));
    ARCA_TRY(store::PieceDescription piece, describe(session, name, attributes));
    ARCA_CHECK(session.transaction->beginObject(std::move(piece)));
    if (data != nullptr)
        ARCA_CHECK(sendBlock(*session.transaction, data));
    return {};
}

/// In units of 1/10,000 of what there was.
std::uint32_t reduction(std::uint64_t before, std::uint64_t after)
{
    if (before == 0 || after >= before)
        return 0;
    const double saved = static_cast<double>(before - after) / static_cast<double>(before);
    return static_cast<std::uint32_t>(saved * 10000.0);
}

/// Every stored byte counts as direct: there is no server process.
void describeTotals(const store::PieceTotals &totals, hoxEndSendObjExOut_t &output)
{
    const std::uint64_t stored = totals.storedBytes + totals.manifestBytes;
    output.totalBytesSent = split(totals.streamBytes);
    output.totalDirectBytes = split(stored);
    output.objDeduplicated = totals.deduplicated ? 1 : 0;
    output.totalDedupSize = split(totals.deduplicated ? totals.newBytes : totals.streamBytes);
    output.dedupRatio = totals.deduplicated ? reduction(totals.streamBytes, totals.newBytes) : 0;
    output.objCompressed = totals.compressed ? 1 : 0;
    output.totalCompressSize = split(totals.compressed ? stored : totals.newBytes);
    output.compressRatio = totals.compressed ? reduction(totals.newBytes, stored) : 0;
    output.encryptionType = encryptionBits(totals.cipher);
}

Answer<store::PieceTotals> endObject(Session &session)
{
    if (!session.transaction || !session.transaction->isSending())
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    return session.transaction->endObject();
}

} // namespace

std::int16_t hoxBindMC(hoxHandle_t handle, const hoxObjName *name, std::uint8_t sendType,
                       mcBindKey *binding)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (binding == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "the binding record is null");
        ARCA_CHECK(expectFillable(binding, HOX_MCBIND_VERSION, "the binding record"));
        ARCA_CHECK(expectBackup(sendType));
        ARCA_CHECK(objectNameOf(name));
        auto bound = session.repository->policy().find(store::kDefaultClass);
        // What STANDARD keeps decides about expiry only, so its damage stops no backup.
        if (!bound && isUnreadable(bound.error()))
            bound = std::optional(store::Policy::standardClass());
        ARCA_CHECK(bound);
        *binding = mcBindKey{};
        binding->stVersion = HOX_MCBIND_VERSION;
        fill(binding->mcName, (*bound)->name);
        binding->backupCopyGroup = 1;
        fill(binding->backupDestination, (*bound)->storagePool);
        return success();
    });
}

std::int16_t hoxSendObj(hoxHandle_t handle, std::uint8_t sendType, void *, const hoxObjName *name,
                        const ObjAttr *attributes, DataBlk *data)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.transaction || session.transaction->isSending())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        const auto begun = beginObject(session, sendType, name, attributes, data);
        if (!begun) {
            // A refused object is a missing step: the transaction must not be committed without it.
            session.transaction->poison(begun.error());
            return begun.error();
        }
        return success();
    });
}

std::int16_t hoxSendData(hoxHandle_t handle, DataBlk *data)
{
    return inSession(handle, [&](Session &session) -> Code {
        if (!session.transaction || !session.transaction->isSending())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        const auto sent = sendBlock(*session.transaction, data);
        if (!sent) {
            session.transaction->poison(sent.error());
            return sent.error();
        }
        return success();
    });
}

std::int16_t hoxEndSendObj(hoxHandle_t handle)
{
    return inSession(handle, [](Session &session) -> Code {
        ARCA_CHECK(endObject(session));
        return success();
    });
}

std::int16_t hoxEndSendObjEx(hoxHandle_t handle, const hoxEndSendObjExIn_t *input,
                             hoxEndSendObjExOut_t *output)
{
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_CHECK(expectVersion(input, input == nullptr ? std::uint16_t{0} : input->stVersion,
                                 HOX_ENDSENDEX_VERSION, "the record of the end"));
        if (output == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "there is no place for the totals");
        ARCA_CHECK(expectFillable(output, HOX_ENDSENDEX_VERSION, "the record of the totals"));
        ARCA_TRY(const store::PieceTotals totals, endObject(session));
        *output = hoxEndSendObjExOut_t{};
        output->stVersion = HOX_ENDSENDEX_VERSION;
        describeTotals(totals, *output);
        return success();
    });
}
