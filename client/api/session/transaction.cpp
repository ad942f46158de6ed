// Transactions: see the header.
#include "client/api/session/transaction.h"

#include "client/base/text.h"

namespace arca::api
{

namespace
{

constexpr std::size_t kMaxObjects = 4096;

template <class T> Answer<T> answered(Result<T> result)
{
    if (!result)
        return Refusal(std::move(result).error());
    if constexpr (std::is_void_v<T>)
        return {};
    else
        return std::move(result).value();
}

} // namespace

void Transaction::poison(const Refusal &cause)
{
    const bool first = failure_.code == HOX_RC_OK;
    if (first) {
        failure_.code = cause.code;
        failure_.text = cause.text;
    }
    // What was sent is dropped at once: the failure may be a lack of the space that it takes.
    open_ = {};
    finished_.clear();
    claim_.reset();
    if (first) // last, as there may be no memory for it
        failure_.detail = cause.detail;
}

template <class T> Answer<T> Transaction::step(Answer<T> answer)
{
    if (!answer)
        poison(answer.error());
    return answer;
}

Answer<void> Transaction::mayGoOn(bool sending) const
{
    if (sending != sending_)
        return refused(HOX_RC_BAD_CALL_SEQUENCE);
    if (failure_.code != HOX_RC_OK)
        return refused(HOX_RC_WILL_ABORT);
    return {};
}

Answer<void> Transaction::roomForOne()
{
    ARCA_CHECK(mayGoOn(false));
    if (finished_.size() + deletions_.size() + deactivations_.size() + damaged_.size() >=
        kMaxObjects)
        return step<void>(refused(HOX_RC_BAD_ARGUMENT, "a transaction takes 4,096 objects"));
    return {};
}

Answer<void> Transaction::beginObject(store::PieceDescription description)
{
    ARCA_CHECK(roomForOne());
    if (!finished_.empty() && !claim_) {
        auto claim = step(answered(space_.beginClaim()));
        if (!claim)
            return std::move(claim).error();
        claim_ = std::move(claim).value();
    }
    auto filespace = step(answered(space_.filespace(description.name.filespace)));
    if (!filespace)
        return std::move(filespace).error();
    if (!*filespace)
        return step<void>(refused(HOX_RC_FS_UNKNOWN, "the filespace was deleted meanwhile"));
    std::vector<store::PieceId> replaced = deletions_;
    replaced.insert(replaced.end(), deactivations_.begin(), deactivations_.end());
    auto writer = step(answered(space_.beginPiece(std::move(description), replaced)));
    if (!writer)
        return std::move(writer).error();
    open_ = {std::move(writer).value(), (*filespace)->registration};
    sending_ = true;
    return {};
}

Answer<void> Transaction::append(ByteView bytes)
{
    ARCA_CHECK(mayGoOn(true));
    return step(answered(open_.piece->append(bytes)));
}

Answer<store::PieceTotals> Transaction::endObject()
{
    const auto allowed = mayGoOn(true);
    sending_ = false;
    if (!allowed)
        return allowed.error();
    auto totals = step(answered(open_.piece->finish()));
    if (!totals)
        return totals;
    // A transaction may have more objects than the host has descriptors.
    if (claim_)
        if (auto parked = step(answered(open_.piece->park(*claim_))); !parked)
            return std::move(parked).error();
    finished_.push_back(std::move(open_));
    return totals;
}

Answer<void> Transaction::deleteObject(store::PieceId id)
{
    ARCA_CHECK(roomForOne());
    auto found = step(answered(space_.find(id)));
    if (!found)
        return std::move(found).error();
    deletions_.push_back(found->id);
    return {};
}

Answer<void> Transaction::deactivateObject(store::PieceId id)
{
    ARCA_CHECK(roomForOne());
    auto found = step(answered(space_.find(id)));
    if (!found)
        return std::move(found).error();
    if (!found->isActive())
        return step<void>(refused(HOX_RC_OBJECT_UNKNOWN, "the object is inactive already"));
    deactivations_.push_back(found->id);
    return {};
}

Answer<void> Transaction::deleteDamaged(const store::ObjectName &name)
{
    ARCA_CHECK(roomForOne());
    ARCA_CHECK(step(answered(space_.expectDamaged(name))));
    damaged_.push_back(name);
    return {};
}

/// What is set aside is kept, so when a later step fails nothing is lost; the other way round, a
/// commit whose pieces show would have to be called failed.
Answer<void> Transaction::setDamagedAside()
{
    for (const store::ObjectName &name : damaged_) {
        ARCA_TRY(const std::string now, answered(space_.setAside(name)));
        say_("the damaged object " + printable(name.joined()) +
             " was deleted; what is left of it is kept as " + now +
             " until arca rm --blob removes it");
    }
    return {};
}

Answer<void> Transaction::commit()
{
    if (sending_)
        poison(refused(HOX_RC_STEP_FAILED));
    if (failure_.code != HOX_RC_OK)
        return failure_;
    return publish();
}

Answer<void> Transaction::publish()
{
    ARCA_CHECK(setDamagedAside());
    const std::size_t steps = finished_.size() + deletions_.size() + deactivations_.size();
    if (steps == 0)
        return {};
    // One object or one deletion is an atomic step without a plan.
    if (steps == 1 && !finished_.empty())
        return answered(space_.commit(*finished_.front().piece, finished_.front().registration));
    if (steps == 1 && !deletions_.empty())
        return answered(space_.remove(deletions_.front()));
    std::vector<store::NodeSpace::Sent> pieces;
    for (const Object &object : finished_)
        pieces.push_back({object.piece.get(), object.registration});
    return answered(space_.commitTogether({pieces, deletions_, deactivations_}));
}

} // namespace arca::api
