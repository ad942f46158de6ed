// What this host remembers of the packs of one domain, so that duplicates are found without holding
// their index in memory: some of each pack's block identities (the sampled ones), each with the
// packs that hold it. A cache in an SQLite file, shared by all processes of the host: it can be
// lost, be old or belong to something else, and all that follows is that some block is stored once
// more until it has been filled again from the packs. So none of its failures is a failure of a
// backup.
//
// The process that holds the file locked may have been stopped. So a session that has waited for
// that lock once in vain lets go of the file: it knows nothing from then on, and never waits again.
//
// Any thread may use it.
#ifndef KEEL_CLIENT_ENGINE_DUPLICATES_HINT_CATALOGUE_H
#define KEEL_CLIENT_ENGINE_DUPLICATES_HINT_CATALOGUE_H

#include "client/engine/duplicates/hint_bound.h"
#include "client/engine/packs/pack_format.h"

#include <memory>
#include <mutex>
#include <string>

namespace arca::engine
{

/// One block in 32 is sampled, and the first ones of each pack. With some 20 bytes a row that is
/// less than one byte for each block of 8 KiB, on disk; the memory is what the cache of SQLite has.
constexpr std::uint32_t kAlwaysSampled = 4;
bool isSampled(const BlockId &block);

/// What the file of a host holds at most, of all packs together: a sample of some 8 TiB, in some
/// 700 MiB.
constexpr std::int64_t kMostHints = std::int64_t{32} << 20;

class HintCatalogue
{
public:
    /// `directory` of this host's cache of the repository, which is there; empty, or in a forked
    /// child whose parent used such files: in memory only.
    /// `domain` tells the files of nodes apart. A file that is no catalogue of it, or is doubtful
    /// in any way, is discarded.
    HintCatalogue(const std::string &directory, const std::string &domain,
                  std::int64_t mostHints = kMostHints);
    /// Writes down which packs were found.
    ~HintCatalogue();
    HintCatalogue(const HintCatalogue &) = delete;
    HintCatalogue &operator=(const HintCatalogue &) = delete;

    /// Returns false when it knows nothing, now and later: remembering is in vain.
    bool isOpen();
    /// Returns the packs that are said to hold the block, newest first, at most `limit`.
    std::vector<PackId> packsWith(const BlockId &block, std::size_t limit);
    /// Remembers the sampled blocks of a pack, all or none of them. Older packs may lose theirs.
    void remember(const PackId &pack, const PackIndex &index);
    void forget(const PackId &pack);

    /// Returns the packs it knows; for comparing with those that are there.
    std::vector<PackId> packs();
    /// Returns when the packs were last compared with those that are there: seconds since 1970,
    /// UTC; 0 never.
    std::int64_t comparedAt();
    void setComparedAt(std::int64_t when);

private:
    bool prepare(const std::string &whose);
    bool isOf(const std::string &whose);
    std::int64_t numberOf(const PackId &pack);
    /// In a transaction: the row of a pack, made if need be. 0 on failure.
    std::int64_t numbered(const PackId &pack);
    bool addHints(const PackId &pack, const PackIndex &index);
    /// Does it in a transaction, which a failure takes back.
    template <class Work> void change(Work work);
    void letGo();
    void disconnect();
    bool discard();
    /// After a call of SQLite, when its statements have ended: a file that turns out to be doubtful
    /// is discarded, and nothing is known until the next session makes it again; one that another
    /// process holds is left.
    void lookAfterFailure();

    std::mutex mutex_;  // guards all below
    Database database_; // closed: nothing is known
    HintBound bound_;
    Statement find_;
    Statement numberOf_;
    Statement addPack_;
    Statement addHint_;
};

} // namespace arca::engine

#endif
