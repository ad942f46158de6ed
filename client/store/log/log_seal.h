// What keeps the texts of a node's events from the other nodes of a repository: they name pieces,
// and every node can read the files of the log.
//
// In a line of the log (activity_log.h) the text is "sealed:" and hexadecimal digits: 12 bytes of
// nonce, random, and the text encrypted by AES-256-GCM under the key "activity log" of the node's
// data key, bound to the fields before it. So a line cannot be given another time, severity or
// node. Earlier releases wrote texts in clear; those are still read.
//
// For a later node of a name a dot and its incarnation (node_record.h) follow: what the one before
// it wrote is another node's, and no damage. The numbers of a name only grow.
#ifndef KEEL_CLIENT_STORE_LOG_LOG_SEAL_H
#define KEEL_CLIENT_STORE_LOG_LOG_SEAL_H

#include "client/base/crypto/secret_key.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace arca::store
{

/// The seal of one node. Any thread may use it, and copies of it.
class LogSeal
{
public:
    static Result<LogSeal> of(const SecretKey &dataKey, std::uint32_t incarnation);

    /// Returns the field. `head`: the fields before the text, with the tabs between them.
    Result<std::string> seal(std::string_view head, std::string_view text) const;
    /// Returns the text; nothing when the field was not sealed by this node with this head, or says
    /// that another one did. Earlier releases wrote no incarnation.
    std::optional<std::string> open(std::string_view head, std::string_view field) const;

    /// Returns true when the field is whole and says that an earlier node of the same name sealed
    /// it (none said: the first one, or an earlier release). A field that names this node or a
    /// later one, or that seal() does not write, or that this node did seal, is false. The earlier
    /// node's key is not known here, so its text is not proven.
    bool isOfEarlier(std::string_view head, std::string_view field) const;

    /// Returns true when the field has the form of a sealed one, of any node.
    static bool isSealed(std::string_view field);

private:
    LogSeal(SecretKey key, std::uint32_t incarnation)
        : key_(std::make_shared<const SecretKey>(std::move(key))), incarnation_(incarnation)
    {
    }

    std::optional<std::string> decrypted(std::string_view head, ByteView sealed) const;

    std::shared_ptr<const SecretKey> key_;
    std::uint32_t incarnation_;
};

} // namespace arca::store

#endif
