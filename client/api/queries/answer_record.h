// The caller's record for an answer: checked, and filled by copying, as it may lie at any address.
#ifndef KEEL_CLIENT_API_QUERIES_ANSWER_RECORD_H
#define KEEL_CLIENT_API_QUERIES_ANSWER_RECORD_H

#include "client/api/session/records.h"

#include <cstring>
#include <span>

namespace arca::api
{

/// Returns the caller's buffer when it holds a record of the right size and version.
template <class Record> Answer<std::span<std::byte>> recordIn(DataBlk *block, std::uint16_t version)
{
    ARCA_TRY(const auto room, roomIn(block));
    if (room.size() < sizeof(Record))
        return refused(HOX_RC_BAD_ARGUMENT, "the answer record is too small");
    struct {
        std::uint16_t stVersion;
    } asked;
    std::memcpy(&asked, room.data(), sizeof asked);
    ARCA_CHECK(expectFillable(&asked, version, "the answer record"));
    return room;
}

/// Fills the caller's record by copying: it may lie at any address, also an unaligned one.
template <class Record, class Fill>
Answer<void> deliver(DataBlk *block, std::uint16_t version, Fill fillRecord)
{
    ARCA_TRY(const auto room, recordIn<Record>(block, version));
    Record record;
    fillRecord(record);
    std::memcpy(room.data(), &record, sizeof record);
    block->numBytes = sizeof record;
    return {};
}

} // namespace arca::api

#endif
