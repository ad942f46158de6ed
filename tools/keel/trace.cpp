// keel trace: prints a trace of the agent in the order of time.
#include "tools/keel/agenttrace.h"
#include "tools/keel/channel/blocks.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/files.h"
#include "tools/keel/command.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <span>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

namespace keel
{

namespace
{

class TraceFile
{
public:
    /// Returns null when there is no such file. Throws Failure when it cannot be read.
    static std::unique_ptr<TraceFile> open(const std::string &name)
    {
        // O_NONBLOCK: opening a FIFO must not wait for a writer.
        const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (descriptor < 0 && errno == ENOENT)
            return nullptr;
        auto file = std::unique_ptr<TraceFile>(new TraceFile(name, descriptor));
        struct stat status = {};
        if (descriptor < 0 || ::fstat(descriptor, &status) != 0)
            file->fail();
        if (!S_ISREG(status.st_mode))
            throw Failure("this is no file");
        file->size_ = static_cast<std::uint64_t>(status.st_size);
        return file;
    }
    ~TraceFile()
    {
        if (descriptor_ >= 0)
            ::close(descriptor_);
    }
    TraceFile(const TraceFile &) = delete;
    TraceFile &operator=(const TraceFile &) = delete;

    [[nodiscard]] TraceLayout layout() const
    {
        return layoutOf(
            {size_, [this](std::uint64_t at, std::span<char> bytes) { return read(at, bytes); }});
    }

    void print(const TraceExtent &lines, const WriteBytes &write) const
    {
        std::string buffer(std::size_t{256} << 10, '\0');
        std::uint64_t at = lines.from;
        while (at < lines.to) {
            const auto wanted = std::min<std::uint64_t>(buffer.size(), lines.to - at);
            const std::size_t count = read(at, std::span(buffer).first(wanted));
            if (count == 0)
                return; // another process has begun the trace again meanwhile
            write(std::as_bytes(std::span(buffer).first(count)));
            at += count;
        }
    }

private:
    TraceFile(std::string name, int descriptor) : name_(std::move(name)), descriptor_(descriptor) {}

    [[noreturn]] void fail() const
    {
        throw Failure(fmt::format("cannot read {}: {}", name_, std::strerror(errno)));
    }

    std::size_t read(std::uint64_t at, std::span<char> bytes) const
    {
        std::size_t done = 0;
        while (done < bytes.size()) {
            const ssize_t count = ::pread(descriptor_, &bytes[done], bytes.size() - done,
                                          static_cast<off_t>(at + done));
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0)
                fail();
            if (count == 0)
                break;
            done += static_cast<std::size_t>(count);
        }
        return done;
    }

    std::string name_;
    int descriptor_;
    std::uint64_t size_ = 0;
};

void print(const TraceFile &file, const TraceLayout &layout, const WriteBytes &write)
{
    for (const TraceExtent &lines : layout.lines)
        file.print(lines, write);
}

std::string segmentName(const std::string &name, std::size_t number)
{
    return fmt::format("{}.{}", name, number);
}

/// Reads the layout of every segment before the first is printed, with one file open at a time.
void printSegments(const std::string &name, const WriteBytes &write)
{
    std::vector<TraceLayout> layouts;
    while (const auto file = TraceFile::open(segmentName(name, layouts.size() + 1))) {
        layouts.push_back(file->layout());
        if (!layouts.back().wrapping)
            throw Failure(
                fmt::format("{} is no segment of a trace", segmentName(name, layouts.size())));
    }
    if (layouts.empty())
        throw Failure(fmt::format("neither {} nor {} is there", name, segmentName(name, 1)));
    for (const std::size_t segment : segmentOrder(layouts)) {
        if (const auto file = TraceFile::open(segmentName(name, segment + 1)))
            print(*file, layouts[segment], write);
    }
}

void printAll(const std::string &name, const WriteBytes &write)
{
    if (const auto file = TraceFile::open(name))
        print(*file, file->layout(), write);
    else
        printSegments(name, write);
}

int run(const std::string &name, const Command &command, Json &result)
{
    if (!command.json) {
        OutputFile output("-", tools::Existing::replace);
        printAll(name, [&](std::span<const std::byte> bytes) { output.write(bytes); });
        output.finish();
        return kExitDone;
    }
    std::string text;
    printAll(name, [&](std::span<const std::byte> bytes) {
        text.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    });
    Json &lines = result["lines"] = Json::array();
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return kExitDone;
}

} // namespace

void addTrace(tools::Verb app, Command &command)
{
    const tools::Verb verb =
        app.addVerb("trace", "Print the agent's own trace (VELO_TRACE_FILE) in the order of time");
    auto name = std::make_shared<std::string>();
    verb.addOption("FILE", *name,
                   "The trace; when it is kept in segments, FILE.1, FILE.2 ..., they are printed")
        .required()
        .valueName("");
    verb.addFlag("--json", command.json, "Print one JSON object with the lines");
    verb.footer(
        "Example: keel trace /var/log/keel/velo.trace | less\n"
        "A trace with a maximum (VELO_TRACE_MAX) goes on at its beginning when it is full; it is\n"
        "printed from the oldest line that is whole to the newest. A trace without a maximum is\n"
        "printed as it is. The trace may be in use; what is written meanwhile may be missing.");
    verb.onChosen([name, &command] {
        command.verb = "trace";
        command.subject = *name;
        command.run = [name, &command](Json &result) { return run(*name, command, result); };
    });
}

} // namespace keel
