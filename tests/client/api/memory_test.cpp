// A host that runs out of memory in the middle of an operation: whichever allocation fails, the
// operation says so or goes on without, the process lives, and what was acknowledged is stored.
#include "tests/client/api/client_fixture.h"
#include "tests/support/child.h"
#include "tests/support/host_locale.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <link.h>
#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

// The library takes its memory from the host, and the functions of this host can run out of it, for
// the library alone.
extern "C" void *__libc_malloc(std::size_t size);
extern "C" void *__libc_calloc(std::size_t count, std::size_t size);
extern "C" void *__libc_realloc(void *block, std::size_t size);

static const char *library = nullptr, *libraryEnd = nullptr; // where it lies in memory
static std::atomic<bool> scarce = false;
static std::atomic<long> left = 0;     // allocations that succeed while memory is scarce
static std::atomic<bool> once = false; // and all others behind the first that fails

// The library's allocation of that number stops its thread, for good in a child that is forked
// then.
static std::atomic<long> untilStop = 0;
static std::atomic<bool> stopped = false;

static bool isGranted(const void *caller)
{
    const bool ours = library <= caller && caller < libraryEnd;
    if (ours && untilStop > 0 && --untilStop == 0)
        for (stopped = true; stopped;)
            (void)sched_yield();
    if (!ours || !scarce)
        return true;
    const long before = left.fetch_sub(1);
    return before > 0 || (once && before < 0);
}

extern "C" void *malloc(std::size_t size)
{
    return isGranted(__builtin_return_address(0)) ? __libc_malloc(size) : nullptr;
}

extern "C" void *calloc(std::size_t count, std::size_t size)
{
    return isGranted(__builtin_return_address(0)) ? __libc_calloc(count, size) : nullptr;
}

extern "C" void *realloc(void *block, std::size_t size)
{
    return isGranted(__builtin_return_address(0)) ? __libc_realloc(block, size) : nullptr;
}

static std::atomic<bool> refusesThreads = false;

extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                              void *(*body)(void *), void *argument)
{
    static const auto next =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return refusesThreads ? EAGAIN : next(thread, attributes, body, argument);
}

// What the host does when it forks, before anything of the library's.
static void (*whileForking)() = nullptr;
static const int watchesForks = pthread_atfork(
    [] {
        if (whileForking != nullptr)
            whileForking();
    },
    nullptr, nullptr);

namespace keel::test
{

namespace
{

class MemoryTest : public ClientTest
{
protected:
    void SetUp() override
    {
        ClientTest::SetUp();
        dl_iterate_phdr(
            [](dl_phdr_info *object, std::size_t, void *) {
                if (std::string(object->dlpi_name) != clientLibrary())
                    return 0;
                library = reinterpret_cast<const char *>(object->dlpi_addr);
                for (int i = 0; i < object->dlpi_phnum; ++i)
                    libraryEnd = std::max(libraryEnd, library + object->dlpi_phdr[i].p_vaddr +
                                                          object->dlpi_phdr[i].p_memsz);
                return 1;
            },
            nullptr);
        ASSERT_NE(library, libraryEnd);
    }

    struct Step {
        const char *name;
        std::function<int()> call;
    };

    /// The operations of a session's life on `piece`, in order.
    std::vector<Step> lifeOn(const std::string &piece)
    {
        name_ = nameOf(piece);
        attributes_ = attributes();
        stream_ = randomBytes(300'000, 1);
        event_ = event(HOX_LOG_BOTH, HOX_SEVERITY_ERROR, "an event");
        start_.stVersion = HOX_INITEX_IN_VERSION;
        all_ = everything();
        handle_ = 0;
        isCommitted_ = false;
        const auto committed = [this](bool now) {
            std::uint16_t reason = 0;
            const int code = api_.hoxEndTxn(handle_, HOX_VOTE_COMMIT, &reason);
            isCommitted_ = code == HOX_RC_OK ? now : isCommitted_;
            return code;
        };
        return {
            {"InitEx", [this] { return api_.hoxInitEx(&handle_, &start_, &started_); }},
            {"LogEventEx", [this] { return api_.hoxLogEventEx(handle_, &event_, nullptr); }},
            {"BeginTxn", [this] { return api_.hoxBeginTxn(handle_); }},
            {"SendObj",
             [this] {
                 return api_.hoxSendObj(handle_, HOX_SEND_BACKUP, nullptr, &name_, &attributes_,
                                        nullptr);
             }},
            {"SendData",
             [this] {
                 block_ = blockOf(stream_);
                 return api_.hoxSendData(handle_, &block_);
             }},
            {"EndSendObj", [this] { return api_.hoxEndSendObj(handle_); }},
            {"EndTxn", [=] { return committed(true); }},
            {"BeginQuery",
             [this] {
                 asked_ = {HOX_QRY_BACKUP_VERSION, &name_, nullptr, HOX_STATE_ACTIVE};
                 return api_.hoxBeginQuery(handle_, HOX_QUERY_BACKUP, &asked_);
             }},
            {"GetNextQObj", [this] { return next(); }},
            {"EndQuery", [this] { return api_.hoxEndQuery(handle_); }},
            {"BeginGetData",
             [this] {
                 list_ = {HOX_GETLIST_VERSION, 1, &found_.objId};
                 return api_.hoxBeginGetData(handle_, 1, HOX_GET_BACKUP, &list_);
             }},
            {"GetObj", [this] { return api_.hoxGetObj(handle_, &found_.objId, nullptr); }},
            {"GetData", [this] { return api_.hoxGetData(handle_, &block_); }},
            {"EndGetObj", [this] { return api_.hoxEndGetObj(handle_); }},
            {"EndGetData", [this] { return api_.hoxEndGetData(handle_); }},
            {"BeginQuery, objects",
             [this] { return api_.hoxBeginQuery(handle_, HOX_QUERY_OBJECTS, &all_); }},
            {"GetNextQObj, objects", [this] { return next(); }},
            {"EndQuery, objects", [this] { return api_.hoxEndQuery(handle_); }},
            {"UpdateObj",
             [this] {
                 return api_.hoxUpdateObj(handle_, HOX_SEND_BACKUP, &name_, &attributes_,
                                          HOX_UPDOBJ_OWNER);
             }},
            {"BeginTxn, deleting", [this] { return api_.hoxBeginTxn(handle_); }},
            {"DeleteObj",
             [this] {
                 hoxDelInfo info{};
                 info.backName = {HOX_DELBACK_VERSION, &name_};
                 return api_.hoxDeleteObj(handle_, HOX_DELETE_BACKUP_NAME, &info);
             }},
            {"EndTxn, deleting", [=] { return committed(false); }},
        };
    }

    int next()
    {
        block_ = {HOX_DATABLK_VERSION, sizeof found_, 0, reinterpret_cast<char *>(&found_)};
        const int code = api_.hoxGetNextQObj(handle_, &block_);
        block_ = blockOf(stream_);
        return code;
    }

    static int whileScarce(const std::function<int()> &call)
    {
        scarce = true;
        const int code = call();
        scarce = false;
        return code;
    }

    hoxObjName name_{};
    ObjAttr attributes_{};
    std::string stream_;
    hoxLogEventExIn_t event_{};
    hoxInitExIn_t start_{};
    hoxInitExOut_t started_{};
    qryObjectsData all_{};
    qryBackupData asked_{};
    qryRespBackupData found_{};
    hoxGetList list_{};
    DataBlk block_{};
    hoxHandle_t handle_ = 0;
    bool isCommitted_ = false; // the piece is stored, as the operations said
};

TEST_F(MemoryTest, WhicheverAllocationFailsTheHostLivesAndNothingAcknowledgedIsLost)
{
    (void)logOn(); // registers the filespace, and makes what the process makes once
    left = 0;
    for (long granted = 1; left <= 0; granted += 1 + granted / 16) { // until none failed
        const std::string piece = "p" + std::to_string(granted);
        std::string failed;
        left = granted;
        for (const Step &step : lifeOn(piece)) {
            const int code = whileScarce(step.call);
            if (code != HOX_RC_OK && code != HOX_RC_MORE_DATA && code != HOX_RC_FINISHED) {
                failed = step.name;
                break;
            }
        }
        SCOPED_TRACE(failed + ", " + std::to_string(granted));
        EXPECT_EQ(handle_ == 0, failed == "InitEx");
        if (handle_ != 0) {
            EXPECT_EQ(whileScarce([&] { return api_.hoxTerminate(handle_); }), HOX_RC_OK);
        }
        const hoxHandle_t again = logOn();
        if (isCommitted_) {
            EXPECT_EQ(restore(again, piece, 65536), stream_);
        }
        EXPECT_EQ(api_.hoxTerminate(again), HOX_RC_OK);
        ASSERT_FALSE(HasFailure());
    }
}

TEST_F(MemoryTest, AStepThatFindsNoneKeepsItsTransactionFromBeingCommitted)
{
    const hoxHandle_t handle = logOn();
    const hoxObjName name = nameOf("p");
    const ObjAttr attr = attributes();
    ASSERT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
    left = 0;
    EXPECT_EQ(whileScarce([&] {
                  return api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr);
              }),
              HOX_RC_NO_MEMORY);
    EXPECT_EQ(endTransaction(handle, HOX_VOTE_COMMIT), HOX_RC_NO_MEMORY);
    EXPECT_EQ(backUp(handle, "p", "content"), HOX_RC_OK);
}

// Memory is told as such only when that is what there is none of, at each step of the transaction.
TEST_F(MemoryTest, AThreadThatTheSystemRefusesIsNamedInTheLanguageOfTheHost)
{
    const hoxHandle_t handle = logOn();
    const hoxObjName name = nameOf("p");
    const ObjAttr attr = attributes();
    ASSERT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
    const auto sendObject = [&] {
        return api_.hoxSendObj(handle, HOX_SEND_BACKUP, nullptr, &name, &attr, nullptr);
    };
    refusesThreads = true;
    EXPECT_EQ(sendObject(), HOX_RC_NO_MEMORY);
    refusesThreads = false;
    EXPECT_EQ(text(HOX_RC_NO_MEMORY).find("RBS0103E The system starts no further thread"), 0U);
    EXPECT_EQ(sendObject(), HOX_RC_WILL_ABORT);
    EXPECT_EQ(endTransaction(handle, HOX_VOTE_COMMIT), HOX_RC_NO_MEMORY);
    {
        const HostLocale host("de_DE", "UTF-8");
        EXPECT_EQ(text(HOX_RC_NO_MEMORY).find("RBS0103E Das System startet"), 0U);
    }
    ASSERT_EQ(api_.hoxBeginTxn(handle), HOX_RC_OK);
    left = 0;
    EXPECT_EQ(whileScarce(sendObject), HOX_RC_NO_MEMORY);
    EXPECT_EQ(text(HOX_RC_NO_MEMORY).find("RBS0102E There is not enough memory"), 0U);
    EXPECT_EQ(endTransaction(handle, HOX_VOTE_ABORT), HOX_RC_ABORTED);
    EXPECT_EQ(backUp(handle, "p", "content"), HOX_RC_OK);
}

TEST_F(MemoryTest, ACommitThatFailsForWantOfMemoryPublishesNothing)
{
    const hoxHandle_t handle = logOn();
    once = true;
    left = 0;
    for (long granted = 1; left <= 0; ++granted) {
        const std::string piece = "p" + std::to_string(granted);
        ASSERT_EQ(send(handle, piece, "content"), HOX_RC_OK);
        ASSERT_EQ(api_.hoxEndSendObj(handle), HOX_RC_OK);
        left = granted;
        std::uint16_t reason = 0;
        const int code =
            whileScarce([&] { return api_.hoxEndTxn(handle, HOX_VOTE_COMMIT, &reason); });
        if (code == HOX_RC_NO_MEMORY) {
            EXPECT_EQ(api_.hoxEndTxn(handle, HOX_VOTE_ABORT, &reason), HOX_RC_CHECK_REASON);
        }
        EXPECT_EQ(restore(handle, piece).has_value(), code == HOX_RC_OK) << granted;
    }
    (void)logOn(); // removes the files that could not be for want of memory
}

// The first session of a process makes what all later ones use: one that fails must not spoil it.
TEST_F(MemoryTest, AFirstLogonThatFailsForWantOfMemoryCanBeRepeated)
{
    once = true;
    bool failed = true;
    for (long granted = 0; failed; granted += 1 + granted / 16) {
        const pid_t child = fork();
        if (child == 0) {
            hoxInitExIn_t start{};
            start.stVersion = HOX_INITEX_IN_VERSION;
            hoxInitExOut_t started{};
            hoxHandle_t handle = 0;
            left = granted;
            const int code = whileScarce([&] { return api_.hoxInitEx(&handle, &start, &started); });
            const bool did = left < 0;
            const int again = api_.hoxInitEx(&handle, &start, &started);
            const bool good = again == HOX_RC_OK && (code == HOX_RC_OK || code == HOX_RC_NO_MEMORY);
            if (!good)
                std::fprintf(stderr, "%s, then %s\n", text(code).c_str(), text(again).c_str());
            _exit(!good ? 2 : did ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < 2) << granted;
        failed = WEXITSTATUS(status) == 1;
    }
}

/// The code of a process's first logon.
int firstLogon(const ClientLibrary &api)
{
    hoxInitExIn_t start{};
    start.stVersion = HOX_INITEX_IN_VERSION;
    hoxInitExOut_t started{};
    hoxHandle_t handle = 0;
    return api.hoxInitEx(&handle, &start, &started);
}

TEST_F(MemoryTest, AFirstLogonNeedsNoKeyForTheStorageOfThreads)
{
    for (const std::size_t free : {0U, 1U, 2U, 3U, 4U})
        EXPECT_EQ(0, inChild([&] {
                      std::vector<pthread_key_t> keys;
                      for (pthread_key_t key = 0; pthread_key_create(&key, nullptr) == 0;)
                          keys.push_back(key);
                      for (std::size_t i = 0; i < free; ++i)
                          pthread_key_delete(keys[i]);
                      return firstLogon(api_);
                  }))
            << free;
}

// The host's handler takes its time, and another thread has got that far in its first logon.
TEST_F(MemoryTest, AChildForkedDuringAFirstLogonCanLogOn)
{
    static const ClientLibrary *api = nullptr;
    static long at = 0;
    ASSERT_EQ(watchesForks, 0);
    api = &api_;
    for (at = 32; at < 8192; at *= 2)
        EXPECT_EQ(0, inChild([] {
                      whileForking = [] {
                          whileForking = nullptr;
                          std::thread([] {
                              untilStop = at;
                              (void)firstLogon(*api);
                              stopped = true; // it took less
                          }).detach();
                          while (!stopped)
                              (void)sched_yield();
                      };
                      return inChild([] {
                          alarm(60); // or a wait for the parent's thread would last for long
                          return firstLogon(*api);
                      });
                  }))
            << at;
}

} // namespace

} // namespace keel::test
