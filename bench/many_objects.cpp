// How fast the objects of a node are listed when there are many, and in how much memory.
//
//   many_objects DIRECTORY OBJECTS LIBRARY
//   many_objects DIRECTORY OBJECTS
//
// Makes a repository of that many small objects in DIRECTORY, unless that is there already, written
// straight through the store by a file layer that does not sync. Without LIBRARY each object has a
// stream in a pack of its own, and that is all. With it the objects have none; then it lists them
// through LIBRARY (libApiHX64.so), each time in a process of its own: with no catalogue, with one
// that is filled, name by name, and with a pattern.
#include "client/base/text.h"
#include "client/blob/directory/directory_store.h"
#include "client/include/hoxapi.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/nodes/repository.h"
#include "client/store/pieces/manifest_writer.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fstream>
#include <iostream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace arca;

const std::string kNode = "bench", kPassword(64, 'a');

[[noreturn]] void giveUp(const std::string &why)
{
    std::cerr << "many_objects: " << why << "\n";
    std::_Exit(1);
}

template <class T> T need(Result<T> result)
{
    if (!result)
        giveUp(result.error().text);
    if constexpr (!std::is_void_v<T>)
        return std::move(result).value();
}

class UnsyncedFile final : public blob::File
{
public:
    explicit UnsyncedFile(std::unique_ptr<blob::File> file) : file_(std::move(file)) {}
    Result<void> write(ByteView bytes) override { return file_->write(bytes); }
    Result<void> allocate(std::uint64_t bytes) override { return file_->allocate(bytes); }
    Result<std::size_t> readAt(std::uint64_t offset, std::span<std::byte> into) override
    {
        return file_->readAt(offset, into);
    }
    Result<std::uint64_t> size() override { return file_->size(); }
    Result<void> sync() override { return {}; }
    void readAhead(std::uint64_t offset, std::uint64_t length) override
    {
        file_->readAhead(offset, length);
    }
    Result<bool> lock() override { return file_->lock(); }
    Result<blob::FileIdentity> identity() override { return file_->identity(); }
    Result<bool> hasName() override { return file_->hasName(); }

private:
    std::unique_ptr<blob::File> file_;
};

class UnsyncedFiles final : public blob::FileLayer
{
public:
    explicit UnsyncedFiles(const std::string &root) : below_(blob::filesBelow(root)) {}
    Result<std::unique_ptr<blob::File>> create(const std::string &path) override
    {
        ARCA_TRY(auto file, files_.create(path));
        return std::unique_ptr<blob::File>(std::make_unique<UnsyncedFile>(std::move(file)));
    }
    Result<std::unique_ptr<blob::File>> open(const std::string &path) override
    {
        return files_.open(path);
    }
    Result<std::unique_ptr<blob::File>> openForLocking(const std::string &path,
                                                       bool create) override
    {
        return files_.openForLocking(path, create);
    }
    Result<void> moveNew(const std::string &from, const std::string &to) override
    {
        return files_.moveNew(from, to);
    }
    Result<bool> link(const std::string &from, const std::string &to) override
    {
        return files_.link(from, to);
    }
    Result<void> unlink(const std::string &path) override { return files_.unlink(path); }
    Result<void> makeDirectory(const std::string &path) override
    {
        return files_.makeDirectory(path);
    }
    Result<void> syncDirectory(const std::string &) override { return {}; }
    Result<void> list(const std::string &path,
                      const std::function<bool(const std::string &)> &visit) override
    {
        return files_.list(path, visit);
    }
    Result<bool> isDirectory(const std::string &path) override { return files_.isDirectory(path); }

private:
    const std::unique_ptr<blob::FileLayer> below_;
    blob::FileLayer &files_ = *below_;
};

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// A piece without a stream, as the agent names them.
void store(store::NodeSpace &space, std::uint32_t number)
{
    store::PieceDescription piece;
    piece.node = kNode;
    piece.name = {"/lumoorc", "/", "/df_prod_t1192837465_s" + std::to_string(number) + "_p1", 1};
    piece.owner = "oracle";
    piece.managementClass = "STANDARD";
    piece.info = "stStream";
    const Sha256 hash = need(space.hashOf(piece.name));
    const std::string digits = toHex(ByteView(hash).first(16));
    const std::string blobName =
        "pieces/" + space.domain().nodeKey() + "/" + digits.substr(0, 2) + "/" + digits;
    const store::PieceId id =
        std::strtoull(digits.substr(0, 8).c_str(), nullptr, 16) << 32 | (number + 1);
    const auto manifest =
        need(store::ManifestWriter::begin(space.domain(), Cipher::aes256, id, piece));
    store::ManifestEnd end;
    end.insertedAt = 1'700'000'000 + number / 10;
    end.totals.digest = StreamDigest().value();
    need(manifest->finish(end));
    need(manifest->commit(blobName));
}

/// A piece with a stream of two blocks that no other piece has, in a pack of its own.
void storeWithPack(store::NodeSpace &space, std::uint32_t number)
{
    store::PieceDescription piece;
    piece.name = {"/lumoorc", "/",
                  "/df_prod_t1192837465_s" + std::to_string(number / 2) +
                      (number % 2 == 0 ? "_p1" : "_p2"),
                  1};
    piece.managementClass = "STANDARD";
    std::uint64_t state = number + 1;
    Bytes stream(16384);
    for (std::byte &byte : stream) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        byte = static_cast<std::byte>(state >> 56);
    }
    const auto writer = need(space.beginPiece(std::move(piece)));
    need(writer->append(stream));
    need(writer->finish());
    need(space.commit(*writer, 1));
}

void make(const std::string &directory, std::uint32_t objects, bool packs)
{
    if (mkdir(directory.c_str(), 0700) != 0) {
        if (errno == EEXIST)
            return;
        giveUp("cannot make " + directory);
    }
    UnsyncedFiles files(directory);
    const auto repository = need(store::Repository::create(
        std::make_unique<blob::DirectoryStore>(directory, files), directory));
    const SecretKey recovery = need(SecretKey::random());
    need(store::publishRecoveryHalf(repository->blobs(), need(store::publicHalfOf(recovery))));
    need(repository->nodes().registerNode(kNode, kPassword));
    const auto space = need(repository->logOn(kNode, kPassword));
    need(space->registerFilespace({"", "/lumoorc", "ORACLE", "", 0, 0, 0}));
    space->use({.threads = 1});
    for (std::uint32_t number = 0; number < objects; ++number)
        packs ? storeWithPack(*space, number) : store(*space, number);
}

template <class Function> Function *operation(void *library, const char *name)
{
    auto *const found = reinterpret_cast<Function *>(dlsym(library, name));
    if (found == nullptr)
        giveUp(std::string("no operation ") + name);
    return found;
}

/// In a process of its own.
void list(const std::string &options, const char *path, const qryObjectsData &asked,
          const char *what)
{
    void *const library = dlopen(path, RTLD_NOW);
    if (library == nullptr)
        giveUp(dlerror());
    envSetUp env{};
    env.stVersion = HOX_ENVSETUP_VERSION;
    options.copy(env.hoxiConfig, HOX_MAX_PATH);
    hoxInitExIn_t input{};
    input.stVersion = HOX_INITEX_IN_VERSION;
    input.password = kPassword.c_str();
    hoxHandle_t handle = 0;
    if (operation<decltype(hoxSetUp)>(library, "hoxSetUp")(1, &env) != HOX_RC_OK ||
        operation<decltype(hoxInitEx)>(library, "hoxInitEx")(&handle, &input, nullptr) != HOX_RC_OK)
        giveUp("no session");
    const auto start = std::chrono::steady_clock::now();
    int code = operation<decltype(hoxBeginQuery)>(library, "hoxBeginQuery")(
        handle, HOX_QUERY_OBJECTS, &asked);
    const double begun = secondsSince(start);
    qryRespBackupData answer{};
    DataBlk data{HOX_DATABLK_VERSION, sizeof answer, 0, reinterpret_cast<char *>(&answer)};
    auto *const next = operation<decltype(hoxGetNextQObj)>(library, "hoxGetNextQObj");
    std::uint64_t count = 0;
    while (code == HOX_RC_OK && (code = next(handle, &data)) == HOX_RC_MORE_DATA) {
        ++count;
        code = HOX_RC_OK;
    }
    const double all = secondsSince(start);
    operation<decltype(hoxCleanUp)>(library, "hoxCleanUp")(1);
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const double processor =
        static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
        static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) / 1e6;
    std::printf("%-12s %9llu objects  %7.2f s  %9.0f a second  first after %6.2f s  "
                "processor %6.2f s  peak %4ld MiB  code %d\n",
                what, static_cast<unsigned long long>(count), all, static_cast<double>(count) / all,
                begun, processor, used.ru_maxrss / 1024, code);
    std::fflush(stdout);
    std::_Exit(0);
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 && argc != 4) {
        std::cerr << "usage: many_objects DIRECTORY OBJECTS [LIBRARY]\n";
        return 2;
    }
    const std::string directory = argv[1], options = directory + ".opt";
    const auto start = std::chrono::steady_clock::now();
    make(directory, static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10)), argc == 3);
    std::printf("made in %.1f s\n", secondsSince(start));
    std::fflush(stdout);
    std::ofstream(options) << "REPOSITORY file://" << directory << "\nNODENAME " << kNode
                           << "\nPASSWORDACCESS prompt\n";
    if (argc == 3)
        return 0;
    qryObjectsData everything{}, byName{}, few{};
    everything.stVersion = HOX_QRY_OBJECTS_VERSION;
    everything.objState = HOX_STATE_ANY;
    byName = few = everything;
    byName.order = HOX_ORDER_NAME;
    few.llName = "/*_s77777_*";
    const std::pair<const char *, const qryObjectsData *> runs[] = {{"first time", &everything},
                                                                    {"filled", &everything},
                                                                    {"filled", &everything},
                                                                    {"by name", &byName},
                                                                    {"one of all", &few}};
    for (const auto &[what, asked] : runs) {
        const pid_t child = fork();
        if (child == 0)
            list(options, argv[3], *asked, what);
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child || status != 0)
            return 1;
    }
    return 0;
}
