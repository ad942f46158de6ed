// keel restore: gives the stream of a piece back.
#include "agents/common/maint/mttiming.h"
#include "tools/common/progress.h"
#include "tools/common/text.h"
#include "tools/keel/channel/blocks.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/files.h"
#include "tools/keel/channel/open_channel.h"
#include "tools/keel/command.h"
#include "tools/keel/stored_length.h"
#include "tools/timing/timing.h"

#include <memory>
#include <optional>
#include <unistd.h>

namespace keel
{

namespace
{

struct Restore {
    std::string name;
    std::string output;
    std::size_t blockSize = 0; // 0: chosen by restoreBlockSize()
    bool force = false;
};

/// Nothing when the agent does not tell it.
std::optional<std::uint64_t> storedLength(const Restore &restore, const Command &command)
{
    const mtTimed timed(MT_TIME_CLIENT);
    std::vector<PieceInfo> pieces(1);
    pieces.front().name = restore.name;
    pieces.front().found = true; // when it is not there, the restore reports it
    addStoredLengths(command.channel, pieces);
    return pieces.front().size;
}

int run(const Restore &restore, const Command &command, Json &result)
{
    checkBlockSize(command, restore.blockSize);
    result["name"] = restore.name;
    if (command.json && tools::isMixed(restore.output, STDOUT_FILENO))
        throw UsageError("--json prints to standard output, which " +
                         tools::printable(restore.output) +
                         " leads to, too; it needs an --output FILE of its own");
    OutputFile output(restore.output,
                      restore.force ? tools::Existing::replace : tools::Existing::keep);
    const auto stored = storedLength(restore, command);
    // Checked before anything is read: later, bytes would have gone out already.
    const std::size_t blockSize = restoreBlockSize(restore.blockSize, stored);
    result["blockSize"] = blockSize;
    tools::Progress progress(restore.name, std::nullopt, command.quiet);
    std::unique_ptr<Channel> channel;
    {
        const mtTimed timed(MT_TIME_CLIENT);
        channel = openChannel(command.channel);
        channel->beginRestore(restore.name, blockSize);
    }
    const auto read = [&](std::span<std::byte> block) {
        const mtTimed timed(MT_TIME_TRANSFER);
        return channel->readBlock(block);
    };
    const auto write = [&](std::span<const std::byte> bytes) {
        const mtTimed timed(MT_TIME_DATABASE);
        output.write(bytes);
        progress.add(bytes.size());
    };
    const std::uint64_t length = restoreStream(read, write, blockSize, stored);
    {
        const mtTimed timed(MT_TIME_CLIENT);
        channel->closePiece();
    }
    {
        const mtTimed timed(MT_TIME_DATABASE);
        output.finish();
    }
    progress.finish();
    reportTransfer(command, result, length, progress.seconds());
    return kExitDone;
}

} // namespace

void addRestore(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("restore", "Give the stream of a backup piece back");
    auto restore = std::make_shared<Restore>();
    verb.addOption("NAME", restore->name, "Name of the piece").required().valueName("");
    verb.addOption("--output,-o", restore->output, "File to write; - is standard output")
        .required()
        .valueName("FILE");
    verb.addFlag("--force,-f", restore->force,
                 "Replace the file if it is there; it keeps mode and owner");
    addBlockSize(verb, restore->blockSize);
    tools::addTimingOption(verb, command.timing);
    addCommonOptions(verb, command);
    verb.footer(
        "Example: keel restore data-monday --output - | tar -t\n"
        "The file appears under its name when all of it is on disk, and not before.\n"
        "Without --block-size it is 256K, or less when the piece is no multiple of that; it need "
        "not be that of the backup, but one that the piece is no multiple of is refused. The last "
        "128 MiB are held back until the end of the piece tells how long the stream is.");
    verb.onChosen([restore, &command] {
        command.verb = "restore";
        command.subject = restore->name;
        command.dataFile = restore->output == "-" ? "/dev/stdout" : restore->output;
        command.run = [restore, &command](Json &result) { return run(*restore, command, result); };
    });
}

} // namespace keel
