// Pages of 64 KiB, each of one share: see the header. The bytes are those of this process's memory,
// as no other one ever reads them.
#include "client/store/usage/run_spill.h"

#include "client/base/descriptor.h"
#include "common/unx/psfile.h"
#include "common/unx/pswrite.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace arca::store
{

namespace
{

constexpr std::size_t kPageBytes = std::size_t{64} << 10;
constexpr std::size_t kRunsInPage = kPageBytes / sizeof(SpilledRun);

Error failure(const std::string &what)
{
    const int number = errno;
    return {number == ENOSPC || number == EDQUOT || number == EFBIG ? ErrorKind::full
            : number == EACCES || number == EROFS                   ? ErrorKind::denied
                                                                    : ErrorKind::io,
            what + ": " + std::strerror(number)};
}

std::string temporaryDirectory()
{
    const char *const named = std::getenv("TMPDIR");
    return named != nullptr && *named == '/' ? named : "/tmp";
}

} // namespace

Result<std::unique_ptr<RunSpill>> RunSpill::make(const std::string &directory, std::size_t shares)
{
    const std::string place = directory.empty() ? temporaryDirectory() : directory;
    int descriptor = openAbove(place.c_str(), O_TMPFILE | O_RDWR);
    if (descriptor < 0) { // not every file system can
        std::string path = place + "/arca-runs-XXXXXX";
        descriptor = psFileTemporary(path.data());
        if (descriptor >= 0)
            ::unlink(path.c_str());
    }
    if (descriptor < 0)
        return failure("making a temporary file in " + place);
    return std::unique_ptr<RunSpill>(new RunSpill(descriptor, shares));
}

RunSpill::~RunSpill()
{
    ::close(descriptor_);
}

Result<void> RunSpill::add(std::size_t share, const SpilledRun &run)
{
    Share &its = shares_.at(share);
    its.pending.reserve(kRunsInPage);
    its.pending.push_back(run);
    return its.pending.size() == kRunsInPage ? flush(its) : Result<void>();
}

Result<void> RunSpill::flush(Share &share)
{
    std::uint32_t page = pages_;
    if (freePages_.empty()) {
        ++pages_;
    } else {
        page = freePages_.back();
        freePages_.pop_back();
    }
    const char *from = reinterpret_cast<const char *>(share.pending.data());
    const std::size_t length = share.pending.size() * sizeof(SpilledRun);
    if (!psWriteAllAt(descriptor_, from, length, static_cast<off_t>(page * kPageBytes)))
        return failure("writing a temporary file");
    share.pages.push_back(page);
    share.pending.clear();
    return {};
}

Result<void> RunSpill::take(std::size_t share, const std::function<void(const SpilledRun &)> &visit)
{
    const Share &its = shares_.at(share);
    std::vector<SpilledRun> runs(kRunsInPage);
    char *const into = reinterpret_cast<char *>(runs.data());
    const std::size_t length = runs.size() * sizeof(SpilledRun);
    for (const std::uint32_t page : its.pages) {
        for (std::size_t done = 0; done < length;) {
            const auto got = ::pread(descriptor_, into + done, length - done,
                                     static_cast<off_t>(page * kPageBytes + done));
            if (got == 0)
                return Error{ErrorKind::io, "a temporary file was cut"};
            if (got < 0 && errno != EINTR)
                return failure("reading a temporary file");
            done += got > 0 ? static_cast<std::size_t>(got) : 0;
        }
        for (const SpilledRun &run : runs)
            visit(run);
    }
    for (const SpilledRun &run : its.pending)
        visit(run);
    return {};
}

void RunSpill::clear(std::size_t share)
{
    Share &its = shares_.at(share);
    freePages_.insert(freePages_.end(), its.pages.begin(), its.pages.end());
    its = {};
}

std::uint64_t RunSpill::fileBytes() const
{
    return (pages_ - freePages_.size()) * kPageBytes;
}

} // namespace arca::store
