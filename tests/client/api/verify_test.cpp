// Verifying finds what became of a repository behind our back, names the pieces that are hurt, and
// is right about the others: each of them still restores byte for byte.
#include "tests/client/api/client_fixture.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <functional>
#include <map>

namespace keel::test
{

namespace
{

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

class VerifyTest : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        handle_ = logOn();
        const std::string noise = randomBytes(std::size_t{4} << 20, 1);
        streams_ = {{"few", randomBytes(100'000, 2)},
                    {"noise", noise},
                    {"twin", noise},
                    {"zeros", std::string(std::size_t{1} << 20, '\0')}};
        for (const auto &[piece, stream] : streams_) {
            const auto packs = stored("packs"), manifests = stored("pieces");
            ASSERT_EQ(backUp(handle_, piece, stream), HOX_RC_OK);
            for (const fs::path &path : added("packs", packs))
                pack_[piece] = path;
            manifest_[piece] = added("pieces", manifests).front();
        }
    }

    std::vector<fs::path> added(const std::string &directory, std::vector<fs::path> before)
    {
        auto now = stored(directory);
        std::erase_if(now, [&](const fs::path &path) {
            return std::find(before.begin(), before.end(), path) != before.end();
        });
        return now;
    }

    /// Its answer; `status` receives how it ended.
    nlohmann::json arca(Names words, int *status = nullptr)
    {
        words.emplace_back("--json");
        const ProgramResult result = ClientTest::arca(words);
        if (status != nullptr)
            *status = result.status;
        return nlohmann::json::parse(result.out, nullptr, false);
    }

    static Names named(const nlohmann::json &answer, const std::string &what)
    {
        Names names;
        for (const auto &hurt : answer.at("hurt"))
            if (hurt.at("what") == what)
                names.push_back(hurt.at("name"));
        std::sort(names.begin(), names.end());
        return names;
    }

    std::string blobName(const fs::path &path) const
    {
        return path.lexically_relative(installation_.repository()).string();
    }

    hoxHandle_t handle_ = 0;
    std::map<std::string, std::string> streams_;
    std::map<std::string, fs::path> pack_, manifest_;
};

TEST_F(VerifyTest, FindsWhatIsHurtAndNamesIt)
{
    enum Depth { kStructure, kData };
    const fs::path few = pack_["few"], noise = pack_["noise"], manifest = manifest_["few"];
    const struct {
        const char *what;
        std::function<void()> damage;
        Depth found;
        Names pieces; ///< that are hurt
        Names packs;
        const char *named = nullptr; ///< when not by the piece's own name
    } cases[] = {
        {"first byte of a pack", [&] { flipByte(few, 0); }, kStructure, {"few"}, {blobName(few)}},
        {"a frame", [&] { flipByte(few, 5000); }, kData, {"few"}, {blobName(few)}},
        {"the index of a pack", [&] { flipByte(few, -80); }, kStructure, {"few"}, {blobName(few)}},
        {"last byte of a pack", [&] { flipByte(few, -1); }, kStructure, {"few"}, {blobName(few)}},
        {"a pack is cut",
         [&] { fs::resize_file(few, 70'000); },
         kStructure,
         {"few"},
         {blobName(few)}},
        {"a link where a directory of packs could be",
         [&] { fs::create_directory_symlink("..", noise.parent_path().parent_path() / "zz"); },
         kStructure,
         {},
         {blobName(noise.parent_path().parent_path() / "zz")}},
        {"a pack is gone", [&] { fs::remove(noise); }, kStructure, {"noise", "twin"}, {}},
        {"two packs changed places",
         [&] {
             const std::string first = readFile(few), second = readFile(noise);
             writeFile(few, second);
             writeFile(noise, first);
         },
         kStructure,
         {"few", "noise", "twin"},
         {blobName(few), blobName(noise)}},
        {"what tells a piece's name",
         [&] { flipByte(manifest, 70); },
         kStructure,
         {"few"},
         {},
         "its blob"},
        {"the runs of a piece", [&] { flipByte(manifest, -160); }, kStructure, {"few"}, {}},
        {"the totals of a piece", [&] { flipByte(manifest, -60); }, kStructure, {"few"}, {}},
        {"two pieces changed places",
         [&] {
             const std::string first = readFile(manifest), second = readFile(manifest_["zeros"]);
             writeFile(manifest, second);
             writeFile(manifest_["zeros"], first);
         },
         kStructure,
         {"few", "zeros"},
         {}},
        {"the filespace, which keeps no piece out of reach",
         [&] {
             for (const fs::path &state : stored("filespaces"))
                 flipByte(state, 20);
         },
         kStructure,
         {},
         {}},
    };
    const fs::path kept = installation_.directory() / "kept";
    fs::copy(installation_.repository(), kept, fs::copy_options::recursive);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        c.damage();
        int structure = -1, data = -1;
        (void)arca({"verify"}, &structure);
        EXPECT_EQ(structure, c.found == kStructure ? 1 : 0);
        const nlohmann::json answer = arca({"verify", "--read-data"}, &data);
        EXPECT_EQ(data, 1);
        Names pieces;
        for (const std::string &piece : c.pieces)
            pieces.push_back(c.named == nullptr ? "/fs//" + piece : blobName(manifest));
        EXPECT_EQ(named(answer, "piece"), pieces) << answer;
        Names packs = c.packs;
        std::sort(packs.begin(), packs.end());
        EXPECT_EQ(named(answer, "pack"), packs) << answer;
        for (const auto &[piece, stream] : streams_) {
            const bool hurt = std::find(c.pieces.begin(), c.pieces.end(), piece) != c.pieces.end();
            EXPECT_EQ(restore(handle_, piece, 65536) == stream, !hurt) << piece;
        }
        for (const char *part : {"packs", "pieces", "filespaces"}) {
            fs::remove_all(installation_.repository() / part);
            fs::copy(kept / part, installation_.repository() / part, fs::copy_options::recursive);
        }
    }
    int status = -1;
    EXPECT_EQ(arca({"verify", "--read-data"}, &status).at("pieces"), streams_.size());
    EXPECT_EQ(status, 0);
}

TEST_F(VerifyTest, ADamagedPieceIsRemovedByItsNameAndItsNameStoredAgain)
{
    flipByte(manifest_["few"], 70);
    flipByte(manifest_["twin"], 70);
    const auto remove = [&](const std::string &pattern) {
        int status = -1;
        (void)arca({"rm", pattern, "--filespace", "/fs", "--yes"}, &status);
        return status;
    };
    const hoxObjName name = nameOf("few");
    hoxDelInfo info{};
    info.backName = {HOX_DELBACK_VERSION, &name};
    ASSERT_EQ(api_.hoxBeginTxn(handle_), HOX_RC_OK);
    EXPECT_EQ(api_.hoxDeleteObj(handle_, HOX_DELETE_BACKUP_NAME, &info), HOX_RC_OK);
    EXPECT_EQ(endTransaction(handle_, HOX_VOTE_ABORT), HOX_RC_ABORTED);
    EXPECT_TRUE(stored("quarantine").empty()) << "nothing is done before the commit";
    EXPECT_EQ(remove("few"), 0);
    EXPECT_EQ(remove("few"), 1) << "it is not there any more";
    EXPECT_EQ(stored("quarantine").size(), 2U) << "a manifest and the list of its packs";
    int verified = 0;
    const nlohmann::json answer = arca({"verify"}, &verified);
    EXPECT_EQ(verified, 1);
    EXPECT_EQ(answer.at("quarantined"), 1U);
    EXPECT_EQ(answer.at("hurt").size(), 2U) << "that one and the twin";
    ASSERT_EQ(backUp(handle_, "few", streams_["noise"]), HOX_RC_OK);
    EXPECT_EQ(restore(handle_, "few", 65536), streams_["noise"]);
    EXPECT_EQ(remove("*"), 1) << "one of them cannot be judged";
    EXPECT_EQ(restore(handle_, "few", 65536), std::nullopt)
        << "the others are removed all the same";
    ASSERT_EQ(backUp(handle_, "twin", streams_["noise"]), HOX_RC_OK) << "over a damaged one";
    for (const fs::path &path : stored("quarantine"))
        if (path.extension() != ".packs") {
            int status = -1;
            (void)arca({"rm", "--blob", blobName(path), "--yes"}, &status);
            EXPECT_EQ(status, 0);
        }
    EXPECT_TRUE(stored("quarantine").empty());
}

TEST_F(VerifyTest, GoesOnWhereItStoppedAndRemembersWhatIsProven)
{
    const auto round = [&](const Names &options) {
        std::size_t pieces = 0, packs = 0, hurt = 0, runs = 0;
        nlohmann::json answer;
        do {
            answer = arca(options);
            pieces += answer.at("pieces").get<std::size_t>();
            packs += answer.at("packs").get<std::size_t>();
            hurt += answer.at("hurt").size();
        } while (++runs < 100 && !answer.at("roundEnded"));
        EXPECT_EQ(pieces, streams_.size());
        EXPECT_EQ(packs, stored("packs").size());
        EXPECT_EQ(answer.at("hurtInRound"), hurt) << "of all runs of the round";
        return std::pair(runs, answer.at("provenSince"));
    };
    const Names quarter = {"verify", "--read-data", "--percent", "25"};
    flipByte(pack_["few"], 5000);
    const auto hurt = round(quarter);
    EXPECT_GT(hurt.first, 2U) << "it took several runs";
    EXPECT_TRUE(hurt.second.is_null());
    flipByte(pack_["few"], 5000);
    const auto clean = round(quarter);
    EXPECT_GT(clean.first, 2U);
    EXPECT_TRUE(clean.second.is_string()) << "what was proven is remembered";
    flipByte(pack_["few"], 5000);
    EXPECT_TRUE(arca({"verify", "--read-data"}).at("provenSince").is_null());
    flipByte(pack_["few"], 5000);
    for (const Names &part : {Names{"verify", "--percent", "1"}, quarter})
        EXPECT_TRUE(arca(part).at("provenSince").is_null()) << "until a whole round finds nothing";
    EXPECT_TRUE(round({"verify", "--read-data"}).second.is_string());
    EXPECT_EQ(round({"verify", "--max-duration", "2h"}).first, 1U);

    // What is kept between runs may be lost or be anything.
    for (const char *content : {"", "arca verify 2\ndata 5 -1 x pieces/zz\n", "arca verify 3\n"}) {
        ASSERT_TRUE(arca(quarter).at("roundBegan").is_string());
        for (const auto &file : fs::recursive_directory_iterator(installation_.caches()))
            if (file.path().filename().string().starts_with("verify-"))
                writeFile(file, content);
        EXPECT_GT(round(quarter).first, 2U) << content;
    }
    for (const Names &wrong : {Names{"--percent", "0"}, Names{"--max-duration", "soon"}}) {
        int status = 0;
        (void)arca({"verify", wrong[0], wrong[1]}, &status);
        EXPECT_NE(status, 0) << wrong[0];
    }
}

} // namespace

} // namespace keel::test
