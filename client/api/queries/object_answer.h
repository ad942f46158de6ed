// The answer that tells of an object. The caller holds the session's mutex.
#ifndef KEEL_CLIENT_API_QUERIES_OBJECT_ANSWER_H
#define KEEL_CLIENT_API_QUERIES_OBJECT_ANSWER_H

#include "client/api/session/session.h"

#include <map>

namespace arca::api
{

class ObjectAnswer
{
public:
    /// Fails unless the buffer holds a record of the right size and version. Writes nothing.
    static Answer<void> expectRecord(DataBlk *data);
    /// Fills the record, with the time until which its class keeps an inactive object, by what the
    /// class said when this first met it; a class that cannot be read keeps it for ever. After a
    /// failure the record is as it was.
    Answer<void> deliver(Session &session, DataBlk *data, const store::PieceInfo &piece);

private:
    Answer<std::int64_t> expiryOf(Session &session, const store::PieceInfo &piece);

    std::map<std::string, std::uint16_t> daysKept_; // of classes that were looked up
};

} // namespace arca::api

#endif
