// A channel over the built agent, as the database's backup tool opens one: the library is loaded
// by its path and driven through its exported calls alone.
//
// What a call came to is told as one text: empty when it succeeded, else the call and its SBT code
// ("sbtbackup 7503").
#ifndef KEEL_TESTS_AGENT_AGENT_FIXTURE_H
#define KEEL_TESTS_AGENT_AGENT_FIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agents/oracle/common/sbt.h"
#include "tests/scripted/scripted.h"
#include "tests/support/installation.h"

/// libobk.so and its entry points, while this lives.
struct AgentLibrary {
    explicit AgentLibrary(const std::string &path);
    ~AgentLibrary();
    AgentLibrary(const AgentLibrary &) = delete;
    AgentLibrary &operator=(const AgentLibrary &) = delete;

    void *handle;
#define AGENT_CALLS(X)                                                                             \
    X(sbtinit)                                                                                     \
    X(sbtinit2)                                                                                    \
    X(sbtend)                                                                                      \
    X(sbtbackup)                                                                                   \
    X(sbtwrite2)                                                                                   \
    X(sbtclose2)                                                                                   \
    X(sbtrestore)                                                                                  \
    X(sbtread2) X(sbtinfo2) X(sbtremove2) X(sbtcommand) X(sbterror) X(veloQueryVersion)
#define AGENT_CALL(name) decltype(&::name) name;
    AGENT_CALLS(AGENT_CALL)
};

struct BackupRequest {
    unsigned long blockSize = 4096;
    unsigned long maxSize = 0;
    unsigned long copyNumber = 1;
    const sbtPair *objects = nullptr;
};

class AgentTest : public ::testing::Test
{
protected:
    explicit AgentTest(const keel::test::InstallationSettings &settings);
    ~AgentTest() override;

    /// sbtinit; tells "" or the two codes of the error record ("7011 2534").
    std::string initialise();
    /// sbtinit and sbtinit2. With a trace level the database trace goes to "rman.trc".
    void openChannel(int traceLevel = -1);
    void endChannel();

    std::string open(const std::string &piece, const BackupRequest &request = {});
    std::string write(std::string block);
    std::string close(unsigned long flags = 0);
    /// The three in order; data is a whole number of blocks. Stops at the first failure.
    std::string backUp(const std::string &piece, const std::string &data,
                       const BackupRequest &request = {});
    std::string openRestore(const std::string &piece, unsigned long blockSize = 4096);
    std::string read(std::string &block);
    /// Restores into data, whose last block comes whole however short the piece's end is.
    std::string restore(const std::string &piece, std::string &data,
                        unsigned long blockSize = 4096);
    /// The answer in words: "1=name 2=1 ... 9999", or the failure.
    std::string info(std::vector<std::string> pieces);
    std::string remove(std::vector<std::string> pieces);

    /// The code and the text that sbterror hands out.
    unsigned long errorCode();
    std::string errorText();

    /// Makes ORACLE_HOME lead to a sqlplus that does this.
    void installSqlplus(const std::string &script) const;

    std::string path(const std::string &name) const { return installation.directory() / name; }
    std::string contents(const std::string &name) const;
    std::string errorLog() const { return contents("veloerror.log"); }
    std::string trace() const { return contents("rman.trc"); }

    keel::test::Installation installation;
    AgentLibrary agent;
    sbtPair *initOut = nullptr;
    std::string memory; // the context, exactly as large as the agent asked for
    void *ctx = nullptr;
    unsigned long blockSize = 0;

private:
    std::string outcome(const char *call, int rc);
    std::string traceFile_;
};

/// Over the storage client and a repository, both as they are.
class RealAgentTest : public AgentTest
{
protected:
    RealAgentTest();
};

/// Over the scripted client.
class ScriptedAgentTest : public AgentTest
{
protected:
    ScriptedAgentTest();
    ScriptedClient &client;
};

/// How many times part stands in text.
int occurrences(const std::string &text, const std::string &part);

/// The parts of `parts`, which bars keep apart ("Calling|failed"), stand in text in that order.
bool inOrder(const std::string &text, const std::string &parts);

#endif
