// One transaction: objects that were sent, others to delete or to make inactive, all of it done at
// the commit or not at all. The first failed or missing step poisons the transaction: what was sent
// is dropped, every later step is refused, and commit() fails with the code of that step. One
// thread at a time: the caller holds the session's mutex. Destroying it gives up what was not
// committed.
#ifndef KEEL_CLIENT_API_SESSION_TRANSACTION_H
#define KEEL_CLIENT_API_SESSION_TRANSACTION_H

#include "client/api/session/answer.h"
#include "client/store/space/node_space.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace arca::api
{

class Transaction
{
public:
    /// Takes a line for the local log.
    using Say = std::function<void(const std::string &)>;

    /// `space` must outlive the transaction.
    Transaction(store::NodeSpace &space, Say say) : space_(space), say_(std::move(say)) {}

    /// Returns true from beginObject() to endObject(), also when the object failed in between.
    bool isSending() const { return sending_; }

    // Each step poisons the transaction when it fails, and is refused with HOX_RC_WILL_ABORT when
    // an earlier one did. A step out of order is refused with HOX_RC_BAD_CALL_SEQUENCE and changes
    // nothing. Nothing that a step did shows before commit().

    /// Errors: HOX_RC_FS_UNKNOWN, HOX_RC_OBJECT_EXISTS, HOX_RC_BAD_ARGUMENT (more than 4,096
    /// objects and deletions); then no object is being sent.
    Answer<void> beginObject(store::PieceDescription description);
    /// Takes all of `bytes`, which are copied. The failure of an earlier part may be returned here.
    Answer<void> append(ByteView bytes);
    /// Ends the object, also when it fails, and returns what became of its bytes.
    Answer<store::PieceTotals> endObject();
    /// Notes a deletion. Errors: HOX_RC_OBJECT_UNKNOWN, HOX_RC_BAD_ARGUMENT as above.
    Answer<void> deleteObject(store::PieceId id);
    /// Notes that an object is to become inactive. Errors: the same; HOX_RC_OBJECT_UNKNOWN also
    /// when it is inactive.
    Answer<void> deactivateObject(store::PieceId id);
    /// Notes the deletion, by its name, of an object whose manifest is damaged: the commit sets the
    /// manifest aside. Errors: HOX_RC_OBJECT_EXISTS when it can be read, and as deleteObject().
    Answer<void> deleteDamaged(const store::ObjectName &name);
    /// For a step that failed before it came to one of the above. Keeps the first cause.
    void poison(const Refusal &cause);

    /// Publishes everything, durably and in one step, or nothing: then it returns the code of the
    /// step that failed, HOX_RC_STEP_FAILED when an object was not ended, or what publishing failed
    /// with, whose text says when it is not known whether all of it was published. Damaged
    /// manifests are set aside first, and stay so when publishing fails; each is a line for `say`.
    /// Call it once; drop the transaction afterwards.
    Answer<void> commit();

private:
    template <class T> Answer<T> step(Answer<T> answer);
    Answer<void> mayGoOn(bool sending) const;
    Answer<void> roomForOne();
    Answer<void> publish();
    Answer<void> setDamagedAside();

    store::NodeSpace &space_;
    const Say say_;
    bool sending_ = false;
    struct Object {
        std::unique_ptr<store::PieceWriter> piece; // null when none, or when it failed
        std::uint32_t registration = 0;            // of its filespace
    };
    Object open_;
    /// From the second object on: what all but the first are parked under. Goes after them.
    std::unique_ptr<blob::BlobWriter> claim_;
    std::vector<Object> finished_;
    std::vector<store::PieceId> deletions_;
    std::vector<store::PieceId> deactivations_;
    std::vector<store::ObjectName> damaged_;
    Refusal failure_{HOX_RC_OK}; // the first one
};

} // namespace arca::api

#endif
