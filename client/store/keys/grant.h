// A grant: the key that a rule gives to the node it admits. It is the data key of the node that
// made the rule, sealed to the identity of the one that may read.
//
//   grants/<node key>/<rule: 8 digits>-<reader's key: 16 digits>   never changed
//
// The payload (kind "ARCAGRNT", version 1):
//
//   offset  size
//        0     4  number of the rule
//        4    32  the public half that it is sealed to
//       36    92  the data key as a SealedToPublic (client/store/keys/key_box.h)
//      128     -  the node that grants and the node that reads: each a 16-bit length and as many
//      bytes
//
// The context of the sealed key is "ARCAGRNT" and both nodes, each a 16-bit length and as many
// bytes, and the number of the rule (4 bytes).
#ifndef KEEL_CLIENT_STORE_KEYS_GRANT_H
#define KEEL_CLIENT_STORE_KEYS_GRANT_H

#include "client/blob/blob_store.h"
#include "client/store/keys/key_box.h"

#include <optional>
#include <set>
#include <string>

namespace arca::store
{

struct Grant {
    std::uint32_t rule = 0;
    PublicKey readerKey{};
    SealedToPublic sealed{};
    std::string grantor;
    std::string reader;

    /// Fills in `sealed`; the other members are set before.
    Result<void> seal(const SecretKey &dataKey);
    /// Returns the data key of the grantor. Errors: damaged.
    Result<SecretKey> open(const SecretKey &readersIdentity) const;
};

Bytes encodeGrant(const Grant &grant);
Result<Grant> decodeGrant(ByteView bytes);

/// The keys that one node gave with its rules. Several processes may change them at once.
class Grants
{
public:
    /// `prefix`: of the grantor's grants, in blob names.
    Grants(blob::BlobStore &store, std::string grantor, std::string prefix)
        : store_(store), grantor_(std::move(grantor)), prefix_(std::move(prefix))
    {
    }

    /// Puts the key, durably. One that is there already stays as it is, and counts as success; a
    /// damaged one is replaced.
    Result<void> give(std::uint32_t rule, const std::string &reader, const PublicKey &readerKey,
                      const SecretKey &dataKey);
    /// Returns nothing when the rule has no key for that identity. Errors: damaged, also when the
    /// grant belongs elsewhere.
    Result<std::optional<SecretKey>> find(std::uint32_t rule, const std::string &reader,
                                          const SecretKey &identity);
    /// Removes the keys of a rule for all readers; fine when there is none. After an error some may
    /// be gone. Errors: notFound when another process removes them at the same time.
    Result<void> removeAll(std::uint32_t rule);
    /// Returns the rules that have a key for any reader.
    Result<std::set<std::uint32_t>> rules();

private:
    Result<std::string> nameOf(std::uint32_t rule, const PublicKey &readerKey) const;
    /// Errors: damaged, also when it is another one than `expected`, whose `sealed` is not
    /// compared.
    Result<Grant> read(blob::BlobReader &blob, const std::string &name,
                       const Grant &expected) const;

    blob::BlobStore &store_;
    std::string grantor_;
    std::string prefix_;
};

/// Returns the number of a rule as blob names have it, in hexadecimal digits.
constexpr std::size_t kRuleDigits = 8;
std::string ruleDigits(std::uint32_t number);
/// Returns the numbers that the names under a prefix begin with; other names are passed over.
Result<std::set<std::uint32_t>> rulesUnder(blob::BlobStore &store, const std::string &prefix);
/// Removes the blob that has a name now. Errors: notFound.
Result<void> removeBlob(blob::BlobStore &store, const std::string &name);

} // namespace arca::store

#endif
