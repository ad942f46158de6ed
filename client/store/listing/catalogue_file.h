// The rows of the object catalogue in a file of SQLite: what was read of each piece, sealed, with
// as much in the clear as its order and the comparison with the blobs need. The file is a cache. It
// may be lost, cut, damaged or another's at any time, and several processes may use it at once;
// the caller makes it again then (see catalogue.h). One thread at a time.
//
//   about(name, value)   'whose': layout of the file, and a digest that only the node's key gives
//   objects(hash, inserted, id, inactive, stamp, record, sealed), in the order of the first four
//   by_time              the index of the others: inserted, id, inactive, hash
//
// The table lies in the order in which the blobs are gone through, and the index is made when a new
// file has been filled: so filling one writes everything once, one page after the other.
//
// A row tells no more than the names and dates of the blobs do: inserted, id, inactive and hash are
// of the piece, stamp is that of its blob, record that of the record beside it (0: it has none).
// What the piece is stands in `sealed`: 12 bytes of nonce, random, and the payload encrypted by
// AES-256-GCM under a key that comes from the node's data key, bound to the columns before it.
#ifndef KEEL_CLIENT_STORE_LISTING_CATALOGUE_FILE_H
#define KEEL_CLIENT_STORE_LISTING_CATALOGUE_FILE_H

#include "client/base/crypto/aead.h"
#include "client/base/crypto/secret_key.h"
#include "client/base/local/database.h"
#include "client/store/pieces/piece.h"

#include <functional>
#include <optional>
#include <vector>

namespace arca::store
{

using NameHash = std::array<std::byte, 16>; // as in blob names

struct CatalogueRow {
    std::int64_t inserted = 0;
    PieceId id = 0;
    bool inactive = false;
    NameHash hash{};
    std::uint64_t stamp = 0;
    std::uint64_t record = 0;
    Bytes sealed; // empty where only the rest was asked for
};

/// Where a listing is: behind the row with these.
struct CataloguePosition {
    bool began = false;
    NameHash hash{}; // of the orders by name only
    std::int64_t inserted = 0;
    PieceId id = 0;
    bool inactive = false;
};

enum class CatalogueOrder { inserted, name };

class CatalogueFile
{
public:
    /// `path` as a Database takes it. `key` is kept by reference.
    CatalogueFile(const std::string &path, const SecretKey &key);
    ~CatalogueFile();

    // Each returns false on failure; discard the file then.

    /// Opens it, or makes it; one that is damaged or another's is thrown away first. Waits up to 5
    /// s for another process, as change() does.
    bool open();
    /// Adds the rows of the names whose hash begins with that byte, in order, without what is
    /// sealed.
    bool rowsUnder(std::byte first, std::vector<CatalogueRow> &rows);
    /// Takes rows away and puts others, in one transaction: after a failure neither was done.
    bool change(const std::vector<CatalogueRow> &gone, const std::vector<CatalogueRow> &fresh);
    /// Makes the index where it is missing, and returns true when table and index say the same in
    /// the same order, all of it: a file that was changed behind our back is found out before
    /// anything of it is answered. `goOn` is asked now and then; false ends it, and the file is as
    /// good as before.
    bool isConsistent(const std::function<bool()> &goOn);
    /// Adds the rows behind a position, at most `limit`; fewer only at the end.
    bool rowsAfter(CatalogueOrder order, const CataloguePosition &after, std::size_t limit,
                   std::vector<CatalogueRow> &rows);

    /// Returns true when something failed since open() because the file is damaged.
    bool isDamaged() const { return damaged_; }
    /// See Database::discard().
    bool discard();

    /// Fills in row.sealed; the other columns are set before, as they are bound to it.
    Result<void> seal(CatalogueRow &row, const PieceInfo &piece) const;
    /// Returns the piece without its node and digest. Errors: damaged unless everything in the row
    /// is what was put there.
    Result<PieceInfo> openRow(const CatalogueRow &row) const;

private:
    bool failed();
    bool prepare();
    bool isOurs();
    bool tableIsIndex();
    bool insert(const CatalogueRow &row);
    bool remove(const CatalogueRow &row);

    const SecretKey &key_;
    Database database_;
    bool damaged_ = false;
    Statement under_, insert_, remove_, byTime_, byName_;
};

} // namespace arca::store

#endif
