// Flips every byte of a small repository in turn, in memory, and tells what finds it.
//
//     flip_bytes [--every N]      only every N-th byte, for a quick look
//
// The repository has blobs of every kind. After each flip the node logs on and everything is
// verified, without and with its data; then every piece is restored. It is an error (status 1) when
// a piece that was not named as hurt does not restore byte for byte, when one restores as something
// else, or when a flip in a blob that verifying covers is not found.
#include "client/base/text.h"
#include "client/blob/directory/directory_store.h"
#include "client/store/keys/recovery_key.h"
#include "client/store/log/activity_log.h"
#include "client/store/nodes/access.h"
#include "client/store/nodes/policy.h"
#include "client/store/nodes/repository.h"
#include "client/store/upkeep/reclaim.h"
#include "client/store/upkeep/verify.h"
#include "tests/client/store/memory_files.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
#include <set>
#include <stdexcept>

namespace
{

using namespace arca;
using test::MemoryFiles;

const std::string kPassword(64, 'a');

template <class T> auto must(Result<T> result)
{
    if (!result)
        throw std::runtime_error(result.error().text);
    if constexpr (!std::is_void_v<T>)
        return std::move(result).value();
}

struct Session {
    std::unique_ptr<store::Repository> repository;
    std::unique_ptr<store::NodeSpace> space;
};

Result<Session> logOn(MemoryFiles &files, const std::string &node)
{
    Session session;
    ARCA_TRY(
        session.repository,
        store::Repository::open(std::make_unique<blob::DirectoryStore>("/r", files), "memory"));
    ARCA_TRY(session.space, session.repository->logOn(node, kPassword));
    session.space->use({.threads = 1, .blockSize = 2048});
    return session;
}

std::string noise(unsigned seed, std::size_t length)
{
    std::mt19937 random(seed);
    std::string bytes(length, '\x06');
    for (std::size_t i = 0; i < length; i += 1 + i % 2)
        bytes[i] = static_cast<char>(random());
    return bytes;
}

store::ObjectName nameOf(const std::string &piece)
{
    return {"/fs", "/", "/" + piece, 1};
}

std::unique_ptr<store::PieceWriter> sent(store::NodeSpace &space, const std::string &piece,
                                         const std::string &stream)
{
    store::PieceDescription description;
    description.name = nameOf(piece);
    auto writer = must(space.beginPiece(description));
    must(writer->append(viewOf(stream)));
    (void)must(writer->finish());
    return writer;
}

using Pieces = std::map<std::string, std::string>; // the streams by name

/// Pieces that share packs and have some of their own, and a blob of every other kind but changes.
Pieces storePieces(MemoryFiles &files)
{
    must(files.makeDirectory("/r"));
    auto made = must(
        store::Repository::create(std::make_unique<blob::DirectoryStore>("/r", files), "memory"));
    must(store::publishRecoveryHalf(made->blobs(),
                                    must(store::publicHalfOf(must(SecretKey::random())))));
    must(made->nodes().registerNode("node", kPassword));
    must(made->nodes().registerNode("reader", kPassword));
    must(made->policy().define({"GOLD", "monthly copies", "POOL", 3, 365, false}));
    auto [repository, space] = must(logOn(files, "node"));
    must(space->registerFilespace({"", "/fs", "ORACLE", "", 0, 0, 0}));

    const std::string shared = noise(1, 4096);
    Pieces pieces = {{"few", noise(2, 300)},
                     {"first", shared + noise(3, 1024)},
                     {"second", shared},
                     {"zeros", std::string(100'000, '\0')},
                     {"moved", noise(4, 700)}};
    for (const auto &[piece, stream] : pieces)
        must(sent(*space, piece == "moved" ? "before" : piece, stream)->commit());
    must(sent(*space, "gone", noise(5, 500))->commit());
    must(space->rename(nameOf("before"), nameOf("moved")));
    must(space->update(nameOf("few"), {}, [](auto &description) { description.info = "changed"; }));
    must(space->groups().make({must(space->find(nameOf("first")))->id,
                               false,
                               "tag",
                               {must(space->find(nameOf("second")))->id}}));
    auto rules = must(store::AccessRules::of(repository->blobs(), "node"));
    must(rules.add({0, "", "reader", "", nameOf("few"), {}, {}}, space->dataKey()));
    store::ActivityLog log(repository->blobs(), must(store::LogSeal::of(space->dataKey(), 0)));
    must(log.append({store::Severity::error, "node", "app", "ID", "something happened"}));
    // A mark that somebody has still to wait for.
    must(space->remove(must(space->find(nameOf("gone")))->id));
    const auto claim = must(repository->blobs().begin());
    (void)must(store::Reclaim(*space, {.grace = 0, .maxFreed = 100}).run());
    return pieces;
}

/// A piece whose commit was killed right after the decision that makes it hold.
void leaveChange(MemoryFiles &files, const std::string &piece, const std::string &stream)
{
    const auto before = files.snapshot();
    for (int n = 1; n < 1000; ++n) {
        files.putBack(before);
        const Session session = must(logOn(files, "node"));
        const auto writer = sent(*session.space, piece, stream);
        const store::NodeSpace::Sent late{writer.get(), 1};
        files.stopAt(n);
        (void)session.space->commitTogether({std::span(&late, 1), {}, {}});
        files.stopAt(0);
        for (const std::string &path : files.paths())
            if (path.starts_with("/r/outcomes/"))
                return;
    }
    throw std::runtime_error("no change is left half-done");
}

Pieces prepare(MemoryFiles &files)
{
    Pieces pieces = storePieces(files);
    pieces["late"] = noise(6, 200);
    leaveChange(files, "late", pieces["late"]);
    return pieces;
}

/// What became of one flip.
struct Found {
    std::string by; // empty: nothing
    std::set<std::string> named;
};

Found lookFor(Result<Session> &session)
{
    if (!session)
        return {"the logon refuses", {}};
    Found found;
    for (const bool readData : {false, true}) {
        store::VerifyRequest request;
        request.readData = readData;
        const auto outcome =
            store::verify(*session->space, request,
                          {[&](const store::Hurt &hurt) { found.named.insert(hurt.name); }, {}});
        if (!found.by.empty())
            continue;
        if (!outcome)
            found.by = "verify cannot go on";
        else if (outcome->hurt() != 0)
            found.by = readData ? "verify --read-data" : "verify";
    }
    return found;
}

/// Whether the piece is as it was; nothing when it is refused with an error.
std::optional<bool> restores(store::NodeSpace &space, const std::string &piece,
                             const std::string &stream)
{
    const auto found = space.find(nameOf(piece));
    if (!found)
        return std::nullopt;
    if (!*found)
        return false;
    const auto reader = space.openPiece((*found)->id);
    if (!reader)
        return std::nullopt;
    std::string got(stream.size() + 1, '\0');
    const auto length = (*reader)->read(std::as_writable_bytes(std::span(got)));
    if (!length)
        return std::nullopt;
    return got.substr(0, *length) == stream;
}

struct Tally {
    std::size_t blobs = 0, flips = 0, missed = 0;
    std::map<std::string, std::size_t> foundBy;
    std::size_t piecesNamed = 0, piecesWhole = 0;
};

class Flips
{
public:
    explicit Flips(std::size_t every)
        : every_(every), pieces_(prepare(files_)), start_(files_.snapshot())
    {
    }

    int run()
    {
        const auto began = std::chrono::steady_clock::now();
        for (const std::string &path : files_.paths()) {
            const std::string kind = kindOf(path);
            if (kind == "tmp" || kind == "locks")
                continue;
            ++tallies_[kind].blobs;
            const std::size_t size = files_.contentOf(path).size();
            for (std::size_t at = 0; at < size; at += every_)
                flip(path, at, tallies_[kind]);
        }
        print(std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
        return faults_ == 0 ? 0 : 1;
    }

private:
    static std::string kindOf(const std::string &path)
    {
        const std::string name = path.substr(std::strlen("/r/"));
        return name.substr(0, name.find('/'));
    }

    void flip(const std::string &path, std::size_t at, Tally &tally)
    {
        files_.putBack(start_);
        char &byte = files_.contentOf(path)[at];
        byte = static_cast<char>(byte ^ (1 << (at % 8)));
        auto session = logOn(files_, "node");
        const Found found = lookFor(session);
        ++tally.flips;
        ++tally.foundBy[found.by.empty() ? "nothing" : found.by];
        const std::string where = path + ", byte " + std::to_string(at);
        const std::string kind = kindOf(path);
        // Another node's record is that node's to find, and the log has nobody's data.
        if (found.by.empty() && kind != "log" && path.find(otherNode()) == std::string::npos)
            fault(where + ": nobody finds it");
        if (!session)
            return;
        for (const auto &[piece, stream] : pieces_) {
            const bool named =
                found.named.contains(nameOf(piece).joined()) ||
                (kind != "packs" && found.named.contains(path.substr(std::strlen("/r/"))));
            const auto whole = restores(*session->space, piece, stream);
            tally.piecesNamed += named;
            tally.piecesWhole += whole.value_or(false);
            if (whole.has_value() && !*whole && !named)
                fault(where + ": " + piece + " is another one, or gone, and not named");
            if (!whole && !named)
                fault(where + ": " + piece + " does not restore and is not named");
        }
    }

    std::string otherNode() const { return *store::nodeKey("reader"); }

    void fault(const std::string &what)
    {
        if (++faults_ <= 20)
            std::fprintf(stderr, "%s\n", what.c_str());
    }

    void print(double seconds) const
    {
        std::size_t flips = 0;
        std::printf("%-12s %5s %7s  found by\n", "kind", "blobs", "flips");
        for (const auto &[kind, tally] : tallies_) {
            std::printf("%-12s %5zu %7zu ", kind.c_str(), tally.blobs, tally.flips);
            for (const auto &[by, count] : tally.foundBy)
                std::printf(" %s %zu;", by.c_str(), count);
            std::printf(" pieces named %zu, whole %zu\n", tally.piecesNamed, tally.piecesWhole);
            flips += tally.flips;
        }
        std::printf("%zu flips, %zu faults, %.0f s\n", flips, faults_, seconds);
    }

    const std::size_t every_;
    MemoryFiles files_;
    const Pieces pieces_;
    const std::shared_ptr<MemoryFiles::Node> start_;
    std::map<std::string, Tally> tallies_;
    std::size_t faults_ = 0;
};

} // namespace

int main(int count, char **words)
{
    try {
        const bool some = count == 3 && std::strcmp(words[1], "--every") == 0;
        return Flips(some ? std::stoul(words[2]) : 1).run();
    } catch (const std::exception &failure) {
        std::fprintf(stderr, "flip_bytes: %s\n", failure.what());
        return 1;
    }
}
