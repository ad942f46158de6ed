// A query that a session has open. One thread uses it at a time, with the session's mutex held.
#ifndef KEEL_CLIENT_API_SESSION_QUERY_H
#define KEEL_CLIENT_API_SESSION_QUERY_H

#include "client/api/session/answer.h"

namespace arca::api
{

struct Session;

class Query
{
public:
    Query() = default;
    virtual ~Query() = default;
    Query(const Query &) = delete;
    Query &operator=(const Query &) = delete;

    /// Fills the caller's record with the next answer and returns "more data"; after the last one
    /// "finished", or "no match" when there was none, or a refusal that tells what was damaged.
    /// `data` leads to a buffer, whose size and version are checked here, and data->numBytes is 0:
    /// it becomes the bytes of the record that was filled. A record that is refused takes no answer
    /// away.
    virtual Code next(Session &session, DataBlk *data) = 0;

protected:
    Code answered()
    {
        atEnd_ = HOX_RC_FINISHED;
        return outcome(HOX_RC_MORE_DATA);
    }
    Code end() const { return atEnd_; }

private:
    std::int16_t atEnd_ = HOX_RC_NO_MATCH;
};

} // namespace arca::api

#endif
