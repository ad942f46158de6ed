// Every kind of small record, in one place: what the envelope says of it (record.h), and where
// records of that kind lie. A record of another kind in that place is damaged, whatever its bytes
// say of themselves.
#ifndef KEEL_CLIENT_STORE_RECORDS_RECORD_FORMS_H
#define KEEL_CLIENT_STORE_RECORDS_RECORD_FORMS_H

#include <cstdint>
#include <string_view>

namespace arca::store
{

struct RecordForm {
    std::string_view place;  // what the names of its blobs begin with
    std::string_view suffix; // and end with; empty: anything
    std::string_view kind;   // eight letters
    std::uint32_t oldest;    // version that is read
    std::uint32_t newest;    // version that is written
};

namespace form
{

constexpr RecordForm access{"access/", "", "ARCAACCS", 2, 2};
constexpr RecordForm changePlan{"changes/", ".plan", "ARCAPLAN", 1, 2};
constexpr RecordForm changeDone{"changes/", ".done", "ARCADONE", 1, 1};
constexpr RecordForm managementClass{"classes/", "", "ARCACLAS", 1, 1};
constexpr RecordForm defaults{"defaults", "", "ARCADFLT", 1, 1};
constexpr RecordForm damage{"damage/", "", "ARCADMGE", 1, 1};
constexpr RecordForm filespace{"filespaces/", "", "ARCAFSPC", 1, 2};
constexpr RecordForm grant{"grants/", "", "ARCAGRNT", 1, 1};
constexpr RecordForm group{"groups/", "", "ARCAGRUP", 1, 1};
constexpr RecordForm recoveryHalf{"keys/recovery/", "", "ARCARCVR", 1, 1};
constexpr RecordForm node{"nodes/", "", "ARCANODE", 1, 4};
constexpr RecordForm object{"objects/", "", "ARCAOBJE", 1, 1};
constexpr RecordForm outcome{"outcomes/", "", "ARCAOUTC", 1, 1};
constexpr RecordForm heldPacks{"quarantine/", ".packs", "ARCAHELD", 1, 1};
constexpr RecordForm note{"inventory/", "", "ARCAINVT", 1, 1};
constexpr RecordForm graceTime{"options/grace/", "", "ARCAGRAC", 1, 1};
constexpr RecordForm mark{"reclaim/", "", "ARCACOND", 1, 2};

} // namespace form

} // namespace arca::store

#endif
