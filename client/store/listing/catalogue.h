// Lists all pieces of a node in a stable order, however many there are, in bounded memory.
//
// Behind it is the object catalogue, a file objects-<node key>.sqlite in the host's cache (see
// catalogue_file.h and host_cache.h). When a listing begins, the names of all blobs are compared
// with its rows; a row holds as long as the name has the stamp that it was read with, because no
// blob ever changes. What is new is read, what is gone is dropped, so the catalogue is never older
// than the listing. Lost, damaged or another's, it is made again from the blobs; where no file can
// be written, in a temporary one, or in memory.
//
// None of this is needed for pieces that are named to the letter: named_pieces.h.
#ifndef KEEL_CLIENT_STORE_LISTING_CATALOGUE_H
#define KEEL_CLIENT_STORE_LISTING_CATALOGUE_H

#include "client/store/listing/catalogue_file.h"
#include "client/store/listing/progress.h"
#include "client/store/space/node_space.h"

#include <deque>
#include <map>
#include <set>

namespace arca::store
{

/// Which pieces are wanted; what is empty or 0 asks for nothing. Times are seconds since 1970, UTC;
/// From, min and max are within, Before is not; inactiveBefore admits inactive pieces only.
struct ListSelection {
    enum class State { active, inactive, any };

    std::string filespace, highLevel, lowLevel; // patterns, as matchesPattern has them
    std::string owner;
    std::string managementClass; // in any case
    State state = State::any;
    CatalogueOrder order = CatalogueOrder::inserted;
    std::int64_t insertedFrom = 0, insertedBefore = 0, inactiveBefore = 0;
    std::uint64_t minBytes = 0, maxBytes = 0;

    /// Compares all but state and time of insertion, which the other one compares.
    bool admits(const PieceInfo &piece) const;
    /// Compares what a row of the catalogue says in the clear.
    bool admits(bool inactive, std::int64_t inserted) const;
};

/// One listing. One thread at a time; it must not outlive its space.
class Listing
{
public:
    /// Compares the catalogue with what is there: what is stored later is not listed. What cannot
    /// be read is passed over. `progress` is told of objects: here on another thread, until both
    /// numbers are the same, and from the beginning once more by next(). Errors: stopped, full when
    /// no catalogue can be made, what listing says.
    static Result<std::unique_ptr<Listing>> begin(NodeSpace &space, ListSelection selection,
                                                  Progress progress = {});
    ~Listing();

    /// Returns the next piece, of a registered filespace; nothing after the last one. By the time
    /// of insertion, then by the identifier; or name by name (the names in an order of their own,
    /// which is always the same), in the order of insertion. Node and digest may be missing. After
    /// an error drop the listing.
    Result<std::optional<PieceInfo>> next();

    /// What was passed over so far, in a sentence each that names the blob; what comes after
    /// kHurtKept is left out.
    static constexpr std::size_t kHurtKept = 100;
    const std::vector<std::string> &hurt() const { return hurt_; }

private:
    /// The blobs in the inactive place of a piece. At most one of them shows.
    struct InactiveCopies {
        std::uint64_t stamp = 0; // of all of them together
        std::vector<std::string> names;
    };
    /// What is stored under one of the 256 beginnings of name hashes, with its stamps.
    struct Stored {
        std::multimap<NameHash, std::string> coming; // their blobs: coming_piece.h
        std::map<NameHash, std::uint64_t> active;
        std::map<PieceId, InactiveCopies> inactive;
    };
    static std::uint64_t stampOf(std::uint64_t stamp) { return stamp; }
    static std::uint64_t stampOf(const InactiveCopies &copies) { return copies.stamp; }

    Listing(NodeSpace &space, ListSelection selection, SecretKey key);
    /// Whether the selection names its pieces to the letter, and they are found without a
    /// catalogue.
    Result<bool> findNamed();
    Result<void> fill();
    /// Whether the catalogue in the file is right now; a failure is one of the repository.
    Result<bool> fillFile();
    Result<bool> compare();
    Result<void> tell(std::uint64_t done, std::uint64_t planned) const;
    Result<bool> comparePart(std::byte first);
    Result<void> listStored(std::byte first, Stored &stored);
    void addStored(const std::string &blobName, std::uint64_t stamp, Stored &stored);
    Result<void> listRecords();
    std::uint64_t recordOf(PieceId id) const;
    /// Whether the row holds; then its blob is no longer among what is to be read.
    bool isRight(const CatalogueRow &row, Stored &stored) const;
    /// Nothing when it does not show, or cannot be read.
    Result<std::optional<CatalogueRow>> readRow(const std::string &blobName, std::uint64_t stamp);
    Result<std::optional<CatalogueRow>> tryRow(const std::string &blobName, std::uint64_t stamp);
    Result<void> loadMore();
    bool takeRows(const std::vector<CatalogueRow> &rows);
    Result<bool> isRegistered(const std::string &filespace);
    void noteHurt(std::string what);

    NodeSpace &space_;
    blob::BlobStore &blobs_;
    const ListSelection selection_;
    const SecretKey key_;
    std::unique_ptr<CatalogueFile> file_;
    std::vector<std::pair<PieceId, std::uint64_t>> records_; // stamps, by identifier
    std::set<PieceId> changing_;
    Progress progress_;
    std::uint64_t looked_ = 0, planned_ = 0, walked_ = 0;
    CataloguePosition position_;
    bool ready_ = false, atEnd_ = false;
    std::deque<PieceInfo> pieces_;
    std::map<std::string, bool> registered_;
    std::vector<std::string> hurt_;
};

} // namespace arca::store

#endif
