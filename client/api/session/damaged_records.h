// What is said of records that an answer left out because they cannot be read.
#ifndef KEEL_CLIENT_API_SESSION_DAMAGED_RECORDS_H
#define KEEL_CLIENT_API_SESSION_DAMAGED_RECORDS_H

#include "client/api/session/answer.h"

#include <vector>

namespace arca::api
{

/// `fault`: "SUCH RECORDS cannot be read"; `blobNames`: at least one.
Refusal damagedRecords(const std::string &fault, const std::vector<std::string> &blobNames);

} // namespace arca::api

#endif
