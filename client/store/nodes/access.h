// Access rules: which of a node's pieces another node may find and read. Rules give nothing else,
// and what no rule names stays the node's own.
//
//   access/<node key>/<number: 8 digits>   one rule, never changed; taking it back removes the blob
//
// Numbers are random, so taking back a rule that is gone already cannot hit a new one.
//
// What a rule names is kept by the client; the bytes open with the data key of the node that made
// the rule, and this the reader gets by a grant beside the rule (client/store/keys/grant.h). A rule
// for a node that is registered names its key, and gives the data key to no other. A rule for a
// node that is not has no grant until its maker logs on and finds the node registered.
#ifndef KEEL_CLIENT_STORE_NODES_ACCESS_H
#define KEEL_CLIENT_STORE_NODES_ACCESS_H

#include "client/base/crypto/hash.h"
#include "client/blob/blob_store.h"
#include "client/store/keys/grant.h"
#include "client/store/pieces/piece.h"
#include "client/store/records/record.h"

#include <vector>

namespace arca::store
{

struct AccessRule {
    std::uint32_t number = 0; // never 0
    std::string grantor;
    std::string node;      // who may read
    std::string owner;     // there; empty: every one
    ObjectName name;       // highLevel and lowLevel "/*": every one; the rest is compared
    PublicKey readerKey{}; // all zeros: `node` was not registered
    Sha256 mark{};

    /// Returns true when the rule is for this reader. `readersOwner` is what the reader says of
    /// itself: an owner narrows what a rule opens by mistake, and is no protection.
    bool admits(const std::string &reader, const std::string &readersOwner) const;
    bool covers(const ObjectName &piece) const;
    /// Returns true when no part of the name stands for every one.
    bool namesOne() const;
};

/// The payload of a record of kind "ARCAACCS", version 2: number and object type (4 bytes each),
/// then grantor, node, owner, filespace, high-level and low-level name, each a 16-bit length and as
/// many bytes, then the reader's public key and the mark (32 bytes each). The mark is HMAC-SHA-256
/// of all before it under the key "access rule" of the grantor's data key: no other node can make a
/// rule.
Bytes encodeAccessRule(const AccessRule &rule);
Result<AccessRule> decodeAccessRule(ByteView record);

/// The rules that one node made. Several processes may change them at once.
class AccessRules
{
public:
    /// Of the node that has the name now, or had it last; the first one when its record cannot be
    /// read.
    static Result<AccessRules> of(blob::BlobStore &store, std::string grantor);
    static Result<AccessRules> of(blob::BlobStore &store, std::string grantor,
                                  std::uint32_t incarnation);

    std::uint32_t incarnation() const { return incarnation_; }

    /// Returns the rules in the order of their numbers. One that cannot be read, or was not made
    /// with the grantor's data key, opens nothing and is left out; `damaged` is set to the names of
    /// their blobs.
    Result<std::vector<AccessRule>> list(const SecretKey &dataKey,
                                         std::vector<std::string> *damaged = nullptr);
    /// Makes a rule, durably, and gives its key when the reader is registered; number, grantor,
    /// reader's key and mark are filled in. A rule that is there already is not made twice, but
    /// takes effect for the key that the reader has now. After an error the rule is taken back, as
    /// far as that can be done. Errors: badArgument for more than 1,024 rules.
    Result<void> add(AccessRule rule, const SecretKey &dataKey);
    /// Removes a rule, durably, which ends the access. A key that cannot be removed with it goes by
    /// complete(). Errors: notFound.
    Result<void> remove(std::uint32_t number);
    /// Removes the rules for objects of a filespace; durable on return. Damaged rules, which open
    /// nothing, stay. `isMeant` is asked after a rule was read and before it goes: it says whether
    /// what is there by then may go; false ends the call with success. After an error some are
    /// gone; it may be called again.
    Result<void> removeOf(const std::string &filespace,
                          const std::function<Result<bool>()> &isMeant);

    /// What tells the rules that are there from those at any other time: as long as it is the same,
    /// so are the rules, because none ever changes. Costs one listing of a directory.
    using State = std::vector<std::pair<std::string, std::uint64_t>>;
    Result<State> state();

    /// Gives their key to rules that have none because the reader was not registered or a grantor
    /// was interrupted, and removes what was given with rules that are gone. Returns the first
    /// failure, after all was tried.
    Result<void> complete(const SecretKey &dataKey);
    /// Returns the grantor's data key, for a session of `reader`. Errors: denied, with a sentence
    /// that says what is missing.
    Result<SecretKey> keyFor(const std::string &reader, const std::string &readersOwner,
                             const SecretKey &identity);

private:
    AccessRules(blob::BlobStore &store, std::string grantor, std::string prefix, Grants grants,
                std::uint32_t incarnation)
        : store_(store), grantor_(std::move(grantor)), prefix_(std::move(prefix)),
          grants_(std::move(grants)), incarnation_(incarnation)
    {
    }
    std::string blobNameOf(std::uint32_t number) const;
    Result<AccessRule> read(const std::string &blobName);
    Result<std::vector<AccessRule>> readAll(std::vector<std::string> &damaged);
    Result<void> verify(const AccessRule &rule, const SecretKey &dataKey) const;
    Result<void> put(AccessRule &rule, const SecretKey &dataKey);
    Result<void> giveKey(const AccessRule &rule, const SecretKey &dataKey);
    Result<void> completeOne(std::uint32_t number, const SecretKey &dataKey);

    blob::BlobStore &store_;
    std::string grantor_;
    std::string prefix_;
    Grants grants_;
    std::uint32_t incarnation_;
};

} // namespace arca::store

#endif
