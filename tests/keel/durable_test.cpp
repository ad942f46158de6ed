// What a program says is done survives the loss of power, whatever the system's calls under it come
// to: each of them fails once, and each write is cut once.
#include "tests/keel/keel_fixture.h"

#include <fstream>
#include <functional>
#include <map>
#include <set>
#include <sstream>

namespace keel::test
{

namespace fs = std::filesystem;

/// What of the names that a program gave the loss of power could take, by the calls that it made.
class Survival
{
public:
    void note(const std::string &what, bool done, const std::string &path, const std::string &old)
    {
        if (what == "write")
            unsynced_.insert(path);
        else if (what == "sync" && done && !spoilt_.contains(path))
            unsynced_.erase(path);
        else if (what == "sync" && !done)
            spoilt_.insert(path); // it may be lost, although the next sync goes well
        else if (what == "syncdir" && done)
            std::erase_if(loose_, [&](const auto &one) {
                return one.second == path && firm_.insert(one.first).second;
            });
        else if ((what == "name" || what == "mkdir") && done)
            give(path, unsynced_.contains(old));
    }
    std::string lost() const
    {
        std::string text;
        for (const std::string &path : hollow_)
            text += "the content of " + path + "; ";
        for (const auto &[path, directory] : loose_)
            text += "the name " + path + "; ";
        return text;
    }
    std::vector<std::string> calls; ///< those that did something: "sync 2"

private:
    void give(const std::string &path, bool hollow)
    {
        hollow_.erase(path);
        unsynced_.erase(path);
        if (hollow)
            unsynced_.insert(path);
        if (!isKept(path))
            return;
        if (!firm_.contains(path)) // else what had the name in this run survives
            loose_[path] = path.substr(0, path.rfind('/'));
        if (hollow)
            hollow_.insert(path);
    }
    static bool isKept(const std::string &path)
    {
        for (const char *part : {"/repository/tmp", "/repository/locks", "/repository/reserve"})
            if (path.find(part) != std::string::npos)
                return false;
        return true;
    }
    std::set<std::string> unsynced_, spoilt_, hollow_, firm_;
    std::map<std::string, std::string> loose_; // names that may go, and their directories
};

class DurableTest : public KeelTest, public testing::WithParamInterface<const char *>
{
protected:
    struct Run {
        ProgramResult result;
        Survival survival;
    };
    Run watched(const Words &words, const std::string &input, const std::string &fault) const
    {
        const fs::path calls = fs::canonical(installation_.directory()) / "calls";
        writeFile(calls, "");
        ProgramOptions options;
        options.input = input;
        options.environment = {{"LD_PRELOAD", KEEL_TEST_WATCHED_CALLS},
                               {"KEEL_TEST_BELOW", calls.parent_path()},
                               {"KEEL_TEST_CALLS", calls},
                               {"KEEL_TEST_FAIL", fault}};
        Run done{run(words, options), {}};
        std::ifstream lines(calls);
        for (std::string line; std::getline(lines, line);) {
            std::istringstream parts(line);
            std::string call, outcome, path, old;
            for (std::string *const word : {&call, &outcome, &path, &old})
                std::getline(parts, *word, '\t');
            done.survival.note(call.substr(0, call.find(' ')), outcome == "done", path, old);
            if (outcome == "done")
                done.survival.calls.push_back(call);
        }
        return done;
    }

    /// An option file of a repository that is not there yet.
    std::string optionsFor(const std::string &name) const
    {
        const fs::path place = installation_.directory() / name;
        fs::create_directories(place);
        writeFile(place / "arca.opt", "REPOSITORY file://" + (place / "repository").string() +
                                          "\nCACHE no\nNODENAME " + name + "\n");
        return place / "arca.opt";
    }
    /// Tells the agent to keep its password in a directory that is not there yet.
    void keepPasswordsIn(const std::string &name) const
    {
        const fs::path place = fs::path(optionsFor(name + ".d"));
        std::ofstream(place, std::ios::app) << "PASSWORDACCESS prompt\n";
        writeFile(installation_.agentOptions(),
                  "HOXI_ORC_CONFIG " + place.string() + "\nVELO_NODE node\nVELO_PSWDPATH " +
                      (installation_.directory() / name).string() + "\n");
    }
};

TEST_P(DurableTest, WhateverCallFailsSuccessMeansThatItSurvives)
{
    const std::string stream = randomBytes(100'000, 1), directory = installation_.directory();
    const std::string options = installation_.clientOptions();
    std::ofstream(options, std::ios::app) << "CACHE no\n"; // nothing there need survive
    backUp("stored", stream);
    const auto keelWith = [](Words words) {
        words.insert(words.begin(), keelProgram());
        return words;
    };
    const auto arcaWith = [](Words words, const std::string &optionFile) {
        words.insert(words.begin(), arcaProgram());
        words.insert(words.end(), {"--optfile", optionFile});
        return words;
    };
    const auto statusOf = [](const Words &words, const std::string &input) {
        ProgramOptions given;
        given.input = input;
        return run(words, given).status;
    };
    const auto fileOf = [&](const std::string &n) { return directory + "/" + n; };
    const std::string phrase = "correct horse battery\n";
    using Name = const std::string &;
    const struct {
        const char *name;
        std::function<Words(Name)> words;
        std::string input;
        std::function<bool(Name)> holds; ///< what success says
        std::function<bool(Name)> isNot; ///< what else may be so after a failure
    } works[] = {
        {"backup",
         [&](Name n) {
             return keelWith({"backup", n, "-i", "-"});
         },
         stream, [&](Name n) { return restored(n) == stream; },
         [&](Name n) { return !isStored(n); }},
        {"restore",
         [&](Name n) {
             return keelWith({"restore", "stored", "-o", fileOf(n)});
         },
         "", [&](Name n) { return readFile(fileOf(n)) == stream; },
         [&](Name n) { return !fs::exists(fileOf(n)); }},
        {"export",
         [&](Name n) {
             return arcaWith({"key", "export", "--stdin", "-o", fileOf(n)}, options);
         },
         phrase,
         [&](Name n) {
             return statusOf(arcaWith({"key", "import", fileOf(n), "--stdin"}, options), phrase) ==
                    0;
         },
         [&](Name n) { return !fs::exists(fileOf(n)); }},
        {"init", [&](Name n) { return arcaWith({"init"}, optionsFor(n)); }, "",
         [&](Name n) { return statusOf(arcaWith({"stats"}, fileOf(n) + "/arca.opt"), "") == 0; },
         [&](Name n) { // and is finished by the next one
             const std::string own = fileOf(n) + "/arca.opt";
             return statusOf(arcaWith({"init"}, own), "") == 0 &&
                    statusOf(arcaWith({"stats"}, own), "") == 0;
         }},
        {"passwd",
         [&](Name n) {
             keepPasswordsIn(n);
             return keelWith({"passwd", "--stdin", "--quiet"});
         },
         "password", [&](Name n) { return readFile(fileOf(n) + "/VELO.node").size() == 39 + 9; },
         [&](Name n) { return !fs::exists(fileOf(n) + "/VELO.node"); }},
    };
    for (const auto &work : works) {
        if (work.name != std::string(GetParam()))
            continue;
        const auto tried = [&](const std::string &name, const std::string &fault) {
            const Run done = watched(work.words(name), work.input, fault);
            const bool went = done.result.status == 0;
            SCOPED_TRACE(name + ": " + done.result.err);
            EXPECT_EQ(done.result.err.empty(), went);
            EXPECT_TRUE(work.holds(name) || (!went && work.isNot(name)));
            EXPECT_TRUE(went || (!fault.empty() && !fault.ends_with("short")));
            EXPECT_EQ(went ? done.survival.lost() : "", "");
            return done.survival.calls;
        };
        const auto calls = tried(work.name, "");
        EXPECT_GT(calls.size(), 3U) << work.name;
        for (const std::string &call : calls) {
            const std::string name =
                work.name + call.substr(0, call.find(' ')) + call.substr(call.find(' ') + 1);
            (void)tried(name, call);
            if (call.starts_with("write"))
                (void)tried(name + "cut", call + " short");
        }
    }
    EXPECT_EQ(statusOf(arcaWith({"verify", "--read-data"}, options), ""), 0);
}

INSTANTIATE_TEST_SUITE_P(Of, DurableTest,
                         testing::Values("backup", "restore", "export", "init", "passwd"),
                         [](const auto &tested) { return std::string(tested.param); });

} // namespace keel::test
