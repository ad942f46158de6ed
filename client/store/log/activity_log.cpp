// The activity log: see the header.
#include "client/store/log/activity_log.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "common/cu/cutime.h"

#include <ctime>

namespace arca::store
{

namespace
{

constexpr std::size_t kPublishAt = 16 * 1024;
constexpr std::size_t kMaxGathered = 256 * 1024; // of a repository that takes nothing
constexpr std::size_t kMaxText = 2048;

std::string utcText(std::time_t time, const char *format)
{
    std::tm utc{};
    char text[64] = "";
    if (cuUtcTime(time, &utc))
        (void)std::strftime(text, sizeof text, format, &utc);
    return text;
}

} // namespace

Result<void> ActivityLog::append(const Event &event)
{
    std::string line = utcText(std::time(nullptr), "%Y-%m-%dT%H:%M:%SZ");
    line += '\t';
    line += "IWES"[static_cast<std::size_t>(event.severity)];
    for (const std::string *field : {&event.node, &event.application, &event.messageId})
        line += '\t' + printable(*field, kMaxText);
    ARCA_TRY(const std::string sealed, seal_.seal(line, printable(event.text, kMaxText)));
    line += '\t' + sealed + '\n';
    if (gathered_.size() + line.size() > kMaxGathered)
        return Error{ErrorKind::full, "the activity log of the repository takes nothing"};
    gathered_ += line;
    if (event.severity >= Severity::error || gathered_.size() >= kPublishAt)
        return publish();
    return {};
}

Result<void> ActivityLog::publish()
{
    if (gathered_.empty())
        return {};
    Bytes random(4);
    ARCA_CHECK(fillRandom(random));
    // Nanoseconds, so that what one session publishes within a second keeps its order.
    timespec now{};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const auto nanoseconds = static_cast<std::uint64_t>(now.tv_nsec);
    const std::string name = "log/" + utcText(now.tv_sec, "%Y%m%d/%H%M%S-") +
                             toHex(nanoseconds << 32 | ByteReader(random).u32());
    ARCA_CHECK(blob::putWhole(store_, name, viewOf(gathered_)));
    gathered_.clear();
    return {};
}

} // namespace arca::store
