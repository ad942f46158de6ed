// What cannot be read is passed over: it neither hides nor excuses another piece, and holds up
// nothing else.
#include "client/base/text.h"
#include "client/store/log/activity_reader.h"
#include "client/store/marks/quarantine.h"
#include "client/store/pieces/inventory.h"
#include "client/store/upkeep/blob_removal.h"
#include "tests/client/store/store_faults_fixture.h"

namespace
{

using namespace arca;
using test::streamOf;
using Names = std::vector<std::string>;

class PassedOver : public test::StoreFaults
{
protected:
    /// Stores a piece as a session does it, with a note. Returns its identifier, 0 after a failure.
    store::PieceId put(const std::string &piece, char seed)
    {
        const auto writer = finished(piece, streamOf(seed, 3000));
        return writer && space_->commit(**writer, registration_) ? (*writer)->id() : 0;
    }
    store::PieceId putInactive(const std::string &piece, char seed)
    {
        const store::PieceId id = put(piece, seed);
        EXPECT_TRUE(space_->commitTogether({{}, {}, std::span(&id, 1)}));
        return id;
    }
    /// The file that holds a manifest: of an active piece what came last, else by its identifier.
    std::string fileUnder(const std::string &room, const std::string &part)
    {
        for (const std::string &path : files_.paths())
            if (path.starts_with("/r/" + room + "/") && path.find(part) != std::string::npos)
                return path;
        ADD_FAILURE() << room << " has no " << part;
        return {};
    }
    static std::string digits(store::PieceId id) { return toHex(id); }
    std::string activeFile(store::PieceId id)
    {
        return fileUnder("pieces", digits(id).substr(0, 8));
    }
    /// How many events the log shows, and how much of it cannot be read.
    std::pair<std::size_t, std::size_t> events()
    {
        const auto seal = store::LogSeal::of(space_->dataKey(), 0);
        auto reader = store::ActivityReader::open(repository_->blobs(), {}, "node", *seal);
        std::size_t shown = 0;
        for (auto event = reader->next(); event && *event; event = reader->next())
            ++shown;
        return {shown, reader->unreadable()};
    }
    store::Stock stock() { return *store::Inventory(space_->domain()).check(); }
    Names removed()
    {
        Names names;
        EXPECT_TRUE(space_->visitRemoved([&](const store::RemovedPiece &piece) {
            names.push_back(piece.info.description.name.lowLevel.substr(1));
            return true;
        }));
        std::ranges::sort(names);
        return names;
    }
};

TEST_F(PassedOver, ADamagedActivePieceHidesNoOtherOneOfItsName)
{
    const store::PieceId inactive = putInactive("x", 'i');
    const store::PieceId gone = put("x", 'g');
    ASSERT_TRUE(space_->remove(gone));
    files_.contentOf(activeFile(put("x", 'a'))).clear();
    ASSERT_FALSE(restore("x"));

    EXPECT_EQ(*restore(inactive), streamOf('i', 3000));
    EXPECT_EQ(removed(), (Names{"gone", "x"}));
    EXPECT_EQ(space_->removedOf(nameOf("x"))->size(), 1U);
    EXPECT_TRUE(space_->remove(inactive));
    EXPECT_EQ(removed(), (Names{"gone", "x", "x"}));
    const auto back = space_->undelete(gone);
    ASSERT_TRUE(back) << back.error().text;
    expectPiece("x", 'g', 3000);
    EXPECT_EQ(*restore(space_->undelete(inactive)->id), streamOf('i', 3000));
}

TEST_F(PassedOver, ADamagedInactivePieceHidesNoOtherOneOfItsName)
{
    const store::PieceId bad = putInactive("x", 'b'), good = putInactive("x", 'g');
    const store::PieceId gone = putInactive("x", 'r');
    ASSERT_TRUE(space_->remove(gone));
    ASSERT_TRUE(put("x", 'a'));
    // The note at the end: that it is inactive, since when, and what proves it.
    std::string &bytes = files_.contentOf(fileUnder("inactive", digits(bad)));
    const std::string whole = bytes;
    for (const std::size_t at :
         {bytes.size() - 32, bytes.size() - 17, bytes.size() - 1, std::size_t{70}}) {
        SCOPED_TRACE(at);
        bytes = whole;
        bytes[at] ^= 1;
        std::optional<Error> passedOver;
        const auto found = space_->inactiveOf(nameOf("x"), &passedOver);
        ASSERT_TRUE(found) << found.error().text;
        ASSERT_EQ(found->size(), 1U);
        EXPECT_EQ(found->front().id, good);
        EXPECT_TRUE(passedOver && passedOver->kind == ErrorKind::damaged);
    }
    EXPECT_TRUE(space_->undelete(gone));
    EXPECT_EQ(space_->firstId(bad).error().kind, ErrorKind::damaged);
    EXPECT_EQ(*space_->firstId(bad, true), bad) << "what it leads shows all the same";
}

TEST_F(PassedOver, ABlobThatTheDiskFailsToReadHoldsUpNothingElse)
{
    const std::string key = space_->domain().nodeKey();
    put("x", 'x');
    ASSERT_TRUE(backUp("aside", 'y', 10) && remove("aside"));
    const auto seal = store::LogSeal::of(space_->dataKey(), 0);
    store::ActivityLog log(repository_->blobs(), *seal);
    for (const char *text : {"one", "two"})
        ASSERT_TRUE(log.append({store::Severity::error, "node", {}, {}, text}));
    const std::string plan = "changes/" + key + "/00000000000000aa.plan";
    ASSERT_TRUE(blob::putWhole(repository_->blobs(), plan, Bytes(100)));
    const auto logged = [&] { return events() == std::pair<std::size_t, std::size_t>(1, 1); };
    const std::pair<std::string, std::function<bool()>> cases[] = {
        {"/r/" + plan, [&] { return backUp("z", 'z', 100) && restore("z") && remove("z"); }},
        {fileUnder("inventory", key),
         [&] {
             const auto freed = store::Reclaim(*space_, {.grace = 0}).run();
             const auto verified = store::verify(*space_, {}, {});
             EXPECT_TRUE(freed) << freed.error().text;
             return freed && verified->hurtRecords == 2;
         }},
        {fileUnder("removed", key), [&] { return removed().size() == 1; }},
        {fileUnder("log", "/"), logged},
    };
    for (const auto &[path, work] : cases) {
        SCOPED_TRACE(path);
        for (const auto how :
             {test::MemoryFiles::Broken::reading, test::MemoryFiles::Broken::opening}) {
            const auto before = files_.snapshot();
            files_.breakFile(path, how);
            EXPECT_TRUE(work());
            files_.putBack(before);
            ASSERT_TRUE(open());
        }
    }
}

/// It may be a piece of a filespace that was deleted, and would show in a later one.
TEST_F(PassedOver, AManifestThatCannotBeReadIsInNoLaterFilespace)
{
    const store::Filespace filespace{"", "/fs", "ORACLE", "", 0, 0, 0};
    const std::string path = activeFile(put("x", 'x'));
    for (const auto how :
         {test::MemoryFiles::Broken::reading, test::MemoryFiles::Broken::opening}) {
        files_.breakFile(path, how);
        (void)space_->deleteFilespace("/fs");
        const auto registered = space_->registerFilespace(filespace);
        EXPECT_TRUE(!registered && registered.error().kind == ErrorKind::io);
        files_.breakFile(path, test::MemoryFiles::Broken::no);
        const auto before = files_.snapshot();
        ASSERT_TRUE(space_->registerFilespace(filespace));
        EXPECT_EQ(state(), "");
        files_.putBack(before);
        ASSERT_TRUE(open());
    }
    files_.contentOf(path)[70] ^= 1;
    ASSERT_TRUE(space_->registerFilespace(filespace));
    EXPECT_EQ(store::verify(*space_, {}, {})->quarantined, 1U);
    EXPECT_EQ(files_.contentOf(fileUnder("quarantine", "")).size() > 0, true);
}

TEST_F(PassedOver, ADamagedLogIsNamedAndACopyOfItCountsOnce)
{
    const auto seal = store::LogSeal::of(space_->dataKey(), 0);
    store::ActivityLog log(repository_->blobs(), *seal);
    for (const char *text : {"same", "same"})
        ASSERT_TRUE(log.append({store::Severity::info, "node", {}, {}, text}));
    ASSERT_TRUE(log.publish());
    std::string &content = files_.contentOf(fileUnder("log", "/"));
    for (const char *name : {"log/20261121/083100-0000000000000001", "log/29991231/000000-00"})
        ASSERT_TRUE(blob::putWhole(repository_->blobs(), name, viewOf(content)));
    EXPECT_EQ(events().first, 2U);
    EXPECT_TRUE(isSound());
    content[content.size() - 5] = content[content.size() - 5] == '0' ? '1' : '0';
    EXPECT_EQ(store::verify(*space_, {}, {})->hurtRecords, 1U);
}

TEST_F(PassedOver, ALineOfTheLogIsAnEarlierNodesOnlyIfOneCanHaveWrittenIt)
{
    const auto former = SecretKey::random();
    const auto sealOf = [&](const SecretKey &key, std::uint32_t incarnation) {
        return *store::LogSeal::of(key, incarnation);
    };
    const std::string head = "2026-11-21T08:31:00Z\tI\tnode\t\t";
    const std::string own = *sealOf(space_->dataKey(), 7).seal(head, "text");
    const std::string first = *sealOf(*former, 0).seal(head, "text"), cut = own.substr(0, 40);
    const std::pair<std::string, const char *> cases[] = {
        {own, "text"},
        {first, "sealed"},
        {first + ".3", "sealed"},
        {own + "0", nullptr},
        {own.substr(0, own.size() - 1) + "3", nullptr},
        {first + ".7", nullptr},
        {first + ".8", nullptr},
        {first + ".03", nullptr},
        {first + ".0", nullptr},
        {first + ".3x", nullptr},
        {first + "x3", nullptr},
        {first + ".", nullptr},
        {cut + ".3", nullptr},
        {first + ".4294967299", nullptr},
    };
    for (const auto &[field, shown] : cases) {
        const auto line =
            store::parseLogLine(head + "\t" + field, "node", sealOf(space_->dataKey(), 7));
        ASSERT_EQ(static_cast<bool>(line), shown != nullptr) << field;
        if (line) {
            EXPECT_EQ(line->sealed ? "sealed" : line->event.text, shown) << field;
        }
    }
}

TEST_F(PassedOver, ARecordOfAFilespaceWithMoreThanItsFieldsIsDamaged)
{
    const Bytes record = store::encodeFilespace({"node", "/fs", "ORACLE", "", 0, 0, 0});
    ASSERT_TRUE(store::decodeFilespace(record));
    ByteWriter longer;
    longer.raw(*store::unframeRecord(record, "ARCAFSPC", 2));
    longer.u16(0);
    const auto read = store::decodeFilespace(store::frameRecord("ARCAFSPC", 2, longer.view()));
    EXPECT_TRUE(!read && read.error().kind == ErrorKind::damaged);
}

TEST_F(PassedOver, AQuarantinedManifestExcusesOneMissingPiece)
{
    const store::PieceId first = putInactive("x", 'i'), second = putInactive("x", 'j');
    const store::PieceId bad = put("x", 'b');
    files_.contentOf(activeFile(bad))[70] ^= 1;
    const auto aside = space_->setAside(nameOf("x"));
    ASSERT_TRUE(aside) << aside.error().text;
    EXPECT_EQ(stock().missing, std::vector<store::PieceId>{}) << "it may be the piece";
    ASSERT_TRUE(files_.unlink(fileUnder("inactive", digits(first))));
    EXPECT_EQ(stock().missing, std::vector{first});
    files_.contentOf("/r/" + *aside)[0] ^= 1; // which piece it was, nothing tells any more
    EXPECT_EQ(stock().missing.size(), 1U);
    EXPECT_EQ(store::verify(*space_, {}, {})->quarantined, 1U);
    ASSERT_TRUE(store::removeBlob(*space_, *aside));
    EXPECT_EQ(stock().missing.size(), 1U) << "one was given up";
    EXPECT_EQ(store::verify(*space_, {}, {})->quarantined, 0U);
    EXPECT_EQ(*restore(second), streamOf('j', 3000));
}

TEST_F(PassedOver, APieceThatTakesTheLastSpaceIsNoted)
{
    int stored = 0;
    for (std::uint64_t space = 0; stored < 12; space += 50) {
        files_.putBack(start_);
        ASSERT_TRUE(open());
        repository_->blobs().keepReserve();
        files_.limitSpace(space);
        const bool done = put("x", 'x') != 0;
        files_.liftLimit();
        EXPECT_EQ(stock().noted, done ? 1U : 0U) << space;
        stored += done ? 1 : 0;
    }
}

} // namespace
