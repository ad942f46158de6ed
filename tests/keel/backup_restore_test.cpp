// Streams go in and come back, and what is said about them is true.
#include "tests/keel/keel_fixture.h"
#include "tools/keel/channel/trailer.h"

#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace keel::test
{

using BackupTest = KeelTest;

namespace
{

/// EXPECT_EQ would print megabytes.
bool same(const std::string &left, const std::string &right)
{
    return left == right;
}

std::string trailerText(std::uint32_t blockSize, std::uint64_t length)
{
    const TrailerRecord record = encodeTrailer({blockSize, length});
    return {reinterpret_cast<const char *>(record.data()), record.size()};
}

} // namespace

TEST_F(BackupTest, StreamOfAnyLengthComesBackInBlocksOfAnySize)
{
    const std::size_t block = 4096;
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, block - 1, block, block + 1, 3 * block, 3 * block + 17,
          5 * block - 1, 16 * block, 2 * 262144 + block}) {
        // Random ones, and zeros, which must be kept at the end of a stream.
        for (const bool random : {true, false}) {
            const std::string name = (random ? "piece-" : "zeros-") + std::to_string(size);
            const std::string stream = random ? randomBytes(size, size) : std::string(size, '\0');
            backUp(name, stream, std::to_string(block));
            const std::uint64_t stored =
                nlohmann::json::parse(keel({"info", name, "--json"}).out)["pieces"][0]["size"];
            EXPECT_EQ(stored % block, 0U);
            EXPECT_TRUE(same(restored(name), stream)) << name;
            for (const std::size_t blockSize : {4096U, 512U, 2560U, 12288U, 262144U, 1048576U}) {
                const std::string back = restored(name, std::to_string(blockSize));
                // No byte goes out before it is told that they are other blocks.
                EXPECT_TRUE(stored % blockSize == 0
                                ? same(back, stream)
                                : back.starts_with("failed: keel restore ") &&
                                      back.find(" bytes are stored, no multiple of ") !=
                                          std::string::npos)
                    << name << ", restored in blocks of " << blockSize << ": " << back.size();
            }
        }
    }
}

#ifndef KEEL_TEST_SANITIZED // which takes minutes
TEST_F(BackupTest, StreamOfMoreThan4GibibytesComesBackWhole)
{
    constexpr std::uint64_t kLength = (std::uint64_t{1} << 32) + 12'345;
    writeFile("large", "its first bytes");
    std::filesystem::resize_file("large", kLength - 1);
    std::ofstream("large", std::ios::app) << "!";
    const auto stored = keel({"backup", "large", "-i", "large", "--json"});
    EXPECT_EQ(nlohmann::json::parse(stored.out)["bytes"], kLength);
    const ProgramResult read = keel({"restore", "large", "-o", "/dev/null", "--json"});
    EXPECT_EQ(nlohmann::json::parse(read.out)["bytes"], kLength) << read.err;
    const ProgramResult stats =
        run({arcaProgram(), "stats", "--json", "--optfile", installation_.clientOptions()});
    EXPECT_GE(nlohmann::json::parse(stats.out)["logicalBytes"], kLength);
    EXPECT_GE(nlohmann::json::parse(stats.out)["savedByZeros"], kLength - (1 << 20));
}
#endif

TEST_F(BackupTest, StreamThatEndsInATrailerOfItsOwnComesBackWhole)
{
    const std::string zeros(512 - kTrailerRecordSize, '\0');
    const std::string first(512, 'a');
    const std::string fitting = first + zeros + trailerText(512, 300);
    std::string spoiled = fitting;
    spoiled.back() ^= 1;
    const std::string streams[] = {
        fitting,                                        // as a piece of 300 bytes would lie there
        fitting + zeros + trailerText(512, 1024),       // and stored once more
        first + zeros + trailerText(512, 512),          // a trailer that was not needed
        spoiled,                                        // the magic only
        zeros + trailerText(512, 0),                    // the empty stream's
        first + fitting.substr(0, fitting.size() - 20), // cut
    };
    int number = 0;
    for (const std::string &stream : streams) {
        const std::string name = "imitation-" + std::to_string(++number);
        backUp(name, stream, "512");
        EXPECT_TRUE(same(restored(name, "512"), stream)) << name;
        EXPECT_TRUE(same(restored(name), stream)) << name;
    }
}

TEST_F(BackupTest, APieceOfLargeBlocksComesBackWholeOrNotAtAll)
{
    const std::string stream = randomBytes((std::size_t{5} << 20) + 1, 1);
    for (const std::string size : {"4M", "64M"}) { // with the most padding that there can be
        backUp(size, stream, size);
        for (const std::string blockSize : {"", "8K", "2M", "4M"})
            EXPECT_TRUE(same(restored(size, blockSize), stream)) << size << " in " << blockSize;
        EXPECT_TRUE(same(keel({"--sbt1", "restore", size, "-o", "-"}).out, stream)) << size;
        expectRefusal({"restore", size, "-o", "-", "--block-size", "5M"}, 1, "no multiple of");
    }
}

TEST_F(BackupTest, StreamGoesFromPipeToPipe)
{
    const std::string stream = randomBytes(3'000'001, 2);
    writeFile(installation_.directory() / "stream", stream);
    const std::string program = keelProgram();
    const ProgramResult result = run({"sh", "-c",
                                      "cat stream | " + program + " backup piped -i - && " +
                                          program + " restore piped -o - | cat > copy"});
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(same(readFile(installation_.directory() / "copy"), stream));
}

TEST_F(BackupTest, FilesGetTheirContentBackAndAreNotReplacedUnasked)
{
    const auto directory = installation_.directory() / "files";
    std::filesystem::create_directory(directory);
    const std::string stream = randomBytes(100'000, 3);
    writeFile(directory / "input", stream);
    EXPECT_EQ(keel({"backup", "p", "--input", directory / "input"}).status, 0);
    writeFile(directory / "taken", "mine");
    const ProgramResult refused = keel({"restore", "p", "--output", directory / "taken"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
    EXPECT_EQ(readFile(directory / "taken"), "mine");
    const auto taken = directory / "taken";
    ASSERT_EQ(::chmod(taken.c_str(), 0640), 0);
    const uid_t owner = ::geteuid() == 0 ? 12345 : ::geteuid();
    ASSERT_EQ(::chown(taken.c_str(), owner, static_cast<gid_t>(-1)), 0);
    EXPECT_EQ(keel({"restore", "p", "--output", taken, "--force"}).status, 0);
    EXPECT_TRUE(same(readFile(taken), stream));
    struct stat kept = {};
    ASSERT_EQ(::stat(taken.c_str(), &kept), 0);
    EXPECT_EQ(kept.st_mode & 07777, 0640U);
    EXPECT_EQ(kept.st_uid, owner);
    std::filesystem::create_symlink("taken", directory / "link");
    EXPECT_EQ(keel({"restore", "p", "--output", directory / "link", "--force"}).status, 1);
    std::filesystem::remove(directory / "link");
    EXPECT_EQ(keel({"restore", "p", "--output", directory / "new"}).status, 0);
    EXPECT_TRUE(same(readFile(directory / "new"), stream));
    EXPECT_EQ(keel({"restore", "p", "--output", "/dev/null"}).status, 0);
    EXPECT_EQ(listing(directory), (std::vector<std::string>{"input", "new", "taken"}));
}

TEST_F(BackupTest, InputThatIsClosedIsNotAnEmptyOne)
{
    const ProgramResult result =
        run({"sh", "-c", keelProgram().string() + " backup p --input - <&-"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("cannot read"), std::string::npos) << result.err;
    EXPECT_FALSE(isStored("p"));
}

TEST_F(BackupTest, AFileThatIsCutWhileItIsReadIsNotStored)
{
    const std::string input = installation_.directory() / "input";
    writeFile(input, "some bytes");
    std::filesystem::resize_file(input, std::uintmax_t{1} << 40); // longer than reading can take
    for (const char *as : {"a file", "standard input"}) {
        const bool named = std::string(as) == "a file";
        Program running(
            named
                ? Words{keelProgram(), "backup", "p", "--input", input}
                : Words{"sh", "-c", "exec " + keelProgram().string() + " backup p -i - <" + input});
        // Until it has read some of it.
        const std::string process = "/proc/" + std::to_string(running.pid());
        const auto reading = [&] {
            std::error_code gone;
            for (const auto &entry : std::filesystem::directory_iterator(process + "/fd", gone)) {
                const std::string at =
                    readFile(process + "/fdinfo/" + entry.path().filename().string());
                if (std::filesystem::read_symlink(entry.path(), gone) == input &&
                    at.starts_with("pos:") && !at.starts_with("pos:\t0\n"))
                    return true;
            }
            return false;
        };
        siginfo_t ended = {};
        while (!reading() && ended.si_pid == 0)
            ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(running.pid()), &ended,
                               WEXITED | WNOHANG | WNOWAIT),
                      0);
        running.signal(SIGSTOP);
        std::filesystem::resize_file(input, 1'000'000);
        running.signal(SIGCONT);
        const ProgramResult result = running.wait();
        EXPECT_EQ(result.status, 1) << as;
        EXPECT_NE(result.err.find("was cut while it was read"), std::string::npos) << result.err;
        EXPECT_FALSE(isStored("p"));
        std::filesystem::resize_file(input, std::uintmax_t{1} << 40);
    }
    // One that has more than it says is no cut one.
    EXPECT_EQ(keel({"backup", "proc", "--input", "/proc/self/cmdline"}).status, 0);
    EXPECT_NE(restored("proc").find("backup"), std::string::npos);
}

TEST_F(BackupTest, TheCommandLineBeatsTheEnvironmentForEveryVerb)
{
    namespace fs = std::filesystem;
    const auto directory = installation_.directory();
    backUp("p", "the environment's");
    const std::string clientOptions = directory / "named.arca";
    writeFile(clientOptions,
              "REPOSITORY file://" + (directory / "named").string() + "\nNODENAME testnode\n");
    ASSERT_EQ(run({arcaProgram(), "init", "--optfile", clientOptions}).status, 0);
    writeFile("named.opt",
              "HOXI_LOG " + directory.string() + "\nHOXI_ORC_CONFIG " + clientOptions + "\n");
    const Words verbs[] = {{"backup", "q", "-i", "-"},
                           {"info", "q"},
                           {"restore", "q", "-o", "-"},
                           {"remove", "q", "--yes"},
                           {"bench", "--size", "1M"},
                           {"passwd", "--stdin"},
                           {"doctor"},
                           {"rman"}};
    ASSERT_EQ(run({keelProgram(), "--generate", "share"}).status, 0);
    EXPECT_EQ(
        std::ranges::distance(fs::directory_iterator("share/man/man1"), fs::directory_iterator()),
        std::ssize(verbs) + 2)
        << "the pages of these, of keel itself and of trace, which asks no agent";
    const auto content = [&] {
        std::string names;
        for (const auto &entry : fs::recursive_directory_iterator(installation_.repository()))
            names += entry.path().string() + "\n";
        return names;
    };
    const std::string before = content();
    for (const Words &verb : verbs) {
        const ProgramResult result = keel(verb, "named", {"--optfile", "named.opt"});
        EXPECT_EQ(result.status, verb[0] == "passwd" ? 1 : 0) << verb[0] << result.err;
        EXPECT_EQ(content(), before) << verb[0];
        EXPECT_EQ(keel(verb, "", {"--optfile", ""}).status, 2) << verb[0];
    }
    EXPECT_EQ(restored("p"), "the environment's");
    // The agent would take the quotation marks off.
    writeFile("'named.opt'", readFile("named.opt"));
    EXPECT_EQ(keel(verbs[0], "named", {"--optfile", "'named.opt'"}).status, 2);
}

TEST_F(BackupTest, JsonTellsWhatHappened)
{
    using nlohmann::json;
    const ProgramResult backup =
        keel({"backup", "a \"name\"", "-i", "-", "--json"}, randomBytes(300'000, 4));
    const json stored = json::parse(backup.out);
    EXPECT_EQ(stored["name"], "a \"name\"");
    EXPECT_EQ(stored["ok"], true);
    EXPECT_EQ(stored["bytes"], 300'000);
    EXPECT_GT(stored["seconds"], 0.0);

    const ProgramResult again = keel({"backup", "a \"name\"", "-i", "-", "--json"}, "x");
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(json::parse(again.out)["ok"], false);
    EXPECT_EQ(json::parse(again.out)["sbtCode"], 7503);

    const ProgramResult info = keel({"info", "a \"name\"", "nobody", "--json"});
    EXPECT_EQ(info.status, 1) << "one of them is missing";
    EXPECT_EQ(json::parse(info.out)["ok"], false);
    const json pieces = json::parse(info.out)["pieces"];
    ASSERT_EQ(pieces.size(), 2U);
    EXPECT_EQ(pieces[0]["found"], true);
    EXPECT_EQ(pieces[0]["method"], "stream");
    EXPECT_EQ(pieces[0]["class"], "STANDARD");
    EXPECT_EQ(pieces[0]["created"].get<std::string>().size(),
              std::string("2026-03-07T13:05:09Z").size());
    EXPECT_EQ(pieces[1], (json{{"name", "nobody"}, {"found", false}}));
}

TEST_F(BackupTest, TerminalShowsTheRateUnlessQuiet)
{
    writeFile(installation_.directory() / "stream", randomBytes(1'000'000, 8));
    const std::string command = keelProgram().string() + " backup -i stream ";
    const ProgramResult shown = run({"script", "-qec", command + "shown", "/dev/null"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_NE(shown.out.find("shown  977 KiB in 0:0"), std::string::npos) << shown.out;
    EXPECT_NE(shown.out.find("iB/s"), std::string::npos) << shown.out;
    EXPECT_EQ(run({"script", "-qec", command + "--quiet hidden", "/dev/null"}).out, "");
}

TEST_F(BackupTest, RemovedPieceIsGoneAndTheOthersStay)
{
    for (const char *name : {"one", "two", "three"})
        backUp(name, name);
    const ProgramResult result = keel({"remove", "one", "nobody", "two", "one", "--yes"});
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("SBT 7502: there is no piece nobody"), std::string::npos)
        << result.err;
    EXPECT_FALSE(isStored("one"));
    EXPECT_FALSE(isStored("two"));
    EXPECT_EQ(restored("three"), "three");
    EXPECT_EQ(keel({"remove", "three", "--yes"}).status, 0);
    backUp("one", "a new one");
    EXPECT_EQ(restored("one"), "a new one");
}

TEST_F(BackupTest, ADamagedPieceIsSetAsideAndHoldsUpNoOther)
{
    namespace fs = std::filesystem;
    backUp("bad", "bad");
    damageFiles(installation_.repository() / "pieces");
    backUp("one", "one");
    backUp("two", "two");
    const ProgramResult refused = keel({"--sbt1", "remove", "bad", "one", "--yes", "--json"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("SBT 7011: "), std::string::npos) << refused.err;
    const auto told = nlohmann::json::parse(refused.out);
    EXPECT_EQ(told["removed"], Words{"one"}) << told;
    EXPECT_EQ(told["remaining"], Words{"bad"});
    const ProgramResult both = keel({"remove", "bad", "two", "--yes"});
    EXPECT_EQ(both.status, 0) << both.err;
    EXPECT_FALSE(isStored("two"));
    EXPECT_FALSE(fs::is_empty(installation_.repository() / "quarantine"));
    backUp("bad", "its name is free");
    damageFiles(installation_.repository() / "pieces");
    backUp("bad", "over a damaged one");
    EXPECT_EQ(restored("bad"), "over a damaged one");
}

TEST_F(BackupTest, CreationTimeIsRightInAnyZoneAndSeason)
{
    for (const char *zone : {"UTC0", "CET-1CEST,M3.5.0,M10.5.0/3", "EST5EDT,M3.2.0,M11.1.0",
                             "AEST-10AEDT,M10.1.0,M4.1.0/3"}) {
        ::setenv("TZ", zone, 1);
        const std::time_t before = std::time(nullptr);
        const std::string name = std::string("from ") + zone;
        backUp(name, "x");
        const ProgramResult info = keel({"info", name, "--json"});
        const auto created = nlohmann::json::parse(info.out)["pieces"][0]["created"];
        std::tm parts = {};
        std::istringstream(created.get<std::string>()) >>
            std::get_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
        EXPECT_GE(::timegm(&parts), before) << zone;
        EXPECT_LE(::timegm(&parts), std::time(nullptr)) << zone;
    }
    ::unsetenv("TZ");
}

TEST_F(BackupTest, AttributesAndTraceReachTheAgent)
{
    const auto agentTrace = installation_.directory() / "agent.trace";
    installation_.configureAgent({"VELO_MGMT_CLASS_2 STANDARD", "VELO_TRACE_FLAGS ORACLE",
                                  "VELO_TRACE_FILE " + agentTrace.string()});
    const auto trace = installation_.directory() / "trace";
    const ProgramResult result =
        keel({"backup", "p", "-i", "-", "--copy", "2", "--database", "PROD", "--type", "archivelog",
              "--trace", trace, "--trace-level", "2", "--block-size", "8K"},
             "content");
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string text = readFile(trace) + readFile(agentTrace);
    for (const char *expected :
         {"sbtbackup(): Enter", "block_size       = 8192", "copy_number      = 2",
          "sbtclose2(): Exit - OK", "type DBNAME, value PROD.", "type FILETYPE, value ARCHLOG."})
        EXPECT_NE(text.find(expected), std::string::npos) << expected;
}

} // namespace keel::test
