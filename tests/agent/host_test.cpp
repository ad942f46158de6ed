// Hosts that nobody would wish for: closed standard streams, limits on the size of files, and
// things that are no files where the agent looks for its own. Each case acts in a process of its
// own, because what goes wrong there ends or holds up the host.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <functional>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "tests/agent/agent_fixture.h"
#include "tests/support/child.h"

namespace fs = std::filesystem;

namespace
{

class HostTest : public ScriptedAgentTest
{
protected:
    HostTest()
    {
        installSqlplus("echo; echo; echo; echo 2048");
        fs::create_directory("pw");
    }
    ~HostTest() override { unsetenv("ORACLE_HOME"); }

    /// How a process ends in which the host does this; 0: well.
    int apart(const std::function<void()> &host)
    {
        std::fflush(nullptr);
        return keel::test::inChild([&] {
            host();
            std::fflush(nullptr); // what failed
            return HasFailure() ? 1 : 0;
        });
    }
    int updatePassword()
    {
        using Update = std::uint16_t(char *, void *);
        char password[] = "secret";
        return reinterpret_cast<Update *>(dlsym(agent.handle, "psveloUpdatePswd"))(password, ctx);
    }
    /// Everything that makes the agent write, one after the other; the outcomes are not judged.
    void writeEverything()
    {
        openChannel(2);
        agent.sbtcommand(nullptr, 0, nullptr);
        backUp("piece", std::string(8192, 'x'));
        std::string data;
        client.objects["/lumoorc//other"] = {.data = std::string(8192, 'x'), .id = {7, 9}};
        restore("other", data);
        updatePassword();
        endChannel();
    }
};

const std::vector<std::string> kEveryFile = {"VELO_TEST_FLAGS TEST_ORACLEDATA",
                                             "VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ALL",
                                             "VELO_NODE mynode", "VELO_PSWDPATH pw"};

std::vector<std::string> wrapping(std::vector<std::string> lines)
{
    lines.push_back("VELO_TRACE_MAX 1");
    return lines;
}

// Every writer of the agent: a new one belongs into this table.
TEST_F(HostTest, NoWriterEndsItAtItsLimit)
{
    const struct {
        const char *writer;
        std::vector<std::string> lines;
        const char *file; // that the writer has come to: it is made, and stays empty
        std::function<void()> act;
    } table[] = {
        {"early error log", {"NOSUCH x"}, "velo.opt", [this] { initialise(); }},
        {"error log",
         {},
         "veloerror.log",
         [this] {
             openChannel();
             agent.sbtcommand(nullptr, 0, nullptr);
         }},
        {"database trace", {}, "rman.trc", [this] { openChannel(2); }},
        {"agent trace", {"VELO_TRACE_FILE agent.trc"}, "agent.trc", [this] { openChannel(); }},
        {"agent trace of a size", wrapping({"VELO_TRACE_FILE agent.trc"}), "agent.trc",
         [this] { openChannel(); }},
        {"copy of what is sent",
         {"VELO_TEST_FLAGS TEST_ORACLEDATA"},
         "piece.SEND",
         [this] {
             openChannel();
             EXPECT_EQ("", backUp("piece", std::string(8192, 'x')));
         }},
        {"copy of what is read",
         {"VELO_TEST_FLAGS TEST_ORACLEDATA"},
         "piece.GET",
         [this] {
             client.objects["/lumoorc//piece"] = {.data = std::string(8192, 'x'), .id = {7, 9}};
             openChannel();
             std::string data;
             EXPECT_EQ("", restore("piece", data));
         }},
        {"script for the database",
         {},
         ".sql",
         [this] {
             openChannel();
             EXPECT_EQ("", backUp("piece", std::string(8192, 'x')));
         }},
        {"password file",
         {"VELO_NODE mynode", "VELO_PSWDPATH pw"},
         "pw",
         [this] {
             client.passwordAccess = HOX_PASSWORDACCESS_PROMPT;
             openChannel();
             EXPECT_EQ(65535, updatePassword());
         }},
    };
    for (const auto &row : table) {
        SCOPED_TRACE(row.writer);
        installation.configureAgent(row.lines);
        fs::remove(row.file == std::string("agent.trc") ? "agent.trc" : "none");
        EXPECT_EQ(0, apart([&] {
                      const rlimit none{0, 0};
                      setrlimit(RLIMIT_FSIZE, &none);
                      row.act();
                  }));
        EXPECT_TRUE(fs::exists(row.file));
    }
}

TEST_F(HostTest, FindsItsClosedStreamsClosed)
{
    for (const auto &lines : {kEveryFile, wrapping(kEveryFile)}) {
        installation.configureAgent(lines);
        client.passwordAccess = HOX_PASSWORDACCESS_PROMPT;
        EXPECT_EQ(0, apart([this] {
                      const auto closed = [] {
                          for (const int stream : {0, 1, 2})
                              if (fcntl(stream, F_GETFD) != -1)
                                  _exit(10 + stream);
                      };
                      for (const int stream : {0, 1, 2})
                          ::close(stream);
                      // A host that prints all the time: it must fail as if nothing were there.
                      std::atomic<bool> over = false, went = false;
                      std::thread printing([&] {
                          while (!over)
                              for (const int stream : {0, 1, 2})
                                  went = went || ::write(stream, "a line of the host\n", 19) > 0;
                      });
                      openChannel(2);
                      closed();
                      EXPECT_EQ(0, updatePassword());
                      closed();
                      bool good = open("piece").empty() && write(std::string(4096, 'x')).empty();
                      closed();
                      good = good && close().empty() && openRestore("piece").empty();
                      closed();
                      std::string block;
                      good = good && read(block).empty() && close().empty();
                      closed();
                      endChannel();
                      over = true;
                      printing.join();
                      _exit(went ? 2 : good ? 0 : 1);
                  }));
        EXPECT_EQ(4096U, contents("piece.SEND").size());
        EXPECT_EQ(4096U, contents("piece.GET").size());
    }
}

TEST_F(HostTest, KeepsNoDescriptorWhenItIsClosedWithoutAnEnd)
{
    installation.configureAgent(kEveryFile);
    EXPECT_EQ(0, apart([this] {
                  const auto opened = [] {
                      return std::distance(fs::directory_iterator("/proc/self/fd"), {});
                  };
                  const auto before = opened();
                  openChannel(2);
                  EXPECT_LT(before, opened());
                  dlclose(agent.handle);
                  EXPECT_EQ(before, opened());
              }));
}

#define NAME(call) #call,
constexpr const char *kEveryCall[] = {
    AGENT_CALLS(NAME) "sbtopen", "sbtwrite", "sbtread", "sbtclose", "sbtinfo", "sbtremove",
    "psveloUpdatePswd"};
#undef NAME

// The cancellation is there before each call; it takes effect after the last one.
TEST_F(HostTest, KeepsAThreadThatIsCancelledUntilTheCallIsOver)
{
    installation.configureAgent({"VELO_TRACE_FILE agent.trc", "VELO_TRACE_FLAGS ORACLE"});
    EXPECT_EQ(0, apart([this] {
                  const std::string stream(8192, 'c');
                  std::string outcome = "none", back;
                  std::thread([&] {
                      pthread_cancel(pthread_self());
                      openChannel();
                      outcome = backUp("cancelled", stream);
                      outcome += restore("cancelled", back);
                      info({"cancelled"});
                      outcome += remove({"cancelled"});
                      updatePassword();
                      endChannel();
                      for (const char *call : kEveryCall) {
                          using Nulls = long(void *, void *, void *, void *, void *, long, long);
                          reinterpret_cast<Nulls *>(dlsym(agent.handle, call))(
                              nullptr, nullptr, nullptr, nullptr, nullptr, 0, 0);
                      }
                      pthread_testcancel();
                      outcome = "it went on";
                  }).join();
                  EXPECT_EQ("", outcome) << errorLog();
                  EXPECT_TRUE(stream == back);
              }));
}

// Nobody reads from any of them, so whoever waited for a reader would wait for ever.
TEST_F(HostTest, IsNotHeldUpByPipesInThePlaceOfFiles)
{
    for (const char *name : {"rman.trc", "agent.trc", "veloerror.log", "piece.SEND", "other.GET",
                             ".sql", "pw/VELO.mynode", "fifo.opt"})
        ASSERT_EQ(0, mkfifo(name, 0666)) << name;
    for (const auto &lines : {kEveryFile, wrapping(kEveryFile)}) {
        installation.configureAgent(lines);
        client.passwordAccess = HOX_PASSWORDACCESS_PROMPT;
        EXPECT_EQ(0, apart([this] { writeEverything(); }));
    }
    keel::test::writeFile("endless.opt", "");
    fs::resize_file("endless.opt", std::uintmax_t{1} << 40);
    for (const char *options : {"fifo.opt", "endless.opt", "/proc/self/pagemap"})
        EXPECT_EQ(0, apart([&] {
                      setenv("VELO_OPTFILE", options, 1);
                      EXPECT_EQ("7011 2534", initialise());
                  }))
            << options;
    if (geteuid() != 0)
        return; // the log that is written before any option is known then lies elsewhere
    fs::permissions(installation.directory(), fs::perms::all);
    setenv("VELO_OPTFILE", "/missing.opt", 1);
    EXPECT_EQ(0, apart([this] {
                  EXPECT_EQ(0, setuid(65534));
                  EXPECT_EQ("7011 2534", initialise());
              }));
}

} // namespace
