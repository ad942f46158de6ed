// Access rules: which of a node's pieces another node may find and read. Rules give nothing else,
// and what no rule names stays the node's own.
//
//   access/<node key>/<number: 8 digits>   one rule, never changed; taking it back removes the blob
//
// Numbers are random, so that whoever takes back a rule that is gone already cannot hit a new one.
#ifndef KEEL_CLIENT_STORE_ACCESS_H
#define KEEL_CLIENT_STORE_ACCESS_H

#include "client/store/piece.h"
#include "client/store/record.h"

#include <vector>

namespace arca::store
{

struct AccessRule {
    std::uint32_t number = 0; // never 0
    std::string grantor;
    std::string node;  // who may read
    std::string owner; // there; empty: anybody
    ObjectName name;   // highLevel and lowLevel "/*": every one

    bool admits(const std::string &reader, const std::string &readersOwner) const;
    bool covers(const ObjectName &piece) const;
};

/// The payload of a record of kind "ARCAACCS": number and object type (4 bytes each), then grantor,
/// node, owner, filespace, high-level and low-level name, each a 16-bit length and as many bytes.
Bytes encodeAccessRule(const AccessRule &rule);
Result<AccessRule> decodeAccessRule(ByteView record);

/// The rules that one node made. Several processes may change them at once.
class AccessRules
{
public:
    static Result<AccessRules> of(blob::BlobStore &store, std::string grantor);

    /// In the order of their numbers.
    Result<std::vector<AccessRule>> list();
    /// Durable on return; number and grantor are filled in. A rule that is there already is not
    /// made twice. `badArgument` when there are too many.
    Result<void> add(AccessRule rule);
    /// `notFound`. Durable on return.
    Result<void> remove(std::uint32_t number);

private:
    AccessRules(blob::BlobStore &store, std::string grantor, std::string prefix)
        : store_(store), grantor_(std::move(grantor)), prefix_(std::move(prefix))
    {
    }
    std::string blobNameOf(std::uint32_t number) const;

    blob::BlobStore &store_;
    std::string grantor_;
    std::string prefix_;
};

} // namespace arca::store

#endif
