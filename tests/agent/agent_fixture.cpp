// See agent_fixture.h.

#include "tests/agent/agent_fixture.h"

#include <cstdlib>
#include <dlfcn.h>
#include <stdexcept>

static void *load(const std::string &path)
{
    void *handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle)
        throw std::runtime_error(dlerror());
    return handle;
}

AgentLibrary::AgentLibrary(const std::string &path) : handle(load(path))
{
#define FIND(name)                                                                                 \
    name = reinterpret_cast<decltype(name)>(dlsym(handle, #name));                                 \
    if (!name)                                                                                     \
        throw std::runtime_error(dlerror());
    AGENT_CALLS(FIND)
}

AgentLibrary::~AgentLibrary()
{
    dlclose(handle);
}

AgentTest::AgentTest(const keel::test::InstallationSettings &settings)
    : installation(settings), agent(keel::test::agentLibrary())
{
    for (const char *name : {"ORACLE_HOME", "KEEL_ORACLE", "HOXO_NODE"})
        unsetenv(name);
}

AgentTest::~AgentTest()
{
    endChannel();
}

std::string AgentTest::initialise()
{
    const sbtPair items[] = {{SBTINIT_TRACEFILE, traceFile_.empty() ? nullptr : traceFile_.data()},
                             {SBTINIT_END, nullptr}};
    sbtInitError error{1, 1};
    const int rc = agent.sbtinit(&error, items, &initOut);
    if (rc == 0)
        return error.code == 0 && error.secondary == 0 ? "" : "0, but an error record";
    return std::to_string(error.code) + " " + std::to_string(error.secondary);
}

void AgentTest::openChannel(int traceLevel)
{
    traceFile_ = traceLevel < 0 ? "" : path("rman.trc");
    ASSERT_EQ("", initialise()) << errorLog();
    const auto *size = static_cast<const std::uint64_t *>(initOut[4].value);
    ASSERT_EQ(SBTINIT_CTXSIZE, initOut[4].code);
    memory.assign(*size, '\xaa'); // the backup tool promises room, not cleanliness
    std::uint64_t level = traceLevel < 0 ? 0 : static_cast<std::uint64_t>(traceLevel);
    std::uint64_t version = 0x0203;
    const sbtPair items[] = {{SBTINIT2_TRACELEVEL, &level},
                             {SBTINIT2_CLIENTAPI, &version},
                             {SBTINIT2_NOTIFY, nullptr},
                             {SBTINIT2_END, nullptr}};
    ASSERT_EQ(0, agent.sbtinit2(memory.data(), 0, items)) << errorLog();
    ctx = memory.data();
}

void AgentTest::endChannel()
{
    if (ctx) {
        EXPECT_EQ(0, agent.sbtend(ctx, 0));
        ctx = nullptr;
    }
}

std::string AgentTest::outcome(const char *call, int rc)
{
    return rc == 0 ? "" : std::string(call) + " " + std::to_string(errorCode());
}

std::string AgentTest::open(const std::string &piece, const BackupRequest &request)
{
    blockSize = request.blockSize;
    return outcome("sbtbackup",
                   agent.sbtbackup(ctx, 0, piece.c_str(), request.objects, request.blockSize,
                                   request.maxSize, request.copyNumber, 0));
}

std::string AgentTest::write(std::string block)
{
    return outcome("sbtwrite2", agent.sbtwrite2(ctx, 0, block.data()));
}

std::string AgentTest::close(unsigned long flags)
{
    return outcome("sbtclose2", agent.sbtclose2(ctx, flags));
}

std::string AgentTest::backUp(const std::string &piece, const std::string &data,
                              const BackupRequest &request)
{
    std::string failure = open(piece, request);
    for (std::size_t done = 0; failure.empty() && done < data.size(); done += request.blockSize)
        failure = write(data.substr(done, request.blockSize));
    return failure.empty() ? close() : failure;
}

std::string AgentTest::openRestore(const std::string &piece, unsigned long size)
{
    blockSize = size;
    return outcome("sbtrestore", agent.sbtrestore(ctx, 0, piece.c_str(), size));
}

std::string AgentTest::read(std::string &block)
{
    block.assign(blockSize, '\0');
    return outcome("sbtread2", agent.sbtread2(ctx, 0, block.data()));
}

std::string AgentTest::restore(const std::string &piece, std::string &data, unsigned long size)
{
    data.clear();
    std::string failure = openRestore(piece, size);
    std::string block;
    while (failure.empty()) {
        failure = read(block);
        if (failure.empty())
            data += block;
    }
    return failure == "sbtread2 7504" ? close() : failure;
}

static std::vector<char *> nullTerminated(std::vector<std::string> &pieces)
{
    std::vector<char *> list;
    for (std::string &piece : pieces)
        list.push_back(piece.data());
    list.push_back(nullptr);
    return list;
}

static std::string itemText(const sbtPair &item)
{
    const std::string code = std::to_string(item.code);
    switch (item.code) {
    case SBTBFINFO_NAME:
    case SBTBFINFO_LABEL:
    case SBTBFINFO_COMMENT:
        return code + "=" + static_cast<const char *>(item.value);
    case SBTBFINFO_NOTFOUND:
    case SBTBFINFO_END:
        return item.value ? code + " with a value" : code;
    default:
        return code + "=" + std::to_string(*static_cast<const std::uint64_t *>(item.value));
    }
}

std::string AgentTest::info(std::vector<std::string> pieces)
{
    std::vector<char *> list = nullTerminated(pieces);
    sbtPair *items = nullptr;
    if (agent.sbtinfo2(ctx, 0, list.data(), &items) != 0)
        return outcome("sbtinfo2", -1);
    std::string answer = itemText(*items);
    for (; items->code != SBTBFINFO_END; ++items)
        answer += " " + itemText(items[1]);
    return answer;
}

std::string AgentTest::remove(std::vector<std::string> pieces)
{
    std::vector<char *> list = nullTerminated(pieces);
    return outcome("sbtremove2", agent.sbtremove2(ctx, 0, list.data()));
}

unsigned long AgentTest::errorCode()
{
    unsigned long code = 0;
    void *text = nullptr, *utf8 = &code;
    EXPECT_EQ(0, agent.sbterror(ctx, 0, &code, &text, &utf8));
    EXPECT_EQ(nullptr, utf8);
    return code;
}

std::string AgentTest::errorText()
{
    unsigned long code = 0;
    void *text = nullptr, *utf8 = nullptr;
    EXPECT_EQ(0, agent.sbterror(ctx, 0, &code, &text, &utf8));
    return text ? static_cast<const char *>(text) : "(null)";
}

void AgentTest::installSqlplus(const std::string &script) const
{
    const std::filesystem::path program = path("bin/sqlplus");
    std::filesystem::create_directories(program.parent_path());
    keel::test::writeFile(program, "#!/bin/sh\n" + script + "\n");
    std::filesystem::permissions(program, std::filesystem::perms::all);
    setenv("ORACLE_HOME", installation.directory().c_str(), 1);
}

std::string AgentTest::contents(const std::string &name) const
{
    return keel::test::readFile(path(name));
}

ScriptedAgentTest::ScriptedAgentTest()
    : AgentTest({"scriptednode", {}, {}, false}),
      client(*reinterpret_cast<decltype(&scriptedClient)>(
          dlsym(load(KEEL_SCRIPTED_CLIENT), "scriptedClient"))())
{
    client = ScriptedClient();
}

RealAgentTest::RealAgentTest() : AgentTest({})
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // A sanitizer opens libraries in the agent's place, and the agent's own search path is lost.
    load(keel::test::clientLibrary());
#endif
}

int occurrences(const std::string &text, const std::string &part)
{
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

bool inOrder(const std::string &text, const std::string &parts)
{
    std::size_t at = 0;
    for (std::size_t from = 0, bar = 0; bar != std::string::npos; from = bar + 1) {
        bar = parts.find('|', from);
        const std::string part = parts.substr(from, bar == std::string::npos ? bar : bar - from);
        at = text.find(part, at);
        if (at == std::string::npos)
            return false;
        at += part.size();
    }
    return true;
}
