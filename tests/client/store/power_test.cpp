// The power goes at any moment of backups, removals and renames with reclaiming beside them: what
// was done to the files up to then is replayed, with all, none or some of what was not synced, and
// over what is left the repository opens, holds what was acknowledged, and shows nothing half-done.
//
// KEEL_TEST_REPLAYS=<number> replays more than the suite does, KEEL_TEST_SEED=<number> others.
#include "client/blob/directory/directory_store.h"
#include "client/store/space/node_space.h"
#include "client/store/upkeep/reclaim.h"
#include "client/store/upkeep/verify.h"
#include "tests/client/store/memory_files.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <thread>

namespace
{

using namespace arca;
using test::MemoryFiles;
using Event = MemoryFiles::Event;
using Random = std::mt19937_64;

/// What is on the disk for sure, and what may be.
class Disk
{
public:
    enum Survives { nothing, everything, something };

    explicit Disk(const MemoryFiles::Node &start) { take("", start); }

    void apply(const Event &event)
    {
        const auto entry = [](const std::string &path) { return path.substr(path.rfind('/') + 1); };
        const auto pendingOf = [&](const std::string &path) -> auto &
        {
            return directories_[path.substr(0, path.rfind('/'))].pending;
        };
        switch (event.kind) {
        case Event::create:
            pendingOf(event.path).push_back({entry(event.path), event.file});
            break;
        case Event::write:
            files_[event.file].pending.push_back(event.bytes);
            break;
        case Event::sync: {
            Content &file = files_[event.file];
            for (const std::string &bytes : std::exchange(file.pending, {}))
                file.durable += bytes;
            break;
        }
        case Event::move:
            pendingOf(event.to).push_back({entry(event.to), event.file});
            pendingOf(event.path).push_back({entry(event.path), kGone});
            break;
        case Event::link:
            pendingOf(event.to).push_back({entry(event.to), event.file});
            break;
        case Event::unlink:
            pendingOf(event.path).push_back({entry(event.path), kGone});
            break;
        case Event::makeDirectory:
            pendingOf(event.path).push_back({entry(event.path), kDirectory});
            break;
        case Event::syncDirectory: {
            const auto last = event.path.find_last_not_of('/') + 1;
            Names &names = directories_[event.path.substr(0, last)];
            for (const Change &change : std::exchange(names.pending, {}))
                change.applyTo(names.durable);
            break;
        }
        case Event::note:
            break;
        }
    }

    /// The files after the power went.
    std::shared_ptr<MemoryFiles::Node> image(Survives survives, Random &random) const
    {
        return directory("", survives, random);
    }

private:
    static constexpr std::uint64_t kGone = 0, kDirectory = UINT64_MAX;
    using Entries = std::map<std::string, std::uint64_t>;
    struct Change {
        std::string name;
        std::uint64_t leadsTo;
        void applyTo(Entries &entries) const
        {
            if (leadsTo == kGone)
                entries.erase(name);
            else
                entries[name] = leadsTo;
        }
    };
    struct Names {
        Entries durable;
        std::vector<Change> pending;
    };
    struct Content {
        std::string durable;
        std::vector<std::string> pending;
    };

    void take(const std::string &path, const MemoryFiles::Node &node)
    {
        for (const auto &[name, below] : node.names) {
            directories_[path].durable[name] = below->directory ? kDirectory : below->number;
            if (below->directory)
                take(path + "/" + name, *below);
            else
                files_[below->number].durable = below->content;
        }
    }

    std::shared_ptr<MemoryFiles::Node> directory(const std::string &path, Survives survives,
                                                 Random &random) const
    {
        auto node = std::make_shared<MemoryFiles::Node>();
        node->directory = true;
        const auto found = directories_.find(path);
        if (found == directories_.end())
            return node;
        Entries entries = found->second.durable;
        for (const Change &change : found->second.pending)
            if (survives == everything || (survives == something && random() % 2 == 0))
                change.applyTo(entries);
        for (const auto &[name, leadsTo] : entries)
            node->names[name] = leadsTo == kDirectory
                                    ? directory(path + "/" + name, survives, random)
                                    : file(leadsTo, survives, random);
        return node;
    }

    /// Of what was written since the last sync each portion may be there, be a hole, or be torn.
    std::shared_ptr<MemoryFiles::Node> file(std::uint64_t number, Survives survives,
                                            Random &random) const
    {
        auto node = std::make_shared<MemoryFiles::Node>();
        node->links = 1;
        node->number = number;
        const auto found = files_.find(number);
        if (found == files_.end())
            return node;
        node->content = found->second.durable;
        for (const std::string &bytes : found->second.pending) {
            const auto fate = survives == everything ? 0 : survives == nothing ? 3 : random() % 4;
            if (fate == 3)
                break;
            node->content += fate == 1   ? std::string(bytes.size(), '\0')
                             : fate == 2 ? bytes.substr(0, bytes.size() / 2)
                                         : bytes;
        }
        return node;
    }

    std::map<std::string, Names> directories_; // by path
    std::map<std::uint64_t, Content> files_;
};

/// A node's space over some files, as a process has it.
struct Process {
    explicit Process(MemoryFiles &files) : store("/r", files)
    {
        auto opened = store::NodeSpace::open(
            store, "node", SecretKey::from(Bytes(SecretKey::kBytes, std::byte{7})).value(),
            engine::RecordForm::keyed);
        space = std::move(opened).value();
        space->use({.threads = 2});
    }

    static store::ObjectName nameOf(const std::string &piece)
    {
        return {"/fs", "/", "/" + piece, 1};
    }

    bool backUp(const std::string &piece, const std::string &stream)
    {
        store::PieceDescription description;
        description.name = nameOf(piece);
        const auto writer = space->beginPiece(description);
        return writer && (*writer)->append(viewOf(stream)) && (*writer)->finish() &&
               (*writer)->commit();
    }
    bool remove(const std::string &piece)
    {
        const auto found = space->find(nameOf(piece));
        return found && *found && space->remove((*found)->id);
    }
    /// The stream; empty when the piece does not show; "?" when it does, and cannot be read.
    std::string restore(const std::string &piece)
    {
        const auto found = space->find(nameOf(piece));
        if (found && !*found)
            return {};
        const auto reader = found ? space->openPiece((*found)->id)
                                  : Result<std::unique_ptr<store::PieceReader>>(found.error());
        if (!reader)
            return "?";
        std::string stream((*found)->totals.streamBytes + 1, '\0');
        const auto got = (*reader)->read(std::as_writable_bytes(std::span(stream)));
        return got ? stream.substr(0, *got) : "?";
    }
    bool isSound()
    {
        store::VerifyRequest everything;
        everything.readData = true;
        const auto outcome = store::verify(*space, everything, {});
        // Packs of a stream that was cut off may be all there is.
        return outcome && outcome->hurt() == (outcome->onlyPacks ? 1U : 0U);
    }

    blob::DirectoryStore store;
    std::unique_ptr<store::NodeSpace> space;
};

/// 20 blocks of its own and some of the piece before, which keep a part of that one's pack alive.
std::string streamOf(int piece)
{
    std::string stream;
    for (int i = 0; i < 26; ++i) {
        const int owner = i < 20 ? piece : piece - 1;
        Random random(static_cast<std::uint64_t>(owner * 100 + i % 20 + 1000));
        std::string block(2048, '\x06');
        for (std::size_t at = 8; at < block.size(); at += 16)
            block[at] = static_cast<char>(random());
        stream += block;
    }
    return stream;
}

class PowerTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(files_.makeDirectory("/r"));
        Process process(files_);
        ASSERT_TRUE(process.space->registerFilespace({"", "/fs", "ORACLE", "", 0, 0, 0}));
        start_ = files_.snapshot();
    }

    /// Backs up, removes and renames, while another one reclaims.
    void recordWork(int pieces)
    {
        events_.clear();
        files_.putBack(start_);
        files_.record(&events_);
        std::atomic<bool> done = false;
        std::thread reclaiming([&] {
            Process process(files_);
            while (!done) {
                const auto reclaimed =
                    store::Reclaim(*process.space, {.grace = 0, .maxFreed = 100}).run();
                EXPECT_TRUE(reclaimed) << reclaimed.error().text;
            }
        });
        Process process(files_);
        process.space->use({.threads = 2, .blockSize = 2048});
        for (int i = 0; i < pieces; ++i) {
            const std::string own = "p" + std::to_string(i), other = "q" + std::to_string(i);
            files_.note("coming " + own);
            EXPECT_TRUE(process.backUp(own, streamOf(i)));
            files_.note("there " + own);
            if (i % 3 == 2) {
                const std::string old = "p" + std::to_string(i - 2);
                files_.note("going " + old);
                EXPECT_TRUE(process.remove(old));
                files_.note("gone " + old);
            }
            if (i % 3 == 1) {
                files_.note("renaming " + own);
                EXPECT_TRUE(process.space->rename(Process::nameOf(own), Process::nameOf(other)));
                files_.note("renamed " + own);
            }
        }
        done = true;
        reclaiming.join();
        files_.record(nullptr);
    }

    void expectWhole(const std::shared_ptr<MemoryFiles::Node> &image,
                     const std::map<std::string, std::string> &known)
    {
        files_.putBack(image);
        Process process(files_);
        ASSERT_TRUE(process.store.removeLeftovers());
        process.space->settleChanges();
        const auto expectPieces = [&] {
            for (const auto &[piece, state] : known) {
                const std::string stream = streamOf(std::atoi(piece.c_str() + 1));
                const std::string here = process.restore(piece);
                const std::string there = process.restore("q" + piece.substr(1));
                EXPECT_TRUE((here.empty() || here == stream) && (there.empty() || there == stream))
                    << piece << ", " << state << ": half of it shows";
                EXPECT_TRUE(here.empty() || there.empty()) << piece << " has two names";
                const bool isHere = !here.empty(), isThere = !there.empty();
                EXPECT_TRUE(state == "coming" || state == "going" ? !isThere
                            : state == "there"                    ? isHere
                            : state == "gone"                     ? !isHere && !isThere
                            : state == "renaming"                 ? isHere || isThere
                                                                  : isThere)
                    << piece << " should be " << state;
            }
        };
        expectPieces();
        EXPECT_TRUE(process.isSound());
        const auto reclaimed = store::Reclaim(*process.space, {.grace = 0, .maxFreed = 100}).run();
        EXPECT_TRUE(reclaimed) << reclaimed.error().text;
        EXPECT_TRUE(process.isSound());
        expectPieces();
    }

    MemoryFiles files_;
    std::shared_ptr<MemoryFiles::Node> start_;
    std::vector<Event> events_;
};

std::uint64_t numberFrom(const char *variable, std::uint64_t otherwise)
{
    const char *const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

TEST_F(PowerTest, WheneverItGoesTheRepositoryHoldsWhatWasAcknowledgedAndNothingHalf)
{
#ifdef KEEL_TEST_SANITIZED
    constexpr std::uint64_t kReplays = 50;
#else
    constexpr std::uint64_t kReplays = 150;
#endif
    const std::uint64_t wanted = numberFrom("KEEL_TEST_REPLAYS", kReplays);
    const std::uint64_t seed = numberFrom("KEEL_TEST_SEED", 20261121);
    Random random(seed);
    std::uint64_t replayed = 0, cuts = 0, recordings = 0;
    while (replayed < wanted && !HasFailure()) {
        recordWork(9);
        ++recordings;
        const auto isSync = [](const Event &event) {
            return event.kind == Event::sync || event.kind == Event::syncDirectory;
        };
        const auto syncs =
            static_cast<std::uint64_t>(std::count_if(events_.begin(), events_.end(), isSync));
        const std::vector<Event> events = events_; // checking goes on over the same files
        Disk disk(*start_);
        std::map<std::string, std::string> known;
        for (std::size_t at = 0; at < events.size() && !HasFailure(); ++at) {
            const Event &event = events[at];
            if (event.kind == Event::note) {
                const auto blank = event.path.find(' ');
                known[event.path.substr(blank + 1)] = event.path.substr(0, blank);
            }
            // Some of the moments when few are wanted, all of them else, right before a sync.
            if (isSync(event) && random() % (syncs * 4) < wanted) {
                ++cuts;
                for (const auto survives :
                     {Disk::nothing, Disk::everything, Disk::something, Disk::something}) {
                    SCOPED_TRACE("seed " + std::to_string(seed) + ", replay " +
                                 std::to_string(replayed));
                    expectWhole(disk.image(survives, random), known);
                    ++replayed;
                }
            }
            disk.apply(event);
        }
    }
    if (wanted > 1000)
        std::printf(
            "%llu recordings, %llu moments, %llu replays, seed %llu\n",
            static_cast<unsigned long long>(recordings), static_cast<unsigned long long>(cuts),
            static_cast<unsigned long long>(replayed), static_cast<unsigned long long>(seed));
}

} // namespace
