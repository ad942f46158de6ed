// Handing out what was found, as far as it may still be read.
#include "client/api/queries/found_objects.h"

#include "client/api/session/guest.h"

namespace arca::api
{

Code FoundObjects::next(Session &session, DataBlk *data)
{
    if (left_.empty() && damage_)
        return *damage_;
    if (left_.empty())
        return end();
    // A guest asks by name only, so all have one name: if one may not be read, none may.
    ARCA_TRY(const bool readable, mayRead(session, left_.front().description.name));
    if (!readable) {
        left_.clear();
        return end();
    }
    ARCA_CHECK(answer_.deliver(session, data, left_.front()));
    left_.pop_front();
    return answered();
}

} // namespace arca::api
