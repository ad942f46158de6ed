// What a run of verifying finds: counted, and told to the watcher. One thread uses it at a
// time.
#ifndef KEEL_CLIENT_STORE_UPKEEP_VERIFY_REPORT_H
#define KEEL_CLIENT_STORE_UPKEEP_VERIFY_REPORT_H

#include "client/store/pieces/inventory.h"
#include "client/store/space/node_space.h"
#include "client/store/upkeep/verify_state.h"

#include <functional>
#include <set>
#include <string>

namespace arca::store
{

enum class Checked { record, pack, piece };

struct Hurt {
    Checked what;
    /// Of a piece its own, "NAME (BLOB)" when only this host's catalogue knows it, else the blob's;
    /// of a missing piece its identifier, of a lost filespace that one's name. Not made printable.
    std::string name;
    std::string reason;
};

struct VerifyProgress {
    std::uint64_t done = 0;    // blobs
    std::uint64_t planned = 0; // of this run; others may come and go meanwhile
    std::uint64_t bytes = 0;   // of packs and streams that were read
};

/// Counts are of this run, but for `round`.
struct VerifyOutcome {
    std::uint64_t records = 0, packs = 0, pieces = 0;
    std::uint64_t hurtRecords = 0, hurtPacks = 0, hurtPieces = 0;
    std::uint64_t recorded = 0;    // damaged parts of packs that had no record before
    std::uint64_t healed = 0;      // records that went, as their parts are right again or gone
    std::uint64_t quarantined = 0; // damaged manifests that were set aside, and lie there
    std::uint64_t missing = 0;     // pieces that were stored, never purged, and are not there
    bool onlyPacks = false; // there are packs, no piece at all, and no stream that is being stored
    bool uncounted = false; // nothing says how many pieces there should be (inventory.h)
    std::uint64_t bytesRead = 0;
    bool roundEnded = false;
    VerifyRound round; // as it stands after this run

    std::uint64_t hurt() const
    {
        return hurtRecords + hurtPacks + hurtPieces + quarantined + missing + (onlyPacks ? 1 : 0);
    }
};

/// Either may be empty.
struct VerifyWatcher {
    std::function<void(const Hurt &)> hurt;
    std::function<void(const VerifyProgress &)> progress; // often
};

/// The report while the run is under way; verify() hands out its outcome.
class VerifyReport
{
public:
    /// All three must outlive the report. What is hurt is counted in the round, too.
    VerifyReport(NodeSpace &space, const VerifyWatcher &watcher, VerifyRound &round)
        : space_(space), watcher_(watcher), round_(round)
    {
    }

    const VerifyOutcome &outcome() const { return outcome_; }
    const VerifyProgress &progress() const { return progress_; }

    void plan(std::uint64_t blobs) { progress_.planned = blobs; }
    /// Counts what should be there and is not; the first 100 are told.
    void missing(const Stock &stock);
    /// After missing(). `onlyPacks`: there are packs, and nothing that could need one.
    void endStock(bool onlyPacks);
    /// A blob is not as it should be. What the reason has up to the blob's name is left out.
    void hurt(const std::string &blobName, Checked what, std::string reason);
    /// A damaged manifest lies in the quarantine; it counts as checked.
    void quarantined(const std::string &blobName);
    /// Counts pieces of a filespace without a record as one damaged record, told once for the
    /// filespace: there may be a million of them.
    void lostFilespace(const std::string &name);
    /// A record of a damaged part was made, or went.
    void recorded() { ++outcome_.recorded; }
    void healed() { ++outcome_.healed; }
    /// Both tell the progress.
    void read(std::size_t bytes);
    void checked(Checked what);

private:
    std::string nameOf(const std::string &blobName, Checked what);
    void tell(Checked what, std::string name, std::string reason);
    void tellProgress();

    NodeSpace &space_;
    const VerifyWatcher &watcher_;
    VerifyRound &round_;
    VerifyOutcome outcome_;
    VerifyProgress progress_;
    std::set<std::string> lostFilespaces_; // that were told
};

} // namespace arca::store

#endif
