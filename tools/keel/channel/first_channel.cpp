// See first_channel.h.
#include "tools/keel/channel/first_channel.h"

#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/trailer.h"

#include <optional>
#include <utility>

#include <fmt/format.h>

namespace keel
{

namespace
{

constexpr std::uint32_t kEndOfFile = 7061;
constexpr std::uint32_t kNotFound = 2;    // errnum of sbtinfo and sbtremove
constexpr std::uint32_t kExists = 2503;   // errnum of sbtopen
constexpr unsigned long kCloseCommit = 1; // the other flag, 2, does the same

std::string meaning(const bserc &error)
{
    switch (error.oer) {
    case 7000:
        return "there is no such piece";
    case 7003:
        return "the agent does not take blocks of that size";
    case 7012:
        return "the agent does not take that name";
    case SBT_INIT_FAILED:
        if (error.errnum == kNotFound)
            return "there is no such piece";
        if (error.errnum == kExists)
            return "a piece of that name is there already";
        break;
    default:
        break;
    }
    return "the agent could not do it";
}

} // namespace

FirstChannel::FirstChannel(const ChannelOptions &options) : agent_(options)
{
    if (options.traceLevel)
        throw UsageError("--trace-level is not for --sbt1, whose calls cannot carry it");
    agent_.take(open_, "sbtopen");
    agent_.take(write_, "sbtwrite");
    agent_.take(read_, "sbtread");
    agent_.take(close_, "sbtclose");
    agent_.take(info_, "sbtinfo");
    agent_.take(remove_, "sbtremove");
    ready();
}

FirstChannel::~FirstChannel()
{
    // Both flags of the close commit. The agent refuses an unknown flag and ends the channel, and
    // what was written is dropped: there is no other way to give a piece up.
    constexpr unsigned long kGiveUp = 0;
    if (writing_)
        close_(&error_, handle_, kGiveUp);
    else if (reading_)
        close_(&error_, handle_, kCloseCommit);
}

void FirstChannel::ready()
{
    if (!initialised_)
        static_cast<void>(agent_.initialise());
    initialised_ = true;
}

void FirstChannel::fail() const
{
    throw Failure(error_.errnum == 0 ? meaning(error_)
                                     : fmt::format("{} (code {}); veloerror.log tells more",
                                                   meaning(error_), error_.errnum),
                  error_.oer, error_.errnum);
}

void FirstChannel::open(std::string name, unsigned long mode, std::size_t blockSize)
{
    ready();
    const int handle = open_(&error_, name.data(), mode, blockSize);
    if (handle == -1) {
        initialised_ = false;
        fail();
    }
    handle_ = static_cast<unsigned>(handle);
    (mode == SBT1_READ ? reading_ : writing_) = true;
    if (blockSize % kSectorSize != 0)
        throw Failure("the agent takes blocks of that size, but keel does not");
}

void FirstChannel::beginBackup(const std::string &name, const PieceAttributes &attributes,
                               std::size_t blockSize)
{
    if (!attributes.database.empty() || attributes.fileType || attributes.copy != 1)
        throw UsageError("--copy, --database and --type are not for --sbt1, whose calls cannot "
                         "carry them");
    open(name, SBT1_WRITE_NEW, blockSize);
}

void FirstChannel::writeBlock(std::span<std::byte> block)
{
    if (write_(&error_, handle_, reinterpret_cast<char *>(block.data())) != 0)
        fail();
}

void FirstChannel::beginRestore(const std::string &name, std::size_t blockSize)
{
    open(name, SBT1_READ, blockSize);
}

bool FirstChannel::readBlock(std::span<std::byte> block)
{
    if (read_(&error_, handle_, reinterpret_cast<char *>(block.data())) == 0)
        return true;
    if (error_.oer != kEndOfFile)
        fail();
    return false;
}

void FirstChannel::closePiece()
{
    const bool read = std::exchange(reading_, false);
    writing_ = false;
    const bool good = close_(&error_, handle_, kCloseCommit) == 0;
    if (read || !good)
        initialised_ = false;
    if (!good)
        fail();
}

std::vector<PieceInfo> FirstChannel::info(std::vector<std::string> names)
{
    std::vector<PieceInfo> pieces;
    for (std::string &name : names) {
        PieceInfo piece;
        piece.name = name;
        ready();
        const sbtFileInfo *told = info_(&error_, name.data());
        initialised_ = false;
        if (told) {
            piece.found = true;
            piece.size = told->size;
            piece.created = agentTime(told->creationTime);
            piece.label = told->label;
            piece.managementClass = told->mgmtClass;
        } else if (error_.oer != SBT_INIT_FAILED || error_.errnum != kNotFound) {
            fail();
        }
        pieces.push_back(std::move(piece));
    }
    return pieces;
}

void FirstChannel::remove(std::vector<std::string> names)
{
    std::optional<bserc> refused;
    for (std::string &name : names) {
        ready();
        if (remove_(&error_, name.data()) != 0 &&
            (error_.oer != SBT_INIT_FAILED || error_.errnum != kNotFound) && !refused)
            refused = error_;
    }
    if (refused) {
        error_ = *refused;
        fail();
    }
}

} // namespace keel
