// Changes of several names in one step: committing, removing and making pieces inactive together,
// renaming. How they are kept whole is told in change_plan.h.
#include "client/base/text.h"
#include "client/store/pieces/inventory.h"
#include "client/store/records/record_forms.h"
#include "client/store/space/node_space.h"

#include <algorithm>
#include <ctime>
#include <new>

namespace arca::store
{

namespace
{

constexpr std::size_t kCopyBytes = std::size_t{1} << 20;

Result<ChangeId> newChangeId()
{
    Bytes random(sizeof(ChangeId));
    ChangeId id = 0;
    while (id == 0) {
        ARCA_CHECK(fillRandom(random));
        id = ByteReader(random).u64();
    }
    return id;
}

bool names(const std::vector<PieceId> &ids, PieceId id)
{
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

NodeSpace::PutPiece putAs(const PieceWriter &piece)
{
    return {piece.name(), piece.blobName(), piece.id()};
}

} // namespace

Result<void> NodeSpace::copyStream(PieceReader &from, PieceWriter &to)
{
    Bytes buffer(kCopyBytes);
    while (!from.atEnd()) {
        ARCA_TRY(const std::size_t got, from.read(buffer));
        ARCA_CHECK(to.append(ByteView(buffer).first(got)));
    }
    ARCA_CHECK(to.finish());
    return {};
}

Result<void> NodeSpace::putRecord(const std::string &name, Bytes record)
{
    ARCA_TRY(const Bytes sealed, RecordSeal(*domain_).seal(name, std::move(record)));
    return blob::putWhole(store_, name, sealed);
}

/// The steps up to the decision. `renamed`: the one piece that comes is the one that goes.
Result<void> NodeSpace::prepareChange(const ChangePlan &plan, std::span<const Sent> pieces,
                                      bool renamed)
{
    ObjectRecords records(*domain_);
    ARCA_CHECK(putPlan(plan));
    ObjectRecord fresh;
    if (renamed) {
        const PieceId id = plan.going.front();
        ARCA_TRY(const Located located, locateShown(id));
        ARCA_TRY(auto state, records.read(id));
        fresh.origin = state.record.first();
        fresh.insertedAt = located.info.insertedAt;
        fresh.describe(located.info.description);
        state.record.renamedTo = plan.coming.front();
        state.record.goneBy = plan.id;
        ARCA_CHECK(records.write(state));
    }
    for (const PieceId id : plan.leaving)
        ARCA_CHECK(copyToInactive(id, copyNameOf(id, plan.id)));
    fresh.shownBy = plan.id;
    for (const PieceId id : plan.coming) {
        fresh.id = id;
        ARCA_CHECK(records.write({0, fresh}));
    }
    for (const Sent &sent : pieces)
        ARCA_CHECK(replacesOne(plan, sent.piece->id()) ? putComing(plan, *sent.piece)
                                                       : sent.piece->commit());
    for (const Sent &sent : pieces)
        ARCA_CHECK(replacesOne(plan, sent.piece->id()) ? claimNameOfOld(*sent.piece, plan)
                                                       : claimName(putAs(*sent.piece), plan.id));
    // With everything published: who deletes the filespace from now on meets all of it, and the
    // decision; before that it is seen here.
    ARCA_CHECK(expectFilespaces(pieces));
    return expectNode();
}

Result<void> NodeSpace::copyToInactive(PieceId id, const std::string &copyName)
{
    // The claim comes first: what the copy refers to stays until the copy is counted itself.
    ARCA_TRY(const auto copy, domain_->beginBlob());
    ARCA_TRY(const Located located, locate(id));
    Bytes buffer(kCopyBytes);
    for (std::uint64_t offset = 0; offset < located.blob->size();) {
        ARCA_TRY(const std::size_t got, located.blob->read(offset, buffer));
        if (got == 0)
            return Error{ErrorKind::damaged, "the blob " + located.blobName + " was cut"};
        ARCA_CHECK(copy->append(ByteView(buffer).first(got)));
        offset += got;
    }
    ARCA_TRY(const Bytes note, encodeInactiveNote(domain_->manifestKey(), id, std::time(nullptr)));
    ARCA_CHECK(copy->append(note));
    ARCA_CHECK(copy->commit(copyName));
    return proveCopy(copyName);
}

/// A copy that is soon the only one must be the piece, whatever the disk or the memory made of what
/// was read.
Result<void> NodeSpace::proveCopy(const std::string &blobName)
{
    ARCA_TRY(const auto blob, store_.open(blobName));
    ARCA_TRY(const Manifest manifest, readManifest(*blob, domain_->manifestKey()));
    ManifestRuns runs(*blob, manifest);
    for (;;) {
        ARCA_TRY(const auto run, runs.next());
        if (!run)
            return {};
    }
}

Result<void> NodeSpace::change(const Step &step, bool renamed)
{
    ARCA_TRY(const auto turn, lockChanges());
    // An old plan that names a piece, too, would hide the copy where its name carries no change.
    if (!step.deactivations.empty() && !namesCarryChanges())
        ARCA_CHECK(settleUnderLock());
    ChangePlan plan;
    ARCA_TRY(plan.id, newChangeId());
    for (const Sent &sent : step.pieces)
        plan.coming.push_back(sent.piece->id());
    // Who chose a piece meant it under the name that it had then, not where it went since.
    const auto expectChosen = [](const Located &located, PieceId id) -> Result<void> {
        return located.info.id == id
                   ? Result<void>()
                   : Error{ErrorKind::notFound, "the object was renamed meanwhile"};
    };
    for (const PieceId id : step.removals) {
        ARCA_TRY(const Located located, locateShown(id));
        ARCA_CHECK(expectChosen(located, id));
        plan.going.push_back(located.info.id);
    }
    for (const PieceId id : step.deactivations) {
        ARCA_TRY(const Located located, locateShown(id));
        ARCA_CHECK(expectChosen(located, id));
        if (!located.info.isActive())
            return Error{ErrorKind::notFound, "the object was made inactive meanwhile"};
        // What goes as well, goes.
        if (!names(plan.going, located.info.id) && !names(plan.leaving, located.info.id))
            plan.leaving.push_back(located.info.id);
    }
    CommitNote note(*domain_);
    auto prepared = prepareChange(plan, step.pieces, renamed);
    if (!prepared) {
        // Only this process decides that the change is done, and it never will.
        (void)undoChange(plan, Maker::self);
        return prepared;
    }
    return decideDone(plan, note);
}

/// The commit of a change that is prepared, and what follows of it.
Result<void> NodeSpace::decideDone(const ChangePlan &plan, CommitNote &note)
{
    auto decided = decide(plan, Decision::done);
    if (!decided) {
        // The outcome may be there all the same, or come later from a file server. Only another
        // decision under its name tells.
        const Error failure = decided.error();
        decided = decide(plan, Decision::undone);
        if (!decided)
            return inContext(failure, "whether a change was made is not known until the node next "
                                      "logs on");
        if (*decided == Decision::undone) {
            (void)undoChange(plan, Maker::self);
            return failure;
        }
    }
    if (*decided == Decision::undone) {
        (void)undoChange(plan, Maker::self);
        return Error{ErrorKind::conflict, "another process undid the change, as this one seemed "
                                          "to be dead; make it again"};
    }
    // The sweep of a removal may have missed the change, and taken what it is about.
    if (const auto still = expectNode(); !still && still.error().kind == ErrorKind::noFilespace)
        return inContext(still.error(),
                         "the change was made, and counts only if the removal of the node is "
                         "given up");
    try {
        // On a full disk, too: what goes is put aside before its old name is free.
        (void)blob::withReserve(store_, [&] { return finishChange(plan); });
    } catch (const std::bad_alloc &) {
        // The change is made. The next one to hold the lock of changes finishes it.
    }
    note.write(plan.coming);
    return {};
}

Result<void> NodeSpace::commitTogether(const Step &step)
{
    if (step.pieces.empty())
        return blob::withReserve(store_, [&] { return change(step, false); });
    return change(step, false);
}

Result<std::unique_ptr<PieceWriter>> NodeSpace::copyPiece(PieceId id, PieceDescription description)
{
    description.node = node_;
    ARCA_TRY(const Place place, freePlace(description.name));
    ARCA_TRY(const Located original, locateShown(id));
    auto copy =
        PieceWriter::copyOf(*domain_, *original.blob, place.blobName, place.id, description);
    if (copy || copy.error().kind != ErrorKind::conflict)
        return copy;
    ARCA_TRY(auto piece, beginPiece(std::move(description)));
    ARCA_TRY(const auto reader, openPiece(id));
    ARCA_CHECK(copyStream(*reader, *piece));
    return piece;
}

Result<void> NodeSpace::rename(const ObjectName &from, const ObjectName &to)
{
    ARCA_TRY(const auto found, find(from));
    ARCA_TRY(const auto known, filespace(to.filespace));
    if (!found || !known)
        return Error{ErrorKind::notFound, "there is no object " + printable(from.joined())};
    PieceDescription description = found->description;
    description.name = to;
    ARCA_TRY(const auto piece, copyPiece(found->id, std::move(description)));
    const Sent sent{piece.get(), known->registration};
    return change({std::span(&sent, 1), std::span(&found->id, 1), {}}, true);
}

} // namespace arca::store
