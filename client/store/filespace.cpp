// The stored form of a filespace: see the header.
#include "client/store/filespace.h"

namespace arca::store
{

namespace
{
constexpr std::string_view kKind = "ARCAFSPC";
constexpr std::uint32_t kVersion = 2;
} // namespace

Bytes encodeFilespace(const Filespace &filespace)
{
    ByteWriter payload;
    payload.u64(filespace.occupancyBytes);
    payload.u64(filespace.capacityBytes);
    payload.u64(filespace.protectedMebibytes);
    for (const std::string *text :
         {&filespace.node, &filespace.name, &filespace.type, &filespace.info})
        payload.text(*text);
    payload.u32(filespace.registration);
    payload.u16(filespace.deleted ? 1 : 0);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<Filespace> decodeFilespace(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion));
    ByteReader reader(payload);
    Filespace filespace;
    filespace.occupancyBytes = reader.u64();
    filespace.capacityBytes = reader.u64();
    filespace.protectedMebibytes = reader.u64();
    for (std::string *text : {&filespace.node, &filespace.name, &filespace.type, &filespace.info})
        *text = reader.text();
    if (reader.ok() && reader.remaining() != 0) { // version 1 ends here
        filespace.registration = reader.u32();
        filespace.deleted = reader.u16() != 0;
    }
    if (!reader.ok())
        return Error{ErrorKind::damaged, "the record of a filespace is damaged"};
    return filespace;
}

} // namespace arca::store
