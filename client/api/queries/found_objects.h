// A query whose objects were all found when it began: by name, or by group.
#ifndef KEEL_CLIENT_API_QUERIES_FOUND_OBJECTS_H
#define KEEL_CLIENT_API_QUERIES_FOUND_OBJECTS_H

#include "client/api/queries/object_answer.h"

#include <deque>

namespace arca::api
{

class FoundObjects final : public Query
{
public:
    void add(store::PieceInfo piece) { left_.push_back(std::move(piece)); }
    /// Sets what next() returns, each time, once all objects were handed out.
    void endWith(Refusal damage) { damage_ = std::move(damage); }
    bool endsWithDamage() const { return damage_.has_value(); }

    Code next(Session &session, DataBlk *data) override;

private:
    std::deque<store::PieceInfo> left_;
    std::optional<Refusal> damage_;
    ObjectAnswer answer_;
};

} // namespace arca::api

#endif
