// What has to be expanded to put a stream together: frames, and where their bytes belong. The
// stream is planned in portions; a frame comes out only when the stream was planned well beyond it,
// so that all that is near is taken from it at once. Belongs to one thread.
#ifndef KEEL_CLIENT_ENGINE_RESTORING_RESTORE_TASKS_H
#define KEEL_CLIENT_ENGINE_RESTORING_RESTORE_TASKS_H

#include "client/engine/restoring/frame_fetcher.h"
#include "client/engine/restoring/restore_plan.h"

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace arca::engine
{

/// Bytes of a frame, and where in the stream they belong.
struct Part {
    std::uint32_t offset = 0;
    std::size_t length = 0;
    std::uint64_t position = 0;
};

/// A frame to expand; without one, zeros.
struct RestoreTask {
    FetchedFrame frame;
    std::vector<Part> parts; // the first is the nearest one

    void add(const Part &part);
};
using RestoreTaskPtr = std::unique_ptr<RestoreTask>;

class RestoreTasks
{
public:
    RestoreTasks(const PackStore &packs, RunSource &runs, std::size_t horizon)
        : plan_(packs, runs), horizon_(horizon)
    {
    }

    /// Plans the next `bytes` bytes of the stream, fewer at its end, and returns the number
    /// planned. After an error (as RestorePlan::next()) drop it.
    Result<std::size_t> plan(std::size_t bytes);
    bool allPlanned() const { return allPlanned_; }
    /// As RestorePlan::damage(), after plan() failed.
    std::optional<DamagedPart> damage() const { return plan_.damage(); }
    /// Returns some of those that lie far enough back, in the order of the stream: call it until
    /// there are none. Once all is planned, the rest.
    std::vector<RestoreTaskPtr> takeDue();

private:
    Result<void> place(const Extent &extent);

    RestorePlan plan_;
    const std::size_t horizon_;
    std::optional<Extent> rest_; // what was too much for the portion before
    std::uint64_t planned_ = 0;
    bool allPlanned_ = false;
    std::deque<RestoreTaskPtr> pending_; // in the order of the stream
    /// The frames among them.
    std::map<std::pair<const PackLayout *, std::uint32_t>, RestoreTask *> open_;
};

} // namespace arca::engine

#endif
