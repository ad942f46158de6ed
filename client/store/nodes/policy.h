// Management classes: what becomes of the pieces that are bound to them. They are the repository's,
// the same for every node.
//
//   classes/<name hash: 32 digits>/<number>   the numbered record of a class
//
// STANDARD, the default, is written when the repository is made (defaults.h) and is never deleted.
// In repositories of older releases it is there without a record until it is changed.
// Deleting another class retires it: nothing new is bound to it and no list shows it, but its
// record stays, so that the pieces that were bound to it keep what it says of them.
#ifndef KEEL_CLIENT_STORE_NODES_POLICY_H
#define KEEL_CLIENT_STORE_NODES_POLICY_H

#include "client/store/records/numbered_record.h"

#include <optional>
#include <string>
#include <vector>

namespace arca::store
{

constexpr std::string_view kDefaultClass = "STANDARD";
constexpr std::uint16_t kNoLimit = 65535; // of versions, of days

struct ManagementClass {
    std::string name; // upper case
    std::string description;
    std::string storagePool;
    std::uint16_t versionsKept = 1;
    std::uint16_t daysKept = kNoLimit;
    bool retired = false;

    bool isDefault() const { return name == kDefaultClass; }
};

/// The payload of a record of kind "ARCACLAS": 1 when retired, versions kept, days kept (2 bytes
/// each), then name, description and storage pool, each a 16-bit length and as many bytes.
Bytes encodeManagementClass(const ManagementClass &managementClass);
Result<ManagementClass> decodeManagementClass(ByteView record);

/// Names match in any case. Everything is durable on return; several processes may change classes
/// at once, and none undoes another's change unseen. Errors of all calls: damaged, newerFormat.
/// After an error that is not named a change may hold.
class Policy
{
public:
    /// `seal`: of the repository's records, bound to its identifier.
    Policy(blob::BlobStore &store, RecordSeal seal) : store_(store), seal_(seal) {}

    /// Returns what the names of the blobs of a class's record begin with, in whatever case the
    /// name is.
    static Result<std::string> placeOf(std::string_view name);

    /// STANDARD as it is in a new repository.
    static ManagementClass standardClass();
    /// Writes that record where STANDARD has none yet.
    Result<void> writeDefault();

    enum class Retired { left, included };
    /// Returns the default one first, the others by name. With `damaged` those that cannot be read
    /// are left out, and the names of their newest blobs (of a lost STANDARD its place) are added
    /// there; without, the first such one ends the list with its error.
    Result<std::vector<ManagementClass>> list(Retired retired = Retired::left,
                                              std::vector<std::string> *damaged = nullptr);
    /// Returns nothing when there is none, or only a retired one that is left out. Errors: damaged,
    /// for STANDARD also when its record is lost.
    Result<std::optional<ManagementClass>> find(std::string_view name,
                                                Retired retired = Retired::left);

    /// Defines a class, also one that was retired. Errors: exists; badArgument when the name is not
    /// 1 to 30 letters, digits, '_', '-' and '.', the storage pool not 1 to 30 bytes, or the
    /// description longer than 255.
    Result<void> define(ManagementClass fresh);
    /// Applies `change`, which may be called several times, also on a made-up class: it must depend
    /// on its argument only. The name stays as it is. A lost STANDARD is written again when
    /// `change` sets both versions and days. Errors: notFound, badArgument.
    Result<void> change(std::string_view name,
                        const std::function<void(ManagementClass &)> &change);
    /// Errors: notFound, also when it is retired already; badArgument for the default one.
    Result<void> retire(std::string_view name);

private:
    struct Known {
        NumberedRecord record;
        std::uint32_t number = 0; // of the state that was read
        std::optional<ManagementClass> state;
    };
    Result<void> expectSaid(const std::function<void(ManagementClass &)> &change);
    enum class Lost { damaged, none }; // what a lost STANDARD is taken for
    Result<Known> read(const std::string &name, Lost lost = Lost::damaged);

    blob::BlobStore &store_;
    RecordSeal seal_;
};

} // namespace arca::store

#endif
