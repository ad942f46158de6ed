// Which pieces a node has stored, noted beside the pieces, so that a lost set of manifests is told
// from an empty one. Kept in repositories whose records are proven; elsewhere nothing is noted.
//
//   inventory/<node key>/<16 random digits>   a note: identifiers that came, and that went
//
// A sealed record of kind "ARCAINVT", version 1: the number of identifiers that came (4 bytes) and
// each of them (8), the number of those that went (4) and each of them (8).
//
// In stock is what came by any note and went by none; an identifier is never given twice.
//
//   1. A piece is noted after it became visible, so a process that dies leaves a piece without a
//      note, never a note without a piece. A note that cannot be written fails no commit.
//   2. Only reclaiming takes a manifest away for good. It notes what goes first; then it purges.
//   3. That a piece went is never forgotten (8 bytes each): a note that it came may be put later,
//      by a commit or a compaction that slept, and nothing tells how long. Another host may take
//      the claim of such a process for that of a dead one.
//   4. A compaction writes one note for many, and removes the many: those in which nothing went
//      first. Killed anywhere, the notes that are there say the same.
#ifndef KEEL_CLIENT_STORE_PIECES_INVENTORY_H
#define KEEL_CLIENT_STORE_PIECES_INVENTORY_H

#include "client/engine/duplicates/domain.h"
#include "client/store/pieces/piece.h"

#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace arca::store
{

constexpr std::size_t kMostInNote = std::size_t{1} << 20;
constexpr std::size_t kMaxNoteBytes = 2 * kMostInNote * sizeof(PieceId) + 1024;

struct Note {
    std::vector<PieceId> came, went;
};

/// The envelope of a note, without its seal.
Bytes encodeNote(const Note &note);
/// Errors: damaged, newerFormat, whatever the bytes are.
Result<Note> decodeNote(ByteView record);

struct Stock {
    std::uint64_t noted = 0;          // pieces in stock by the notes
    std::uint64_t found = 0;          // manifests, noted or not
    std::vector<PieceId> missing;     // in stock, and no manifest of them is anywhere; sorted
    std::vector<std::string> damaged; // notes that cannot be read: what they say is not known
    std::set<std::string> filespaces; // of the active pieces
    /// There are manifests and no note at all: nothing says how many there should be. Never true
    /// while a commit that notes its piece may be under way.
    bool uncounted = false;
};

class Inventory
{
public:
    explicit Inventory(engine::Domain &domain) : domain_(domain) {}

    bool isKept() const { return domain_.recordForm() == engine::RecordForm::keyed; }
    /// Compares the notes with the manifests that are there. One whose name is of no form that its
    /// place gives was moved by hand, and is not there. A damaged manifest counts as one piece
    /// of the name that its place is for. Notes that cannot be read are passed over. Reads the
    /// manifests once or twice; takes no lock.
    Result<Stock> check();
    /// Begins to count in a node that has no notes: notes durably what is there, under the lock of
    /// reclaiming. Does nothing unless Stock::uncounted holds.
    Result<void> noteFound();
    /// Notes durably that these went, before they go; after an error some may be noted, and it may
    /// be called again. The caller holds the node's lock of reclaiming.
    Result<void> noteWent(std::vector<PieceId> went);
    /// Returns true when a piece is noted as gone. A note that cannot be read says nothing.
    Result<bool> hasGone(PieceId id);
    /// Notes durably that what a manifest in the quarantine may have been is given up, under the
    /// same lock and before the manifest goes, so that it does not count as missing then.
    Result<void> noteGivenUp(const std::string &blobName);
    /// Makes few notes of many, under the same lock. Notes that cannot be read stay. Failing, it
    /// leaves notes that say the same.
    Result<void> compact();

private:
    struct Read {
        std::string name;
        Note note;
    };
    struct Noted {
        std::size_t notes = 0; // read or not
        std::vector<PieceId> stock;
        std::vector<std::string> damaged;
    };
    Result<Noted> readStock();
    Result<std::vector<Read>> readAll(std::vector<std::string> &damaged);
    Result<void> put(const Note &note);
    Result<bool> isUncounted(const Noted &before, std::uint64_t found);

    engine::Domain &domain_;
};

/// The note of one commit. Begin it before the pieces become visible; dropped, it writes nothing.
class CommitNote
{
public:
    /// Never fails: where nothing can be written, nothing will be noted. On a full disk the space
    /// that the store keeps back is used.
    explicit CommitNote(engine::Domain &domain);
    ~CommitNote();
    /// Notes the pieces, after they became visible. Never fails: what cannot be written is missing.
    /// Ends the claim that the object was.
    void write(std::vector<PieceId> came);

private:
    engine::Domain &domain_;
    std::unique_ptr<blob::BlobWriter> blob_;
};

} // namespace arca::store

#endif
