// Beginning and ending a transaction.
#include "client/api/session/client.h"
#include "client/api/session/guest.h"
#include "client/api/session/records.h"

using namespace arca;
using namespace arca::api;

namespace
{

/// Ends a transaction that published nothing: the code of the cause becomes the reason, and its
/// detail stays with that code, as the caller will ask hoxRCMsg for the text of the reason.
Code withReason(std::uint16_t *reason, const Refusal &cause)
{
    *reason = static_cast<std::uint16_t>(remembered(cause));
    return outcome(HOX_RC_CHECK_REASON);
}

Code endTransaction(Session &session, std::uint8_t vote, std::uint16_t *reason)
{
    if (vote != HOX_VOTE_COMMIT && vote != HOX_VOTE_ABORT)
        return refused(HOX_RC_BAD_ARGUMENT, "the vote is neither commit nor abort");
    if (!session.transaction)
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    const auto done = vote == HOX_VOTE_COMMIT ? session.transaction->commit()
                                              : Answer<void>(refused(HOX_RC_ABORTED));
    session.transaction.reset();
    return done ? success() : withReason(reason, done.error());
}

} // namespace

std::int16_t hoxBeginTxn(hoxHandle_t handle)
{
    return inSession(handle, [](Session &session) -> Code {
        if (!session.isIdle())
            return refused(HOX_RC_BAD_CALL_SEQUENCE);
        ARCA_CHECK(expectOwnObjects(session));
        session.transaction.emplace(*session.space, [](const std::string &text) {
            (void)Client::instance().logLocally(text);
        });
        return success();
    });
}

std::int16_t hoxEndTxn(hoxHandle_t handle, std::uint8_t vote, std::uint16_t *reason)
{
    if (reason != nullptr)
        *reason = 0;
    return inSession(handle, [&](Session &session) -> Code {
        if (reason == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "there is no place for the reason");
        return endTransaction(session, vote, reason);
    });
}

std::int16_t hoxEndTxnEx(hoxHandle_t handle, const hoxEndTxnExIn_t *input, hoxEndTxnExOut_t *output)
{
    if (output != nullptr && mayFill(*output, HOX_ENDTXNEX_VERSION))
        output->reason = 0;
    return inSession(handle, [&](Session &session) -> Code {
        ARCA_CHECK(expectVersion(input, input == nullptr ? std::uint16_t{0} : input->stVersion,
                                 HOX_ENDTXNEX_VERSION, "the record of the end"));
        if (output == nullptr)
            return refused(HOX_RC_NULL_ARGUMENT, "there is no place for the reason");
        ARCA_CHECK(expectFillable(output, HOX_ENDTXNEX_VERSION, "the record of the reason"));
        *output = hoxEndTxnExOut_t{};
        output->stVersion = HOX_ENDTXNEX_VERSION;
        return endTransaction(session, input->vote, &output->reason);
    });
}
