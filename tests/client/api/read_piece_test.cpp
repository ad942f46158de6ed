// A reader that shares no code with the storage client gives back what was stored: what
// docs/repository-format.md says is all that is needed, and is what we write.
#include "tests/client/api/client_fixture.h"

#include <algorithm>

namespace keel::test
{

namespace
{

constexpr std::size_t kBlock = 8192;

/// Blocks as a database has them: a type and a number in front, some compressible content; every
/// `changed`-th one differs from those of another day.
std::string databaseBlocks(std::size_t count, std::size_t changed, std::uint64_t day)
{
    std::string stream;
    for (std::size_t number = 0; number < count; ++number) {
        const std::uint64_t seed = number % changed == 0 ? day * 1000 + number : number;
        std::string block = "\x06\xa2" + std::to_string(number) + randomBytes(kBlock / 2, seed);
        block.resize(kBlock, 'x');
        stream += block;
    }
    return stream;
}

class ReadPieceTest : public ClientTest
{
protected:
    ProgramResult read(const std::string &piece, const std::filesystem::path &passwords)
    {
        return run({KEEL_TEST_READER, installation_.repository(), "testnode", passwords, "/fs", "/",
                    "/" + piece});
    }
    ProgramResult read(const std::string &piece) { return read(piece, passwords()); }
    std::filesystem::path passwords() const
    {
        return installation_.clientOptions().string() + ".keys";
    }

    const std::vector<std::pair<std::string, std::string>> streams_ = {
        {"empty", ""},
        {"byte", "x"},
        {"zeros", std::string(3 * 1024 * 1024 + 5, '\0')},
        {"random", randomBytes(1'500'000, 1)},
        {"day0", databaseBlocks(400, 16, 0)},
        {"day1", databaseBlocks(400, 16, 1) + std::string(300'000, '\0') + "end"},
    };
};

} // namespace

TEST_F(ReadPieceTest, GivesBackWhatWasStoredInEveryWay)
{
    logOn(); // registers the filespace
    for (const std::string options :
         {"-deduplication=no", " ", "-encryption=no -compression=no", "-encryption=aes128"}) {
        hoxHandle_t handle = 0;
        ASSERT_EQ(logOn(handle, nullptr, nullptr, options.c_str()), HOX_RC_OK) << options;
        for (const auto &[name, stream] : streams_) {
            ASSERT_EQ(backUp(handle, name + options, stream), HOX_RC_OK);
            const ProgramResult result = read(name + options);
            EXPECT_EQ(result.status, 0) << result.err;
            EXPECT_EQ(result.err, "") << "everything could be checked";
            EXPECT_TRUE(result.out == stream) << name << options;
        }
    }
}

TEST_F(ReadPieceTest, ShowsWhatTheClientShows)
{
    const hoxHandle_t handle = logOn();
    for (const char *piece : {"gone", "old", "kept", "inactive"})
        ASSERT_EQ(backUp(handle, piece, piece), HOX_RC_OK);
    ASSERT_EQ(remove(handle, "gone"), HOX_RC_OK);
    ASSERT_EQ(changeById(handle, HOX_DEACTIVATE_BACKUP_ID, recordOf(handle, "inactive").objId), 0);
    const auto before = stored("pieces");
    std::vector<std::string> bytes;
    for (const auto &path : before)
        bytes.push_back(readFile(path));
    const hoxObjName from = nameOf("old");
    ASSERT_EQ(api_.hoxRenameObj(handle, HOX_SEND_BACKUP, &from, "/", "/new"), HOX_RC_OK);
    for (std::size_t i = 0; i < before.size(); ++i)
        writeFile(before[i], bytes[i]); // as a process leaves them that dies before it tidies up

    for (const char *piece : {"gone", "old", "inactive"})
        EXPECT_EQ(read(piece).status, 1) << piece;
    EXPECT_EQ(read("new").out, "old");
    const auto listed = run(
        {KEEL_TEST_READER, "--list", installation_.repository(), "testnode", passwords().string()});
    EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'), 3) << listed.out;
    EXPECT_NE(listed.out.find("\t3\t/fs\t/\t/new\n"), std::string::npos) << listed.out;
    EXPECT_NE(listed.out.find("\t4\t/fs\t/\t/kept\n"), std::string::npos) << listed.out;
    const auto at = listed.out.find("\t8\t/fs\t/\t/inactive\t");
    ASSERT_NE(at, std::string::npos) << listed.out;
    EXPECT_EQ(run({KEEL_TEST_READER, "--piece", listed.out.substr(at - 16, 16),
                   installation_.repository(), "testnode", passwords().string()})
                  .out,
              "inactive");
}

TEST_F(ReadPieceTest, FindsAPieceThatWaitsForItsPlace)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "piece", "old"), HOX_RC_OK);
    const hoxObjName name = nameOf("piece");
    const ObjAttr attr = attributes();
    hoxDelInfo info{};
    info.backName = {HOX_DELBACK_VERSION, &name};
    std::string bytes = "new";
    DataBlk data = blockOf(bytes);
    ASSERT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
    ASSERT_EQ(api_.hoxDeleteObj(handle, HOX_DELETE_BACKUP_NAME, &info), HOX_RC_OK);
    ASSERT_EQ(api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, &data), HOX_RC_OK);
    // The old one cannot leave its place, and the change is done all the same.
    const auto inTheWay = installation_.repository() / "removed";
    std::filesystem::create_symlink(inTheWay, inTheWay);
    ASSERT_EQ(commit(handle), HOX_RC_OK);
    ASSERT_EQ(api_.hoxTerminate(handle), HOX_RC_OK);
    for (const bool waits : {true, false}) {
        const hoxHandle_t next = logOn();
        EXPECT_EQ(stored("coming").size(), waits ? 1U : 0U);
        EXPECT_EQ(restore(next, "piece"), "new");
        EXPECT_EQ(read("piece").out, "new");
        ASSERT_EQ(api_.hoxTerminate(next), HOX_RC_OK);
        if (waits)
            std::filesystem::remove(inTheWay);
    }
}

TEST_F(ReadPieceTest, FindsBlocksInPacksThatWereWrittenAnew)
{
    const hoxHandle_t handle = logOn();
    const std::string all = databaseBlocks(40, 1, 0), kept = all.substr(3 * kBlock, 9 * kBlock);
    for (const auto &[piece, stream] : {std::pair{"all", all}, std::pair{"kept", kept}})
        ASSERT_EQ(backUp(handle, piece, stream), HOX_RC_OK);
    ASSERT_EQ(remove(handle, "all"), HOX_RC_OK);
    ASSERT_EQ(arca({"reclaim", "--grace", "0"}).status, 0);
    ASSERT_EQ(stored("packs").size(), 1U);
    ASSERT_EQ(stored("packs").front().extension(), ".2");
    EXPECT_TRUE(read("kept").out == kept);
}

TEST_F(ReadPieceTest, RefusesWhatIsNotWhatWasStored)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(backUp(handle, "piece", databaseBlocks(20, 1, 0)), HOX_RC_OK);
    for (const char *place : {"packs", "pieces"}) {
        ASSERT_EQ(stored(place).size(), 1U) << place;
        const auto path = stored(place).front();
        const auto middle = static_cast<std::ptrdiff_t>(file_size(path) / 2);
        for (const std::ptrdiff_t at : {std::ptrdiff_t{13}, std::ptrdiff_t{70}, middle,
                                        std::ptrdiff_t{-70}, std::ptrdiff_t{-3}}) {
            flipByte(path, at);
            const ProgramResult result = read("piece");
            EXPECT_EQ(result.status, 1) << place << " with a changed byte at " << at;
            EXPECT_NE(result.err, "");
            flipByte(path, at);
        }
    }
    EXPECT_EQ(read("piece").status, 0);

    const auto other = installation_.directory() / "other";
    writeFile(other, "wrong\n");
    EXPECT_EQ(read("piece", other).status, 1) << "a wrong password";
}

} // namespace keel::test
