// Records that were left out: see the header.
#include "client/api/session/damaged_records.h"

#include "client/base/text.h"

namespace arca::api
{

Refusal damagedRecords(const std::string &fault, const std::vector<std::string> &blobNames)
{
    std::string text;
    for (const std::string &name : blobNames)
        text += (text.empty() ? "" : ", ") + name;
    return refused(HOX_RC_REPOSITORY_DAMAGED,
                   fault + ": the " +
                       std::string(blobNames.size() == 1 ? "record is " : "records are ") +
                       printable(text, 400));
}

} // namespace arca::api
