// Blobs that are not what was stored: flipped, cut, exchanged, or of another release.
#include "client/base/text.h"
#include "client/store/marks/quarantine.h"
#include "client/store/upkeep/blob_removal.h"
#include "client/store/upkeep/repair.h"
#include "tests/client/store/store_faults_fixture.h"

#include <cstring>
#include <map>

namespace
{

using namespace arca;

class StoreDamage : public test::StoreFaults
{
protected:
    void sayLayout3()
    {
        std::string &marker = files_.contentOf("/r/format");
        marker[8] = '\3';
        const std::uint64_t checksum = checksum64(viewOf(marker).first(marker.size() - 8));
        std::memcpy(marker.data() + marker.size() - 8, &checksum, 8);
    }
    /// The record of a node as releases before its proof wrote it.
    void writeAsBefore(const std::string &node)
    {
        const auto keys = repository_->authenticate(node, test::kPassword).value();
        const auto half = store::recoveryHalf(repository_->blobs()).value();
        const auto record = store::makeNodeRecord({node}, test::kPassword, keys, *half).value();
        files_.contentOf("/r/nodes/" + *store::nodeKey(node) + "/00000001") =
            textOf(store::encodeNodeRecord(record));
    }
};

TEST_F(StoreDamage, EveryFlippedByteAndEveryCutOfAPieceIsFound)
{
    const auto before = files_.paths();
    ASSERT_TRUE(backUp("small", 's', 300));
    const auto blobs = added(before);
    ASSERT_EQ(blobs.size(), 2U) << "a manifest and a pack";
    for (const std::string &path : blobs) {
        const std::string good = files_.contentOf(path);
        const auto expectFound = [&](const std::string &bad, const std::string &what) {
            files_.contentOf(path) = bad;
            const auto stream = restore("small");
            ASSERT_FALSE(stream) << path << ": " << what << " passed unnoticed";
            EXPECT_EQ(stream.error().kind, ErrorKind::damaged) << what << stream.error().text;
        };
        for (std::size_t i = 0; i < good.size(); ++i) {
            std::string bad = good;
            bad[i] = static_cast<char>(bad[i] ^ 0x10);
            expectFound(bad, "byte " + std::to_string(i));
            expectFound(good.substr(0, i), "a cut at " + std::to_string(i));
        }
        expectFound(good + '\0', "a byte too many");
        files_.contentOf(path) = good;
    }
    expectPiece("small", 's', 300);
    expectPiece("kept", 'k', 5000);
}

TEST_F(StoreDamage, AStoredPieceInThePlaceOfAnotherIsFound)
{
    const auto start = files_.paths();
    ASSERT_TRUE(backUp("a", 'a', 100));
    const auto ofA = added(start);
    const auto afterA = files_.paths();
    ASSERT_TRUE(backUp("b", 'b', 100));
    const auto ofB = added(afterA);
    ASSERT_EQ(ofA.size(), ofB.size());
    for (std::size_t i = 0; i < ofA.size(); ++i) { // the packs, then the manifests
        std::swap(files_.contentOf(ofA[i]), files_.contentOf(ofB[i]));
        for (const char *piece : {"a", "b"}) {
            const auto stream = restore(piece);
            ASSERT_FALSE(stream) << piece << ofA[i];
            EXPECT_EQ(stream.error().kind, ErrorKind::damaged);
        }
        std::swap(files_.contentOf(ofA[i]), files_.contentOf(ofB[i]));
    }
    expectPiece("a", 'a', 100);
}

TEST_F(StoreDamage, ARecordWithoutProofOrFromAnotherPlaceIsRefused)
{
    std::vector<store::PieceId> ids;
    for (const char *piece : {"kept", "new"}) {
        ASSERT_TRUE(*piece == 'k' || backUp(piece, 'n', 3000));
        for (const char *info : {"!", "?"})
            ASSERT_TRUE(space_->update(nameOf(piece), {}, [&](auto &known) { known.info = info; }));
        ids.push_back((*space_->find(nameOf(piece)))->id);
        ASSERT_TRUE(space_->groups().make({ids.back(), false, "tag", {}}));
        ASSERT_TRUE(space_->groups().change(ids.back(), [](auto &) { return Result<void>(); }));
    }
    ASSERT_TRUE(space_->registerFilespace({"", "/fs2", "", "", 0, 0, 0}));
    ASSERT_TRUE(reclaim());
    ASSERT_TRUE(repository_->policy().define({"GOLD", "", "POOL"}));
    ASSERT_TRUE(repository_->policy().define({"LEAD", "", "POOL"}));

    // A version that became inactive by a change that is done, and a change of a dead process.
    ASSERT_TRUE(backUp("newer", 'w', 2000));
    const store::PieceId inactive = (*space_->find(nameOf("newer")))->id;
    ASSERT_TRUE(space_->commitTogether({{}, {}, std::span(&inactive, 1)}));
    store::ChangePlan plan;
    plan.id = 7;
    plan.going = {ids[0]};
    const std::string name =
        "changes/" + space_->domain().nodeKey() + "/" + toHex(plan.id) + ".plan";
    const auto sealed =
        store::RecordSeal(space_->domain()).seal(name, store::encodeChangePlan(plan));
    ASSERT_TRUE(sealed && blob::putWhole(space_->domain().blobs(), name, *sealed));

    const auto sound = [&]() -> Result<void> {
        return isSound() ? Result<void>() : Error{ErrorKind::damaged, "named"};
    };
    const auto all = [](auto... results) -> Result<void> {
        Result<void> first;
        ((first = first && !results ? Result<void>(results.error()) : first), ...);
        return first;
    };
    const std::pair<const char *, std::function<Result<void>()>> rooms[] = {
        {"/r/objects/", [&] { return all(space_->find(ids[0]), space_->find(ids[1])); }},
        {"/r/groups/",
         [&] { return all(space_->groups().find(ids[0]), space_->groups().find(ids[1])); }},
        {"/r/filespaces/", // one that is damaged keeps no piece out of reach
         [&] {
             EXPECT_TRUE(all(space_->find(ids[0]), space_->find(ids[1])));
             return sound();
         }},
        {"/r/reclaim/", [&] { return all(store::markRecord(space_->domain()).latest()); }},
        {"/r/classes/",
         [&] {
             return all(repository_->policy().find("GOLD"), repository_->policy().find("LEAD"),
                        repository_->policy().find("STANDARD"));
         }},
        {"/r/options/", [&] { return all(repository_->grace().read()); }},
        {"/r/outcomes/", [&] { return all(space_->find(inactive)); }},
        {"/r/changes/", [&] { return sound(); }}, // it holds up nothing
    };
    for (const auto &[room, use] : rooms) {
        SCOPED_TRACE(room);
        ASSERT_TRUE(use()) << use().error().text;
        std::map<std::string, std::string> newest; // of each record, by its directory
        for (const std::string &path : files_.paths())
            if (path.starts_with(room))
                newest[path.substr(0, path.rfind('/'))] = path;
        ASSERT_FALSE(newest.empty());
        const std::string path = newest.begin()->second, good = files_.contentOf(path);
        const auto expectRefused = [&](const std::string &forged, const char *what) {
            ASSERT_NE(forged, good) << what;
            files_.contentOf(path) = forged;
            const auto used = use();
            EXPECT_TRUE(!used && used.error().kind == ErrorKind::damaged) << what;
            const auto verified = store::verify(*space_, {.shared = repository_->sharedSeal()}, {});
            EXPECT_GE(verified->hurtRecords, 1U) << what;
            files_.contentOf(path) = good;
        };
        const ByteView bytes = viewOf(good);
        const auto plain = store::RecordSeal().open({}, Bytes(bytes.begin(), bytes.end()));
        ASSERT_TRUE(plain);
        expectRefused(std::string(textOf(plain->record)), "made without the key");
        expectRefused(good + '!', "more than was written");
        if (newest.size() > 1)
            expectRefused(files_.contentOf(newest.rbegin()->second), "another one's");
        std::string earlier = path;
        for (const std::string &other : files_.paths())
            if (other < path && other.starts_with(newest.begin()->first + "/"))
                earlier = other;
        if (earlier != path)
            expectRefused(files_.contentOf(earlier), "its own earlier state");
    }
    EXPECT_EQ(*restore(ids[1]), test::streamOf('n', 3000));
}

/// Else all pieces would count as deleted again, and a class would keep what it kept then.
TEST_F(StoreDamage, WhatIsMadeAgainAfterItsDeletionLeavesNoStateOfBefore)
{
    const store::Filespace filespace{"", "/fs", "ORACLE", "", 0, 0, 0};
    store::Policy policy = repository_->policy();
    const auto statesUnder = [&](const std::string &room) {
        std::vector<std::string> states;
        for (const std::string &path : files_.paths())
            if (path.starts_with("/r/" + room + "/"))
                states.push_back(path);
        return states;
    };
    const auto standard = statesUnder("classes").size();
    ASSERT_TRUE(policy.define({"GOLD", "", "POOL"}) && policy.retire("GOLD"));
    ASSERT_TRUE(policy.define({"GOLD", "", "POOL"}));
    EXPECT_EQ(statesUnder("classes").size(), standard + 1);
    // What cannot be removed now makes no failure of what holds.
    store::NumberedRecord record(repository_->blobs(), "options/other");
    ASSERT_TRUE(record.write(0, viewOf("one")));
    files_.breakFile("/r/" + record.nameOf(1), test::MemoryFiles::Broken::opening);
    EXPECT_TRUE(record.end(1, viewOf("two")));
    files_.breakFile("/r/" + record.nameOf(1), test::MemoryFiles::Broken::no);
    ASSERT_TRUE(record.remove());

    ASSERT_TRUE(space_->deleteFilespace("/fs"));
    const std::string deleted = statesUnder("filespaces").back();
    const std::string content = files_.contentOf(deleted);
    ASSERT_TRUE(space_->registerFilespace(filespace));
    const auto registered = statesUnder("filespaces");
    ASSERT_EQ(registered.size(), 1U);
    // Who registers it dies before that is durable and before the other state is gone.
    for (const bool registers : {true, false}) {
        ASSERT_TRUE(blob::putWhole(repository_->blobs(), deleted.substr(3), viewOf(content)));
        ASSERT_TRUE(open());
        EXPECT_EQ(state(), "");
        if (registers) {
            EXPECT_EQ(space_->registerFilespace(filespace).error().kind, ErrorKind::exists);
        } else {
            const auto writer = finished("new", test::streamOf('n', 3000));
            ASSERT_TRUE(writer && space_->commit(**writer, registration_));
        }
        EXPECT_EQ(statesUnder("filespaces"), registered);
    }
    ASSERT_TRUE(files_.unlink(registered.back()));
    ASSERT_TRUE(open());
    EXPECT_EQ(store::verify(*space_, {}, {})->hurtRecords, 1U);
    EXPECT_FALSE(reclaimAll()) << "nothing may be freed";
    ASSERT_TRUE(space_->registerFilespace(filespace));
    expectPiece("new", 'n', 3000);
}

TEST_F(StoreDamage, ADamagedGrantIsReplacedWhenItIsGivenAgain)
{
    const auto grant = [&] {
        return rules().add({0, "", "reader", "", nameOf("kept"), {}, {}}, space_->dataKey());
    };
    ASSERT_TRUE(grant() && readersKey());
    for (const std::string &path : files_.paths())
        if (path.starts_with("/r/grants/"))
            files_.contentOf(path)[40] ^= 1;
    EXPECT_FALSE(readersKey());
    EXPECT_TRUE(grant());
    EXPECT_TRUE(readersKey());
}

/// A release that knows no proofs may be at work in a repository of its layout.
TEST_F(StoreDamage, InARepositoryOfThePresentLayoutRecordsStayAsOlderReleasesReadThem)
{
    for (const char *node : {"node", "reader"})
        writeAsBefore(node);
    sayLayout3();
    start_ = files_.snapshot();
    for (const Work &work : works()) {
        SCOPED_TRACE(work.name);
        ASSERT_TRUE(open());
        std::map<std::string, bool> before;
        for (const std::string &path : files_.paths())
            before[path] = true;
        const auto done = work.run(*this);
        // Blocks that only a piece in coming/ needs would be freed by those releases.
        const bool refused = std::string(work.name).starts_with("replacing");
        ASSERT_EQ(static_cast<bool>(done), !refused) << (done ? "" : done.error().text);
        EXPECT_EQ(state(), refused ? work.before : work.after);
        for (const std::string &path : files_.paths())
            if (!before[path] && !path.starts_with("/r/pieces/") &&
                !path.starts_with("/r/packs/") && files_.contentOf(path).size() > 12) {
                EXPECT_EQ(files_.contentOf(path)[11] & 0x80, 0) << path;
            }
        (void)space_.reset();
        repository_.reset();
        files_.putBack(start_);
    }
}

/// Its marker has a checksum only. What nobody can change without the password says the same.
TEST_F(StoreDamage, AMarkerThatSaysAnEarlierLayoutIsRefusedByEachNode)
{
    for (const bool before : {false, true}) {
        SCOPED_TRACE(before);
        if (before) {
            writeAsBefore("node");
            ASSERT_TRUE(open()) << "which gives the record its proof";
            EXPECT_EQ(std::ranges::count(files_.paths(),
                                         "/r/nodes/" + space_->domain().nodeKey() + "/00000001"),
                      0)
                << "the one before would say nothing of the layout";
        }
        const std::string marker = files_.contentOf("/r/format");
        sayLayout3();
        const auto opened = open();
        ASSERT_FALSE(opened);
        EXPECT_EQ(opened.error().kind, ErrorKind::damaged);
        EXPECT_NE(opened.error().text.find("the file format"), std::string::npos);
        files_.contentOf("/r/format") = marker;
        ASSERT_TRUE(open());
        EXPECT_EQ(state(), " kept");
    }
}

TEST_F(StoreDamage, ARepositoryOfAnotherReleaseIsRefused)
{
    const std::pair<std::uint32_t, ErrorKind> cases[] = {{1, ErrorKind::olderFormat},
                                                         {5, ErrorKind::newerFormat}};
    for (const auto &[version, kind] : cases) {
        const Bytes other = store::frameRecord("ARCAREPO", version, Bytes(24));
        files_.contentOf("/r/format") = std::string(textOf(other));
        const auto opened = open();
        ASSERT_FALSE(opened);
        EXPECT_EQ(opened.error().kind, kind);
    }
}

/// The place of a record decides what it must be, not its bytes.
TEST_F(StoreDamage, ARecordInThePlaceOfAnotherKindIsFound)
{
    const auto under = [&](const std::string &prefix) {
        for (const std::string &path : files_.paths())
            if (path.starts_with(prefix))
                return path;
        return std::string();
    };
    const std::string paths[] = {under("/r/keys/recovery/"), under("/r/filespaces/")};
    for (int i = 0; i < 2; ++i) {
        const std::string good = files_.contentOf(paths[i]);
        files_.contentOf(paths[i]) = files_.contentOf(paths[1 - i]);
        const auto verified = store::verify(*space_, {}, {});
        ASSERT_TRUE(verified) << verified.error().text;
        EXPECT_EQ(verified->hurtRecords, 1U) << paths[i];
        files_.contentOf(paths[i]) = good;
    }
    EXPECT_TRUE(isSound());
}

/// One manifest that cannot be read holds up nothing else: its name is stored again, what is dead
/// goes, and only the packs that it may need are kept, until somebody gives it up.
class DamagedManifest : public test::StoreFaults, public testing::WithParamInterface<std::size_t>
{
};
INSTANTIATE_TEST_SUITE_P(Bytes, DamagedManifest,
                         testing::Values(8,    // of its version
                                         70)); // of its description

TEST_P(DamagedManifest, HoldsUpNothingElse)
{
    const auto before = files_.paths();
    ASSERT_TRUE(backUp("bad", 'b', 3000));
    const auto blobs = added(before);
    ASSERT_EQ(blobs.size(), 2U);
    ASSERT_TRUE(backUp("older", 'o', 3000) && remove("older"));
    std::string &bad = files_.contentOf(blobs[1]);
    bad[GetParam()] ^= 0x10;
    ASSERT_FALSE(restore("bad"));

    auto totals = reclaimed();
    EXPECT_EQ(totals.deadPacks, 0U) << "it may need any of them";
    EXPECT_EQ(totals.damagedManifests.size(), 1U);

    const auto judged = space_->domain().blobs().open(blobs[1].substr(3));
    ASSERT_TRUE(judged);
    ASSERT_TRUE(backUp("bad", 'n', 2000)) << "the name is free";
    const auto late = store::Quarantine(space_->domain()).setAside(blobs[1].substr(3), **judged);
    ASSERT_FALSE(late) << "another one has the name by now";
    EXPECT_EQ(late.error().kind, ErrorKind::notFound);
    expectPiece("bad", 'n', 2000);
    ASSERT_TRUE(backUp("later", 'l', 3000));
    ASSERT_TRUE(remove("later"));
    totals = reclaimed();
    EXPECT_EQ(totals.deadPacks, 1U) << "the pack that came later";
    EXPECT_EQ(totals.damagedManifests.size(), 1U) << "it is in the quarantine";
    EXPECT_EQ(store::verify(*space_, {}, {})->hurt(), 1U) << "and cannot be restored";

    // A name is taken to the letter: whatever leads elsewhere, or somewhere in another way, is
    // none.
    const std::string sound = blobs[1].substr(3), room = sound.substr(0, sound.rfind('/'));
    for (const std::string &name :
         {room + "/." + sound.substr(room.size()), room + "/../../../format", room + "//x",
          "/" + sound, sound + "/", std::string()}) {
        const auto removed = store::removeBlob(*space_, name);
        EXPECT_TRUE(!removed && removed.error().kind == ErrorKind::badArgument) << name;
    }

    const std::string aside = totals.damagedManifests.begin()->c_str();
    EXPECT_FALSE(store::removeBlob(*space_, blobs[1].substr(3))) << "is sound by now";
    ASSERT_TRUE(store::removeBlob(*space_, aside));
    totals = reclaimed();
    EXPECT_EQ(totals.damagedManifests.size(), 0U);
    EXPECT_EQ(totals.deadPacks, 3U) << "those of bad, older and gone";
    EXPECT_TRUE(isSound());
    expectPiece("bad", 'n', 2000);
    expectPiece("kept", 'k', 5000);
    for (const std::string &path : files_.paths())
        EXPECT_FALSE(path.starts_with("/r/quarantine/")) << path;
}

TEST_F(StoreDamage, ADamagedPackHoldsUpNothingElse)
{
    const auto before = files_.paths();
    ASSERT_TRUE(backUp("bad", 'b', 3000));
    const std::string pack = added(before).front();
    files_.contentOf(pack)[8] ^= 0x10; // of its version
    EXPECT_NE(store::verify(*space_, {}, {})->recorded, 0U);
    EXPECT_EQ(store::verify(*space_, {.readData = true}, {})->recorded, 0U) << "it was before";
    auto totals = reclaimed();
    EXPECT_EQ(totals.deadPacks, 1U) << "that of a piece that is gone";
    EXPECT_EQ(totals.damagedPacks.size(), 1U);
    ASSERT_TRUE(remove("bad"));
    totals = reclaimed();
    EXPECT_EQ(totals.deadPacks, 1U) << "the damaged one, which nothing needs";
    expectPiece("kept", 'k', 5000);
}

/// Without knowing what is marked, streams count on nothing that is there.
TEST_F(StoreDamage, ADamagedMarkStopsNoBackup)
{
    ASSERT_TRUE(reclaim());
    ASSERT_TRUE(backUp("older", 'o', 3000) && remove("older"));
    const auto mark = [&] {
        std::string newest;
        for (const std::string &path : files_.paths())
            newest = path.starts_with("/r/reclaim/") ? path : newest;
        return newest;
    };
    files_.contentOf(mark())[20] ^= 1;
    const auto before = files_.paths();
    ASSERT_TRUE(backUp("again", 'k', 5000));
    EXPECT_EQ(added(before).size(), 2U) << "it was stored again";
    expectPiece("again", 'k', 5000);
    ASSERT_TRUE(space_->rename(nameOf("kept"), nameOf("moved")));
    expectPiece("moved", 'k', 5000);
    const std::string bad = mark();
    auto slow = begin("slow");
    auto totals = reclaimed();
    EXPECT_EQ("/r/" + totals.damagedMark, bad);
    EXPECT_EQ(totals.deadPacks, 0U) << "a stream from before lives";
    (void)slow->reset();
    totals = reclaimed();
    EXPECT_EQ(totals.damagedMark, "");
    EXPECT_GT(totals.deadPacks, 0U);
    const auto after = files_.paths();
    ASSERT_TRUE(backUp("last", 'k', 5000));
    EXPECT_EQ(added(after).size(), 1U) << "nothing is marked any more";
    EXPECT_TRUE(isSound());
}

/// The share that may be freed unexplained holds for what a mark that is found would free, too.
TEST_F(StoreDamage, AFoundMarkFreesNoPackOfALostManifest)
{
    ASSERT_TRUE(reclaim());
    auto slow = begin("slow");
    ASSERT_TRUE(backUp("old", 'o', 300) && remove("old"));
    ASSERT_EQ(store::Reclaim(*space_, {.grace = 0}).run()->waitingPacks, 1U);
    (void)slow->reset();
    const auto waiting = files_.snapshot();
    for (const bool damaged : {false, true}) {
        SCOPED_TRACE(damaged);
        files_.putBack(waiting);
        ASSERT_TRUE(open());
        for (const std::string &path : files_.paths()) {
            if (path.starts_with("/r/pieces/")) {
                ASSERT_TRUE(files_.unlink(path));
            }
            if (damaged && path.starts_with("/r/reclaim/"))
                files_.contentOf(path)[20] ^= 1;
        }
        const auto before = files_.paths();
        const auto done = store::Reclaim(*space_, {.grace = 0}).run();
        EXPECT_TRUE(!done && done.error().kind == ErrorKind::damaged);
        EXPECT_EQ(files_.paths(), before) << "nothing was freed";
        ASSERT_TRUE(reclaimAll());
    }
}

TEST_F(StoreDamage, AManifestThatTheDiskFailsToReadHoldsUpNothingElse)
{
    using Broken = test::MemoryFiles::Broken;
    const auto before = files_.paths();
    ASSERT_TRUE(backUp("bad", 'b', 3000));
    const std::string bad = added(before).back();
    for (const Broken how : {Broken::opening, Broken::reading}) {
        files_.breakFile(bad, how);
        const auto totals = reclaimed();
        EXPECT_EQ(totals.damagedManifests.size(), 1U);
        EXPECT_EQ(totals.deadPacks, 0U) << "it may need any of them";
        std::vector<std::string> lost;
        store::RepairWatcher watcher;
        watcher.lostPiece = [&](const store::LostPiece &piece) { lost.push_back(piece.name); };
        ASSERT_TRUE(store::repair(*space_, false, watcher));
        EXPECT_EQ(lost, std::vector<std::string>{bad.substr(3)});
        const auto verified = store::verify(*space_, {}, {});
        ASSERT_TRUE(verified) << verified.error().text;
        EXPECT_EQ(verified->hurtPieces, 1U);
    }
    files_.breakFile(bad, Broken::no);
    expectPiece("bad", 'b', 3000);
}

TEST_F(StoreDamage, OnlyARecordThatNothingDependsOnIsRemoved)
{
    const std::string key = space_->domain().nodeKey(), change = "00000000000000aa";
    const std::string plan = "changes/" + key + "/" + change + ".plan";
    const Bytes garbage(100), large(100'000);
    for (const std::string &name : {"outcomes/" + key + "/" + change, plan})
        ASSERT_TRUE(blob::putWhole(repository_->blobs(), name, garbage));
    const std::string note = "inventory/" + key + "/" + change, grace = "options/grace/00000009";
    ASSERT_TRUE(blob::putWhole(repository_->blobs(), note, large));
    ASSERT_TRUE(blob::putWhole(repository_->blobs(), grace, garbage));
    EXPECT_EQ(store::verify(*space_, {}, {})->hurtRecords, 4U);
    const auto refused = store::removeBlob(*space_, "outcomes/" + key + "/" + change);
    EXPECT_TRUE(!refused && refused.error().kind == ErrorKind::badArgument);
    for (const std::string &name : {plan, "outcomes/" + key + "/" + change, note, grace})
        EXPECT_TRUE(store::removeBlob(*space_, name)) << name;
    EXPECT_TRUE(isSound());
}

TEST_F(StoreDamage, ADamagedRuleStopsNoOtherOne)
{
    ASSERT_TRUE(rules().add({0, "", "reader", "", nameOf("kept"), {}, {}}, space_->dataKey()));
    const std::string bad = "access/" + space_->domain().nodeKey() + "/00000001";
    ASSERT_TRUE(blob::putWhole(repository_->blobs(), bad, Bytes(100)));
    EXPECT_TRUE(readersKey());
    std::vector<std::string> damaged;
    EXPECT_EQ(rules().list(space_->dataKey(), &damaged)->size(), 1U);
    EXPECT_EQ(damaged, std::vector<std::string>{bad});
}

} // namespace
