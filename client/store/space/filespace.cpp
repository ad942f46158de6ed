// The stored form of a filespace: see the header.
#include "client/store/space/filespace.h"

#include "client/base/text.h"
#include "client/store/records/record_forms.h"

#include <set>

namespace arca::store
{

namespace
{
constexpr std::string_view kKind = form::filespace.kind;
constexpr std::uint32_t kVersion = form::filespace.newest;
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
    if (!reader.ok() || reader.remaining() != 0)
        return Error{ErrorKind::damaged, "the record of a filespace is damaged"};
    return filespace;
}

Result<Filespace> decodeFilespaceState(const NumberedRecord::State &state, RecordSeal seal)
{
    ARCA_TRY(Filespace filespace, decodeFilespace(state.bytes));
    if (!state.proven && seal.provesAll() && !filespace.deleted)
        return Error{ErrorKind::damaged, "the record of a filespace was written without the key "
                                         "that proves it"};
    return filespace;
}

Result<std::vector<Filespace>> filespacesOf(blob::BlobStore &store, const std::string &nodeKey,
                                            RecordSeal seal)
{
    const std::string prefix = "filespaces/" + nodeKey + "/";
    std::set<std::string> hashes;
    ARCA_CHECK(store.list(prefix, [&](const std::string &name) {
        hashes.insert(name.substr(0, name.find('/', prefix.size())));
        return true;
    }));
    std::vector<Filespace> filespaces;
    for (const std::string &hash : hashes) {
        NumberedRecord record(store, hash, seal.lenient());
        ARCA_TRY(const auto state, record.latest());
        if (!state)
            continue;
        ARCA_TRY(Filespace filespace,
                 inRecord(record.nameOf(state->number), decodeFilespaceState(*state, seal)));
        filespaces.push_back(std::move(filespace));
    }
    return filespaces;
}

std::string lostFilespaceText(const std::string &name)
{
    return "the record of the filespace " + printable(name) +
           " is not there, so none of the pieces in it can be reached; bring the missing files of "
           "the repository back (a backup into the filespace registers it again)";
}

} // namespace arca::store
