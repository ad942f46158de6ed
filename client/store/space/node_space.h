// What one node keeps in a repository: its pieces, its filespaces, its log. Nothing of another node
// can be reached through it. One thread uses it at a time; it must not outlive its repository.
//
// What a call changes is durable on return. A call that needs the lock of changes (lockChanges())
// takes it itself; the caller does not hold it, but for claimName() and giveNameBack(), which take
// none. "Errors" names those to branch on: any call may also fail with damaged, io and the other
// kinds of the store. After such an error a change may have been made unless the call says
// otherwise.
#ifndef KEEL_CLIENT_STORE_SPACE_NODE_SPACE_H
#define KEEL_CLIENT_STORE_SPACE_NODE_SPACE_H

#include "client/base/crypto/secret_key.h"
#include "client/blob/listed_directory.h"
#include "client/store/changes/change_outcome.h"
#include "client/store/pieces/piece_reader.h"
#include "client/store/pieces/piece_writer.h"
#include "client/store/pieces/removed_piece.h"
#include "client/store/space/filespace.h"
#include "client/store/space/group.h"
#include "client/store/space/known_places.h"

#include <functional>
#include <optional>
#include <set>
#include <span>

namespace arca::store
{

class CommitNote;
struct StoredManifest;

class NodeSpace
{
public:
    /// `dataKey` is the key of that node, under which all it keeps is sealed; `records`: how its
    /// repository keeps records; `incarnation`: node_record.h. Reads nothing: a wrong key shows as
    /// damaged manifests.
    static Result<std::unique_ptr<NodeSpace>> open(blob::BlobStore &store, std::string node,
                                                   SecretKey dataKey, engine::RecordForm records,
                                                   HostCache cache = {},
                                                   std::uint32_t incarnation = 0);

    const std::string &node() const { return node_; }
    std::uint32_t incarnation() const { return incarnation_; }
    const SecretKey &dataKey() const { return dataKey_; }
    engine::Domain &domain() { return *domain_; }

    /// Says that a session of another node, which was granted some of the pieces, uses it: nothing
    /// is written then, not even what a restore finds damaged.
    void useAsGuest() { isOwn_ = false; }

    /// How the streams that begin from now on are treated.
    void use(const engine::Settings &settings) { settings_ = settings; }
    const engine::Settings &settings() const { return settings_; }

    /// Begins a piece under a name that is free now, or that one of the pieces `replaced` has:
    /// these must be removed, or made inactive, by the same commitTogether(). Whether the name is
    /// free then is decided there, and only there whether the filespace is registered.
    /// description.node is filled in. A damaged manifest that has the name is set aside. Errors:
    /// exists.
    Result<std::unique_ptr<PieceWriter>> beginPiece(PieceDescription description,
                                                    std::span<const PieceId> replaced = {});
    /// Begins the claim under which a transaction parks its pieces; see ParkingWriter::park().
    Result<std::unique_ptr<blob::BlobWriter>> beginClaim() { return domain_->beginBlob(); }

    /// Returns the active piece of that name (the type is not compared); nothing when there is
    /// none. Does not ask whether the filespace is registered: the caller does. Errors: damaged.
    Result<std::optional<PieceInfo>> find(const ObjectName &name);
    /// Returns the inactive pieces that had exactly that name, the last to become inactive first.
    /// One that cannot be read is passed over; with `passedOver` the first reason is put there.
    /// `inactive`: a listing to use for many names; null: the store is listed.
    Result<std::vector<PieceInfo>> inactiveOf(const ObjectName &name,
                                              std::optional<Error> *passedOver = nullptr,
                                              blob::ListedDirectory *inactive = nullptr);
    /// Returns the names of the blobs that may hold them (a superset).
    Result<std::vector<std::string>> inactiveBlobsOf(const ObjectName &name);

    /// Returns the piece, active or inactive, of a registered filespace. A piece that was renamed
    /// or brought back is found by its former identifiers, too; `id` of what is returned is the
    /// present one. Errors: notFound, also of a removed piece.
    Result<PieceInfo> find(PieceId id);
    /// Opens the same piece for reading, under a claim: it stays readable to the end although it is
    /// removed meanwhile. Where no claim can be made (read-only, denied, full) it reads without.
    Result<std::unique_ptr<PieceReader>> openPiece(PieceId id);

    /// Returns the manifest in a blob of this node, whether the piece shows or not. Errors:
    /// damaged, also when it belongs elsewhere.
    Result<Manifest> readOwn(blob::BlobReader &blob, const std::string &blobName) const;

    /// Returns the piece in a blob of this node with its present attributes, whatever becomes of
    /// its filespace; nothing when it does not show.
    Result<std::optional<PieceInfo>> readShown(blob::BlobReader &blob, const std::string &blobName);
    /// Returns the pieces named by changes that are being made: what shows of them depends on more
    /// than their blobs and records.
    Result<std::set<PieceId>> beingChanged();
    /// Returns the keyed hash that the blob names of pieces of that name, and the upper halves of
    /// their identifiers, begin with.
    Result<Sha256> hashOf(const ObjectName &name) const;

    /// Moves the active piece of a name out of the way when its manifest is damaged: it is kept
    /// (quarantine.h), and the name is free. Returns the blob's new name. Errors: notFound when
    /// nothing is stored there, exists when what is there can be read.
    Result<std::string> setAside(const ObjectName &name);
    /// Returns success when setAside() would move what is stored under a name. Errors: as there.
    Result<void> expectDamaged(const ObjectName &name);
    /// The same for any manifest of the node that `judged` found damaged; quarantine.h says what
    /// holds.
    Result<std::string> setAside(const std::string &blobName, blob::BlobReader &judged);

    /// Waits for the lock of changes, which each process holds that removes pieces, changes their
    /// records, or moves manifests to the quarantine or back. It only saves work. Settles first
    /// what was left half-changed: what is found so under the lock was left by dead processes; what
    /// cannot be settled now waits for the next holder. Errors: conflict, which names the holder.
    Result<std::unique_ptr<blob::BlobLock>> lockChanges();
    /// A piece that was put at its place in pieces/, and is acknowledged to no one yet.
    struct PutPiece {
        ObjectName name;
        std::string activeName;
        PieceId id = 0;
    };
    /// Decides whether a piece that was put has its name (coming_piece.h). `own`: the change that
    /// it came with, or 0. Errors: exists or conflict when the name is lost, to another piece or by
    /// a removal; the caller takes the piece back.
    Result<void> claimName(const PutPiece &piece, ChangeId own);
    /// Takes back what claimName() refused, as well as that can be done.
    void giveNameBack(const PutPiece &piece);
    /// Returns true when a piece was ever stored: it came with no change, or its change is done.
    /// `waited`: its manifest lay in coming/.
    Result<bool> wasStored(PieceId id, bool waited);

    /// Removes the piece, durably: it shows no more, and can be brought back until it is purged
    /// (removed_piece.h). Errors: notFound, also when it was removed, or replaced, meanwhile.
    Result<void> remove(PieceId id);

    /// Returns true when removed pieces are kept for a grace time. In a repository of an earlier
    /// layout a removal is final, and the calls up to purge() find nothing.
    bool keepsRemoved() const { return domain_->recordForm() == engine::RecordForm::keyed; }
    /// Visits the removed pieces in the order of their identifiers; `visit` answers false to stop.
    /// One that cannot be read is passed over: verifying names it.
    Result<void> visitRemoved(const std::function<bool(const RemovedPiece &)> &visit);
    /// Returns those that had exactly that name, the last to be removed first.
    Result<std::vector<RemovedPiece>> removedOf(const ObjectName &name);
    /// Brings a removed piece back under its name, durably: active when it was active, else
    /// inactive. It has another identifier then, which is returned with the rest, and the old one
    /// leads to it. After an error call it again: it may be back. Errors: notFound, exists when its
    /// name is in use, noFilespace.
    Result<PieceInfo> undelete(PieceId id);
    /// Returns the pieces of which nothing is left once these removed manifests are purged.
    /// Where that cannot be told now, the names are dropped, and `unclear` says why.
    Result<std::vector<PieceId>> goneWith(std::vector<RemovedName> &names, Result<void> &unclear);
    /// Returns the removed pieces that have these names, sorted. What a killed removal, a rename or
    /// an undelete left under removed/ is no removed piece.
    Result<std::vector<PieceId>> removedAmong(std::span<const RemovedName> names);
    /// Takes removed manifests away for good, with their records, and locks changes itself. Returns
    /// how many removed pieces went for good, as removedAmong() tells them. Only reclaiming calls
    /// it, after it noted that they go (inventory.h): `noted`, sorted. Of any other piece a name is
    /// taken away only while the piece is elsewhere; else the next run notes it first. After an
    /// error some may be gone; it may be called again. In the order of their identifiers it costs
    /// least: each directory is listed once.
    Result<std::uint64_t> purge(std::span<const RemovedName> names, std::span<const PieceId> noted);

    /// Changes owner, management class and information of the active piece of a name; what else
    /// `change` alters is ignored. Errors: notFound, also when `only` has a value and the name
    /// leads to a piece of another identifier.
    Result<void> update(const ObjectName &name, std::optional<PieceId> only,
                        const std::function<void(PieceDescription &)> &change);

    /// Returns the identifier that a piece was stored under before it was ever renamed;
    /// `unreadable`: also of a piece that cannot be read. Errors: notFound.
    Result<PieceId> firstId(PieceId id, bool unreadable = false);
    Groups groups() { return Groups(*domain_); }

    /// Commits a finished piece, if its filespace is still the one that was registered under that
    /// number when it was begun. After an error the piece is taken back; where that fails, the text
    /// says that it may be stored. The writer is of no use then. Errors: exists, conflict,
    /// noFilespace (also when the node was removed).
    Result<void> commit(PieceWriter &piece, std::uint32_t registration);

    struct Sent {
        PieceWriter *piece;
        std::uint32_t registration;
    };
    struct Step {
        std::span<const Sent> pieces;
        std::span<const PieceId> removals;
        std::span<const PieceId> deactivations;
    };
    /// Commits finished pieces, removes others and makes others inactive in one step: at every
    /// moment, for every process and whatever dies, all of it shows or nothing. A piece both
    /// removed and deactivated is removed. After an error nothing of it shows, unless the text says
    /// that this is not known until the node next logs on. Errors: exists, notFound (a deactivation
    /// also of an inactive piece), conflict when another process undid the change, noFilespace as
    /// above.
    Result<void> commitTogether(const Step &step);
    /// Gives the active piece of a name another name, in one step. It gets another identifier, and
    /// is found by the old one, too. Its inactive and removed versions keep the old name. After an
    /// error as commitTogether(). Errors: notFound (also no filespace for `to`), exists, conflict.
    Result<void> rename(const ObjectName &from, const ObjectName &to);
    /// Finishes or undoes what processes that died left half-changed, unless another process holds
    /// the lock of changes, which does it itself. What fails is left to the next call.
    void settleChanges();
    /// Removes outcomes that no copy needs any more, and what the makers of undone changes
    /// published late. Returns the first failure, after all was tried.
    Result<void> tidyOutcomes();

    /// Returns nothing when it was never registered, or is deleted. For a damaged record it returns
    /// a stand-in without type, information and sizes, so that the pieces stay within reach.
    Result<std::optional<Filespace>> filespace(const std::string &name);
    /// Returns false when not even a record says that it was deleted: every filespace that a piece
    /// was ever stored in keeps one.
    Result<bool> everHadFilespace(const std::string &name);
    /// Returns what the names of the blobs of a filespace's record begin with, registered or not.
    Result<std::string> filespacePlace(const std::string &name) const;
    /// Registers it; node and registration are filled in. What a deletion left in it is removed
    /// first. Errors: exists when it is registered already, noFilespace when the node was removed.
    Result<void> registerFilespace(const Filespace &filespace);
    /// Applies `change` to what is registered; it is called again on the present state when another
    /// process was faster. Errors: notFound.
    Result<void> updateFilespace(const std::string &name,
                                 const std::function<void(Filespace &)> &change);
    /// Deletes it and every piece in it: in one step they all stop showing, then each becomes a
    /// removed piece, which a later registration of the name lets be brought back. What this or an
    /// interrupted deletion could not remove is no error: the next one removes it, or the next
    /// registration of the filespace. `only`: the registration that is meant; nothing: the present
    /// one when the call begins. Errors: notFound, also when that one is deleted already.
    Result<void> deleteFilespace(const std::string &name, std::optional<std::uint32_t> only = {});
    /// Returns the last registration of a filespace that is deleted; nothing for any other.
    Result<std::optional<std::uint32_t>> deletedRegistration(const std::string &name);
    /// Returns true when it is deleted, and was not registered again after that registration.
    Result<bool> isDeleted(const std::string &name, std::uint32_t registration);
    /// Returns true when removed/ has a manifest of the piece, which may be a leftover of a rename
    /// or of a removal that was interrupted.
    Result<bool> isRemoved(PieceId id);

private:
    struct Located {
        std::string blobName;
        std::unique_ptr<blob::BlobReader> blob;
        PieceInfo info;
    };

    NodeSpace(blob::BlobStore &store, std::string node, std::uint32_t incarnation, std::string key,
              SecretKey dataKey, std::unique_ptr<engine::Domain> domain);
    std::string blobNameOf(const Sha256 &nameHash) const;
    std::string prefixOf(PieceId id) const;
    std::string inactiveNameOf(PieceId id) const;
    std::string inactivePrefixOf(const Sha256 &nameHash) const;
    /// Where the copy is that a change makes of a piece that becomes inactive.
    std::string copyNameOf(PieceId id, ChangeId change) const;
    /// Up to layout 3 they do not.
    bool namesCarryChanges() const { return domain_->recordForm() == engine::RecordForm::keyed; }
    /// What a manifest is whose header is damaged: perhaps the piece, or surely another one.
    enum class Unclear { perhapsIt, another };
    /// Finds a stored piece: locate() under coming/ and pieces/, visible or not; locateInactive()
    /// under inactive/, where copies of changes that are not done are none. Errors: notFound, and
    /// those of reading what may be the piece.
    Result<Located> locate(PieceId id, Unclear unclear = Unclear::perhapsIt);
    Result<Located> locateInPlace(PieceId id, Unclear unclear);
    Result<Located> locateAmong(std::span<const std::string> names, PieceId id, Unclear unclear);
    Result<Located> locateInactive(PieceId id);
    Result<Located> locateCopy(std::span<const std::string> copies, PieceId id);
    /// The one of both places that can be read. Errors: as locate().
    Result<Located> locateAnywhere(PieceId id);
    /// Lists what a directory has under `prefix`, and remembers what else it has.
    Result<std::vector<std::string>> listAndKnow(const std::string &prefix);
    /// What an earlier listing had under `prefix`; see KnownPlaces.
    std::vector<std::string> knownUnder(const std::string &prefix) const;
    /// Calls `visit` with what locateAnywhere() says of each of `ids`, which are sorted, but for
    /// those that lie nowhere: these are told by one listing of each directory.
    Result<void> eachStored(std::span<const PieceId> ids,
                            const std::function<Result<void>(PieceId, Result<Located>)> &visit);
    /// Returns those of `ids` for which isStored() holds, both sorted.
    Result<std::vector<PieceId>> storedAmong(std::span<const PieceId> ids, bool unclear);
    Result<std::unique_ptr<blob::BlobReader>> openDamaged(const std::string &blobName);
    /// Of those that show; its attributes as they are now.
    Result<Located> locateShown(PieceId id);
    Result<void> expectSame(PieceId asked, PieceId found, const ObjectRecord &record);
    /// What changes that are being made mean for a piece that is stored. Both: it does not show.
    struct Planned {
        bool hidesActive = false;
        bool hidesInactive = false;
    };
    Result<Planned> plannedFor(PieceId id);
    /// What became of a stored piece; nothing when it does not show in the place it was found in.
    Result<std::optional<ObjectRecord>> recordIfShown(const PieceInfo &found,
                                                      const std::string &blobName);
    Result<bool> isDone(ChangeId change);
    Result<bool> hasMark(ChangeId change);
    Result<bool> holdsCopy(ChangeId change);
    Result<Decision> decide(const ChangePlan &plan, Decision wanted);
    Result<void> putRecord(const std::string &name, Bytes record);
    Result<bool> isTaken(const std::string &blobName, std::span<const PieceId> replaced);
    /// Removes what was renamed, or came with a change that is undone; false for any other piece.
    Result<bool> removeIfUndone(const std::string &blobName);

    Result<void> settleUnderLock();
    Result<void> settle(const std::string &planName);
    Result<void> putPlan(const ChangePlan &plan);
    std::string changeName(ChangeId change, std::string_view suffix) const;
    Result<std::vector<std::string>> changeNames(std::string_view suffix) const;
    Result<ChangePlan> readPlan(const std::string &name) const;
    Result<ChangePlan> planOf(const std::string &name) const;
    Result<ChangePlan> planOfChange(ChangeId change) const;
    /// Where a new piece of a name that is free goes; `exists`.
    struct Place {
        std::string blobName;
        PieceId id = 0;
    };
    Result<Place> freePlace(const ObjectName &name, std::span<const PieceId> replaced = {});
    /// A finished piece with the stream of another one.
    Result<std::unique_ptr<PieceWriter>> copyPiece(PieceId id, PieceDescription description);
    Result<void> change(const Step &step, bool renamed);
    Result<void> prepareChange(const ChangePlan &plan, std::span<const Sent> pieces, bool renamed);
    Result<void> decideDone(const ChangePlan &plan, CommitNote &note);
    Result<void> copyToInactive(PieceId id, const std::string &copyName);
    Result<void> proveCopy(const std::string &blobName);
    Result<void> finishChange(const ChangePlan &plan);
    Result<void> finishGoing(const ChangePlan &plan);
    Result<void> leaveActivePlace(PieceId id, const std::string &copyName);

    // Pieces that come in the place of others: coming_piece.h.
    std::string comingPrefixOf(PieceId id) const;
    Result<std::vector<std::string>> comingUnder(const std::string &activeName);
    Result<bool> isReplaced(PieceId id, const std::string &activeName);
    Result<std::optional<PieceInfo>> findAt(const std::string &blobName);
    Result<std::optional<PieceInfo>> findNamed(const std::string &activeName);
    bool replacesOne(const ChangePlan &plan, PieceId id) const;
    Result<void> putComing(const ChangePlan &plan, PieceWriter &piece);
    Result<bool> yieldsTo(const std::string &comingName);
    Result<void> undoOthers(const ObjectName &name, const std::string &activeName, ChangeId own);
    Result<void> claimNameOfOld(const PieceWriter &piece, const ChangePlan &plan);
    Result<bool> setAsideIfDamaged(blob::BlobReader &blob, const std::string &blobName);
    Result<void> clearPlaceOf(PieceId id, const std::string &comingName);
    Result<bool> bringInIfDone(const std::string &blobName);
    Result<bool> hasLeftItsName(PieceId id);
    Result<void> takeBackIfLate(PieceId id, const std::string &comingName);
    Result<void> bringIn(const std::string &comingName);
    Result<void> bringIn(PieceId id, ChangeId change);

    enum class Maker { self, other };
    Result<void> undoChange(const ChangePlan &plan, Maker maker);
    Result<void> takeBack(PieceId id, ChangeId change);
    Result<void> dropCopy(PieceId id, ChangeId change);
    Result<void> forgetIfUnused(const ChangePlan &plan);
    Result<void> clearUndone(const ChangePlan &plan);
    Result<void> removeStored(Located &located);
    /// Moves a manifest to removed/, as removed at `at`; takes it away where nothing is kept.
    Result<void> putAside(Located &located, std::int64_t at);
    Result<std::vector<RemovedName>> removedNames(PieceId id); // the last first
    /// `stored`: what isStored() says of it, where that is known.
    Result<std::optional<RemovedPiece>> readRemoved(const RemovedName &name,
                                                    std::optional<bool> stored = std::nullopt);
    Result<void> finishUndelete(const RemovedName &name, bool stored,
                                blob::ListedDirectory &inactive);
    Result<void> visitRemovedUnder(const std::string &prefix,
                                   const std::function<bool(const RemovedPiece &)> &visit);
    /// `inactive`, where there is one, lists the inactive pieces.
    Result<PieceId> broughtBack(const Located &removed, blob::ListedDirectory *inactive = nullptr);
    Result<PieceInfo> leadTo(PieceId former, PieceId id);
    Result<Located> locateRemoved(PieceId id);
    Result<std::unique_ptr<PieceWriter>> copyRemoved(const Located &removed);
    /// Whether it lies under pieces/ or inactive/, shown or not; `unclear`: the answer when what
    /// may be the piece cannot be read.
    Result<bool> isStored(PieceId id, bool unclear);
    /// Whether the piece has another identifier now: it was renamed or brought back.
    Result<bool> hasMoved(const ObjectRecord &record);
    /// Whether the piece was ever stored: it came with no change, or with one that was made.
    Result<bool> hasCome(const ObjectRecord &record);
    bool leadsElsewhere(PieceId id);
    bool forgetPurged(PieceId id);
    static Result<PieceId> newId(const Sha256 &nameHash);
    static Result<void> copyStream(PieceReader &from, PieceWriter &to);
    /// From both places, as removed at `at`; fine when it is in none.
    Result<void> removeEverywhere(PieceId id, std::int64_t at);
    Result<void> putAsideIfThere(PieceId id, std::int64_t at, const std::string &name,
                                 std::unique_ptr<blob::BlobReader> blob);
    Result<void> removeActive(PieceId id, std::int64_t at);
    /// After removeActive(). `inactive` began to list after it.
    Result<void> removeCopies(PieceId id, std::int64_t at, blob::ListedDirectory &inactive);
    void forget(PieceId id);
    Result<void> emptyFilespace(const std::string &name);
    Result<void> takeFromFilespace(const StoredManifest &stored, const PieceInfo &info,
                                   std::uint32_t registration);
    /// Decides that the change which a manifest came with is undone, unless it is done. Returns
    /// true when the piece was stored; `damaged` when nothing can be decided.
    Result<bool> decideComing(PieceId id, const std::string &blobName);
    /// Errors: noFilespace when the node was removed since the session began. What is published
    /// before this is called is swept by a removal that it does not see.
    Result<void> expectNode();
    Result<void> expectFilespaces(std::span<const Sent> pieces);
    /// Success when it is registered under that number, and stays so whatever gets lost but that
    /// state. Errors: noFilespace.
    Result<void> expectRegistered(const std::string &name, std::uint32_t registration);
    Result<NumberedRecord> filespaceRecord(const std::string &name);
    struct FilespaceState {
        NumberedRecord record;
        std::uint32_t number = 0;
        std::optional<Filespace> filespace; // a deleted one, too
    };
    Result<FilespaceState> readFilespace(const std::string &name);
    Result<void> keepRegistration(FilespaceState &state);
    /// Takes away the record of a filespace that was registered when the node was gone already.
    void takeBackIfNodeIsGone(NumberedRecord &record, std::uint32_t number);
    Result<void> markDeleted(const std::string &name, std::uint32_t registration);
    Result<void> passOver(const StoredManifest &stored, const Error &failure);
    Filespace standIn(const std::string &name, std::uint32_t number) const;

    blob::BlobStore &store_;
    std::string node_;
    std::uint32_t incarnation_;
    std::string key_; // of the node, in blob names
    SecretKey dataKey_;
    std::unique_ptr<engine::Domain> domain_;
    engine::Settings settings_;
    bool isOwn_ = true;
    mutable KnownPlaces known_;
    std::set<std::pair<std::string, std::uint32_t>> kept_; // see keepRegistration()
};

/// Returns the component of blob names (32 digits) that stands for the name of a node; what the
/// node keeps is under spaceKeyOf().
Result<std::string> nodeKey(const std::string &node);

} // namespace arca::store

#endif
