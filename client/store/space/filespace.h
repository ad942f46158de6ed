// A filespace of a node: a named group of pieces, described for the administrator.
#ifndef KEEL_CLIENT_STORE_SPACE_FILESPACE_H
#define KEEL_CLIENT_STORE_SPACE_FILESPACE_H

#include "client/store/records/numbered_record.h"

#include <string>
#include <vector>

namespace arca::store
{

struct Filespace {
    std::string node;
    std::string name;
    std::string type;
    std::string info; // the application's own
    std::uint64_t occupancyBytes = 0;
    std::uint64_t capacityBytes = 0;
    std::uint64_t protectedMebibytes = 0;
    std::uint32_t registration = 1; // grows by 1 when it is registered again after it was deleted
    bool deleted = false;           // nothing in it shows, and what is left is being removed
};

/// The payload of a record of kind "ARCAFSPC": occupancy, capacity, protected size (8 bytes each),
/// then node, name, type and information, each a 16-bit length and as many bytes; since version 2
/// the number of the registration (4 bytes) and 1 when deleted (2 bytes). Errors: damaged,
/// newerFormat.
Bytes encodeFilespace(const Filespace &filespace);
Result<Filespace> decodeFilespace(ByteView record);

/// Returns what a state of the record says. A state that is not proven, where states are, only
/// counts when it says that the filespace is deleted: removing a node has no key of it. Errors:
/// damaged, newerFormat.
Result<Filespace> decodeFilespaceState(const NumberedRecord::State &state, RecordSeal seal);

/// Returns all that a node ever registered, the deleted ones, too, in no order of their names.
/// `nodeKey`: spaceKeyOf() (node_record.h). Without a key in `seal` nothing is proven. Errors:
/// damaged, for the first record that is.
Result<std::vector<Filespace>> filespacesOf(blob::BlobStore &store, const std::string &nodeKey,
                                            RecordSeal seal);

/// Returns what to say of a filespace that pieces name and that has no record.
std::string lostFilespaceText(const std::string &name);

} // namespace arca::store

#endif
