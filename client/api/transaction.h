// One transaction: objects that were sent, others to delete or to make inactive, all of it done at
// the commit or not at all. The first failed or missing step poisons it: from then on it can only
// be given up.
#ifndef KEEL_CLIENT_API_TRANSACTION_H
#define KEEL_CLIENT_API_TRANSACTION_H

#include "client/api/answer.h"
#include "client/store/node_space.h"

#include <memory>
#include <vector>

namespace arca::api
{

class Transaction
{
public:
    explicit Transaction(store::NodeSpace &space) : space_(space) {}

    /// An object is being sent: begun, not ended. Also when it failed on the way.
    bool isSending() const { return sending_; }

    // Each step poisons the transaction when it fails, and is refused with HOX_RC_WILL_ABORT when
    // an earlier one did.
    Answer<void> beginObject(store::PieceDescription description);
    Answer<void> append(ByteView bytes);
    Answer<store::PieceTotals> endObject();
    Answer<void> deleteObject(store::PieceId id);
    Answer<void> deactivateObject(store::PieceId id);
    /// For a step that failed before it came to one of the above.
    void poison(const Refusal &cause);

    /// Publishes everything, or nothing and the code of the cause.
    Answer<void> commit();

private:
    template <class T> Answer<T> step(Answer<T> answer);
    Answer<void> mayGoOn(bool sending) const;
    Answer<void> roomForOne();
    Answer<void> publish();

    store::NodeSpace &space_;
    bool sending_ = false;
    struct Object {
        std::unique_ptr<store::PieceWriter> piece; // null when none, or when it failed
        std::uint32_t registration = 0;            // of its filespace
    };
    Object open_;
    std::vector<Object> finished_;
    std::vector<store::PieceId> deletions_;
    std::vector<store::PieceId> deactivations_;
    std::int16_t failure_ = HOX_RC_OK;
};

} // namespace arca::api

#endif
