// Keeps runs that are too many for memory in a file without a name, in shares, so that each share
// can be taken back alone. Belongs to one thread.
#ifndef KEEL_CLIENT_STORE_USAGE_RUN_SPILL_H
#define KEEL_CLIENT_STORE_USAGE_RUN_SPILL_H

#include "client/base/result.h"
#include "client/engine/packs/run.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace arca::store
{

/// A run of blocks that a manifest needs, and whether that manifest is about to go.
struct SpilledRun {
    engine::PackId pack{};
    std::uint32_t firstBlock = 0;
    std::uint32_t blocks = 0;
    bool leaves = false;
};

class RunSpill
{
public:
    /// The file is made in `directory`; empty: in that of the system for temporary files. It goes
    /// with the object, and with the process. 64 KiB of memory for each share. Errors: io, denied,
    /// full.
    static Result<std::unique_ptr<RunSpill>> make(const std::string &directory, std::size_t shares);
    ~RunSpill();
    RunSpill(const RunSpill &) = delete;
    RunSpill &operator=(const RunSpill &) = delete;

    /// Errors: io, full. After an error: drop the object.
    Result<void> add(std::size_t share, const SpilledRun &run);
    /// Visits the runs of a share in the order in which they came; they stay. `visit` may have seen
    /// some when an error is returned. Errors: io.
    Result<void> take(std::size_t share, const std::function<void(const SpilledRun &)> &visit);
    /// Forgets a share; its place in the file is used again.
    void clear(std::size_t share);
    /// Returns the bytes of the file that are in use.
    std::uint64_t fileBytes() const;

private:
    RunSpill(int descriptor, std::size_t shares) : descriptor_(descriptor), shares_(shares) {}
    struct Share {
        std::vector<SpilledRun> pending;
        std::vector<std::uint32_t> pages; // of the file, each full
    };
    Result<void> flush(Share &share);

    const int descriptor_;
    std::vector<Share> shares_;
    std::uint32_t pages_ = 0;
    std::vector<std::uint32_t> freePages_;
};

} // namespace arca::store

#endif
