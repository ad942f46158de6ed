// Nodes, their keys and their locks as an administrator looks after them, and what monitoring is
// told.
#include "tests/arca/arca_fixture.h"
#include "tests/support/terminal.h"

#include <ctime>
#include <filesystem>
#include <map>
#include <regex>
#include <sys/stat.h>

namespace keel::test
{

namespace
{

namespace fs = std::filesystem;

class NodeTest : public ArcaTest
{
protected:
    /// An option file of its own that makes us another node.
    fs::path optionsOf(const std::string &node, const fs::path &repository) const
    {
        const auto file = installation_.directory() / (node + ".opt");
        writeFile(file, "REPOSITORY file://" + repository.string() + "\nNODENAME " + node + "\n");
        return file;
    }

    ProgramResult arcaAs(const fs::path &options, const Words &words,
                         const std::string &input = {}) const
    {
        return arca(words, input, options);
    }

    Words nodes() const
    {
        Words names;
        const auto told = arcaJson({"node", "list"});
        for (const auto &node : told["nodes"])
            names.push_back(node["node"].get<std::string>() +
                            (node["registered"] ? "" : " (half removed)"));
        return names;
    }
};

TEST_F(NodeTest, RemovedNodeTakesAllItKeepsAndNothingElse)
{
    const hoxHandle_t handle = logOn();
    store(handle, "mine", "stays");
    const auto others = optionsOf("other", installation_.repository());
    ASSERT_EQ(arcaAs(others, {"init"}).status, 0);
    ASSERT_EQ(setUp(others), HOX_RC_OK);
    const hoxHandle_t other = logOn();
    store(other, "theirs", "goes");
    ASSERT_EQ(arca({"access", "grant", "other", "--filespace", "/fs"}).status, 0);
    EXPECT_EQ(nodes(), (Words{"other", "testnode"}));

    EXPECT_EQ(arca({"node", "remove", "other"}).status, 2) << "nobody is asked";
    EXPECT_EQ(arca({"node", "remove", "none", "--yes"}).status, 1);
    // What came while a person was asked is not removed unseen, nor by as many as went.
    for (const char *goes : {"", "theirs"}) {
        Terminal asks(commandLine({"node", "remove", "other"}));
        asks.answer("[y/N] ", "");
        if (*goes != '\0') {
            EXPECT_EQ(arcaAs(others, {"rm", goes, "--yes"}).status, 0);
        }
        store(other, *goes == '\0' ? "unseen" : "again", "goes");
        asks.answer("", "y\n");
        EXPECT_EQ(asks.finish(), 1) << asks.shown;
        EXPECT_EQ(nodes(), (Words{"other", "testnode"}));
        EXPECT_EQ(stored("pieces").size(), 3U);
    }
    // A channel that is still open: what it commits afterwards must not be left behind.
    ASSERT_EQ(send(other, "late", "in vain"), HOX_RC_OK);
    const auto gone = arcaJson({"node", "remove", "other", "--yes"});
    EXPECT_EQ(gone["pieces"], 2);
    EXPECT_EQ(gone["removed"], 1) << "it could have been brought back";
    EXPECT_EQ(commit(other), HOX_RC_FS_UNKNOWN);
    EXPECT_EQ(nodes(), Words{"testnode"});
    EXPECT_EQ(arcaAs(others, {"ls"}).status, 1);
    EXPECT_EQ(stored("pieces").size(), 1U);
    // The pack of that channel is in the way of the name until one more removal.
    EXPECT_EQ(arcaAs(others, {"init"}).status, stored("packs").size() == 1U ? 0 : 1);
    EXPECT_EQ(arca({"node", "remove", "other", "--yes"}).status, 0);
    EXPECT_EQ(stored("packs").size(), 1U);

    ASSERT_EQ(arcaAs(others, {"init"}).status, 0) << "the name is free again";
    EXPECT_EQ(arcaAs(others, {"ls"}).status, 0);
    EXPECT_EQ(arcaAs(others, {"verify"}).status, 0) << "the log has lines of the one before";
    EXPECT_EQ(listed({}), "mine");
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 0);
}

TEST_F(NodeTest, ADamagedNodeIsListedAndCanBeRemoved)
{
    store(logOn(), "mine", "stays");
    ASSERT_EQ(arca({"node", "add", "other"}).status, 0);
    const auto others = optionsOf("other", installation_.repository());
    fs::copy_file(installation_.clientOptions().string() + ".keys", others.string() + ".keys");
    for (const char *room : {"filespaces", "nodes"}) {
        SCOPED_TRACE(room);
        const auto before = stored(room);
        if (room == std::string("filespaces")) {
            ASSERT_EQ(setUp(others), HOX_RC_OK);
            store(logOn(), "theirs", "goes");
        } else {
            ASSERT_EQ(arca({"node", "add", "other"}).status, 0);
        }
        for (const auto &record : stored(room))
            if (std::ranges::count(before, record) == 0)
                writeFile(record, "damaged");
        EXPECT_NE(arca({"node", "list"}).out.find("1 of its records is damaged"),
                  std::string::npos);
        EXPECT_EQ(arca({"node", "remove", "other", "--yes"}).status, 0);
        EXPECT_EQ(nodes(), Words{"testnode"});
    }
    EXPECT_EQ(stored("pieces").size(), 1U);
}

TEST_F(NodeTest, ANameThatCouldNotLogOnIsRefusedEverywhere)
{
    const auto options = installation_.directory() / "name.opt";
    for (const std::string name : {" blank", "blank ", "a\tb", "a\nb", "\x7f", "a\x01"}) {
        SCOPED_TRACE(testing::PrintToString(name));
        EXPECT_EQ(arca({"node", "add", name}).status, 1);
        hoxHandle_t handle = 0;
        EXPECT_EQ(
            ClientTest::logOn(handle, name.c_str(), "a long passphrase", "-passwordaccess=prompt"),
            HOX_RC_AUTH_FAILURE);
        writeFile(options, repositoryLine() + "NODENAME \"" + name + "\"\n");
        EXPECT_EQ(arcaAs(options, {"init"}).status, 1);
    }
    EXPECT_EQ(nodes(), Words{"testnode"});
}

TEST_F(NodeTest, HalfRemovedNodeIsFinishedBeforeItsNameIsFree)
{
    const auto others = optionsOf("other", installation_.repository());
    ASSERT_EQ(arcaAs(others, {"init"}).status, 0);
    ASSERT_EQ(setUp(others), HOX_RC_OK);
    store(logOn(), "theirs", "goes");
    // Killed after its first step: the record of the node is gone.
    const auto own = stored("nodes");
    ASSERT_EQ(arca({"node", "add", "third"}).status, 0);
    for (const fs::path &file : own)
        if (readFile(file).find("other") != std::string::npos)
            fs::remove(file);
    EXPECT_EQ(nodes(), (Words{"other (half removed)", "testnode", "third"}));
    const ProgramResult refused = arcaAs(others, {"init"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("arca node remove other"), std::string::npos) << refused.err;
    EXPECT_EQ(arca({"node", "remove", "other", "--yes"}).status, 0);
    EXPECT_EQ(nodes(), (Words{"testnode", "third"}));
    EXPECT_TRUE(stored("pieces").empty());
    EXPECT_EQ(arcaAs(others, {"init"}).status, 0);
}

TEST_F(NodeTest, ExportedKeyOpensTheNodeElsewhere)
{
    const std::string phrase = "ten chars!\n";
    const fs::path file = installation_.directory() / "node.key";
    EXPECT_EQ(arca({"key", "export", "--stdin", "-o", file}, "nine char\n").status, 1);
    ASSERT_EQ(arca({"key", "export", "--stdin", "-o", file}, phrase).status, 0);
    EXPECT_EQ(arca({"key", "export", "--stdin", "-o", file}, phrase).status, 1) << "nothing lost";
    struct stat state = {};
    ASSERT_EQ(stat(file.c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 0777U, 0600U);
    const std::string kept = readFile(installation_.clientOptions().string() + ".keys");
    EXPECT_EQ(readFile(file).find(kept.substr(kept.rfind(" testnode") - 64, 64)),
              std::string::npos);

    fs::create_directory(installation_.directory() / "elsewhere");
    const auto there = installation_.directory() / "elsewhere" / "arca.opt";
    writeFile(there, readFile(installation_.clientOptions()));
    EXPECT_EQ(arcaAs(there, {"ls"}).status, 1) << "not yet";
    const auto changed = installation_.directory() / "changed.key";
    std::string text = readFile(file);
    text[text.size() - 30] = text[text.size() - 30] == '0' ? '1' : '0';
    writeFile(changed, text);
    const auto another = installation_.directory() / "another";
    const auto others = optionsOf("testnode", another);
    ASSERT_EQ(arcaAs(others, {"init"}).status, 0);
    const struct {
        fs::path options, key;
        std::string phrase;
    } refusals[] = {{there, file, "another passphrase\n"},
                    {there, changed, phrase},
                    {there, there, phrase},
                    {there, "/nonexistent", phrase},
                    {others, file, phrase}};
    for (const auto &c : refusals)
        EXPECT_EQ(arcaAs(c.options, {"key", "import", c.key, "--stdin"}, c.phrase).status, 1)
            << c.key << c.phrase;
    EXPECT_EQ(arcaAs(others, {"ls"}).status, 0) << "what was kept there still holds";
    EXPECT_EQ(arcaAs(there, {"ls"}).status, 1);
    const ProgramResult taken = arcaAs(there, {"key", "import", file, "--stdin"}, phrase);
    EXPECT_EQ(taken.status, 0) << taken.err;
    EXPECT_EQ(arcaAs(there, {"ls"}).status, 0);
}

TEST_F(NodeTest, UnlockClearsUpBehindTheDeadOnly)
{
    const hoxHandle_t handle = logOn();
    ASSERT_EQ(send(handle, "open", "under way"), HOX_RC_OK);
    ASSERT_EQ(api_.hoxEndSendObj(handle), HOX_RC_OK); // parked under the claim of the transaction
    const hoxObjName second = nameOf("second");
    const ObjAttr attr = attributes();
    ASSERT_EQ(api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &second, &attr, nullptr),
              HOX_RC_OK);
    const auto living = stored("tmp").size();
    writeFile(installation_.repository() / "tmp" / "1-0123456789abcdef", "left behind");
    EXPECT_EQ(arcaJson({"unlock", "--dry-run"})["leftovers"], 1);
    EXPECT_EQ(stored("tmp").size(), living + 1);
    const auto told = arcaJson({"unlock"});
    EXPECT_EQ(told["leftoverBytes"], 11);
    EXPECT_EQ(told["held"].size(), living + 1);
    EXPECT_EQ(told["removed"], 1);
    EXPECT_EQ(stored("tmp").size(), living);
    EXPECT_EQ(commit(handle), HOX_RC_OK) << "the living one was left alone";
    EXPECT_EQ(arcaJson({"unlock"})["held"].size(), 0U);
}

TEST_F(NodeTest, MetricsAreWhatACollectorReads)
{
    const hoxHandle_t handle = logOn();
    const std::string stream = randomBytes(100'000, 1);
    for (const char *piece : {"a", "b"})
        store(handle, piece, stream);
    store(handle, "old", std::string(5000, 'o'));
    ASSERT_EQ(arca({"rm", "old", "--deactivate", "--yes"}).status, 0);
    store(handle, "zeros", std::string(12 * 8192, '\0'));
    const fs::path file = installation_.directory() / "arca.prom";
    for (int i = 0; i < 2; ++i)
        ASSERT_EQ(arca({"metrics", "--output", file}).status, 0);
    const std::string text = readFile(file);
    const std::string again = arca({"metrics"}).out;
    const auto room = text.find("# HELP arca_filesystem_available");
    EXPECT_EQ(text.substr(0, room), again.substr(0, room));
    const std::regex sample(R"(([a-z_]+)\{node="testnode"(,[a-z]+="[a-z]+")?\} (\d+))");
    std::istringstream lines(text);
    std::string line, told;
    std::smatch match;
    std::map<std::string, std::uint64_t> values;
    while (std::getline(lines, line)) {
        if (std::regex_match(line, match, std::regex(R"(# HELP (arca_[a-z_]+) .+\.)")) ||
            std::regex_match(line, match, std::regex(R"(# TYPE (arca_[a-z_]+) gauge)"))) {
            told = match[1];
            continue;
        }
        ASSERT_TRUE(std::regex_match(line, match, sample)) << line;
        EXPECT_EQ(match[1], told) << "each after its own HELP and TYPE";
        values[match[1].str() + match[2].str()] = std::stoull(match[3]);
    }
    EXPECT_GT(values.size(), 12U);
    const auto sizeOf = [&](const char *place) {
        std::uint64_t bytes = 0;
        for (const auto &blob : stored(place))
            bytes += fs::file_size(blob);
        return bytes;
    };
    const auto stats = arcaJson({"stats"}), old = arcaJson({"ls", "--inactive"})["objects"][0];
    const std::uint64_t packBytes = sizeOf("packs"), fresh = 100'000 + 5'000, zeros = 12 * 8192;
    const struct {
        std::string metric;
        const char *field; ///< of `arca stats`; null: none
        std::uint64_t value;
    } truths[] = {
        {"arca_pieces", "pieces", 4},
        {"arca_inactive_versions", nullptr, 1},
        {"arca_logical_bytes", "logicalBytes", 100'000 + fresh + zeros},
        {"arca_stored_bytes", "storedBytes", packBytes},
        {"arca_saved_bytes,by=\"zeros\"", "savedByZeros", zeros},
        {"arca_saved_bytes,by=\"duplicates\"", "savedByDuplicates", 100'000},
        {"arca_saved_bytes,by=\"compression\"", "savedByCompression", fresh - packBytes},
        {"arca_packs", "packs", stored("packs").size()},
        {"arca_pack_bytes", "packBytes", packBytes},
        {"arca_manifest_bytes", "manifestBytes", sizeOf("pieces") + sizeOf("inactive")},
    };
    for (const auto &[metric, field, value] : truths) {
        EXPECT_EQ(values[metric], value) << metric;
        if (field != nullptr) {
            EXPECT_EQ(stats[field], value) << field;
        }
    }
    EXPECT_EQ(stats["days"].size(), 1U);
    const auto newest = arcaJson({"show", "zeros"})["versions"][0];
    std::tm then{};
    ASSERT_NE(strptime(newest["stored"].get<std::string>().c_str(), "%FT%TZ", &then), nullptr);
    EXPECT_EQ(values["arca_last_piece_timestamp_seconds"],
              static_cast<std::uint64_t>(timegm(&then)));
    const std::pair<const char *, nlohmann::json> fields[] = {
        {"piece", "old"},       {"filespace", "/fs"},    {"active", false},    {"size", 5000},
        {"class", "STANDARD"},  {"owner", "oracle"},     {"info", "stStream"}, {"compressed", true},
        {"deduplicated", true}, {"encryption", "AES256"}};
    for (const auto &[field, value] : fields)
        EXPECT_EQ(old[field], value) << field;
    EXPECT_GE(old["inactiveSince"], old["stored"]);
    EXPECT_LT(newest["storedSize"], 1000) << "its manifest, nothing else";
    EXPECT_GT(newest["storedSize"], 100);
    const ProgramResult nowhere = arca({"metrics", "--output", "/nonexistent/arca.prom"});
    EXPECT_EQ(nowhere.status, 1);
    for (const Words &mixed : {Words{"metrics"}, {"key", "export", "--stdin"}})
        for (const char *json : {"--json", ""}) {
            Words words = mixed;
            words.insert(words.end(), {"--output", "/dev/stdout"});
            if (*json)
                words.emplace_back(json);
            const ProgramResult result = arca(words, "correct horse battery\n");
            EXPECT_EQ(result.status, *json ? 2 : 0) << result.err;
            EXPECT_EQ(result.out.find("The key of"), std::string::npos) << result.out;
        }

    // What a restore finds damaged, and what is set aside, is told, and nothing is proven any more.
    const std::string proven = "arca_verify_proven_timestamp_seconds{node=\"testnode\",depth=\"";
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 0);
    EXPECT_EQ(arca({"metrics"}).out.find(proven + "data\"} 0\n"), std::string::npos);
    const auto manifests = stored("pieces");
    damageFiles(installation_.repository() / "packs");
    EXPECT_NE(restore(logOn(), "a"), stream);
    writeFile(manifests.front(), "damaged");
    for (const char *piece : {"a", "b", "zeros"})
        (void)arca({"rm", piece, "--yes"});
    const std::string hurt = arca({"metrics"}).out;
    for (const char *depth : {"structure", "data"})
        EXPECT_NE(hurt.find(proven + depth + "\"} 0\n"), std::string::npos) << hurt;
    EXPECT_NE(hurt.find("arca_quarantined{node=\"testnode\"} 1\n"), std::string::npos) << hurt;
    EXPECT_NE(hurt.find("arca_damaged_parts{node=\"testnode\"} 1\n"), std::string::npos) << hurt;
    writeFile(stored("packs").front(), "damaged");
    EXPECT_NE(arca({"metrics"}).out.find("arca_unreadable{node=\"testnode\"} 1\n"),
              std::string::npos);
    const auto worse = arcaJson({"stats"});
    for (const char *field : {"unreadable", "damagedParts", "quarantined"})
        EXPECT_EQ(worse[field], 1) << field;
    const auto foundIn = [&](const char *depth) {
        const std::string metric = "arca_verify_hurt{node=\"testnode\",depth=\"";
        return arca({"metrics"}).out.find(metric + depth + "\"} 0\n") == std::string::npos;
    };
    EXPECT_EQ(arca({"verify"}).status, 1);
    EXPECT_TRUE(foundIn("structure") && !foundIn("data"));
    EXPECT_EQ(arca({"verify", "--read-data"}).status, 1);
    EXPECT_TRUE(foundIn("data"));
}

} // namespace

} // namespace keel::test
