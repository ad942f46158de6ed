// keel backup: stores a stream as a piece.
#include "agents/common/maint/mttiming.h"
#include "agents/oracle/common/sbt.h"
#include "tools/common/progress.h"
#include "tools/keel/channel/blocks.h"
#include "tools/keel/channel/failure.h"
#include "tools/keel/channel/files.h"
#include "tools/keel/channel/open_channel.h"
#include "tools/keel/command.h"
#include "tools/timing/timing.h"

#include <memory>
#include <optional>

namespace keel
{

namespace
{

struct Backup {
    std::string name;
    std::string input;
    std::string type;
    PieceAttributes attributes;
    std::size_t blockSize = kDefaultBlockSize;
};

std::optional<std::uint64_t> fileType(const std::string &name)
{
    if (name == "datafile")
        return SBT_FILETYPE_DATAFILE;
    if (name == "archivelog")
        return SBT_FILETYPE_ARCHLOG;
    if (name == "other")
        return SBT_FILETYPE_OTHER;
    return std::nullopt;
}

int run(const Backup &backup, const Command &command, Json &result)
{
    result["name"] = backup.name;
    checkBlockSize(command, backup.blockSize);
    InputFile input(backup.input);
    tools::Progress progress(backup.name, input.size(), command.quiet);
    std::unique_ptr<Channel> channel;
    {
        const mtTimed timed(MT_TIME_CLIENT);
        channel = openChannel(command.channel);
        channel->beginBackup(backup.name, backup.attributes, backup.blockSize);
    }
    const auto read = [&](std::span<std::byte> bytes) {
        const mtTimed timed(MT_TIME_DATABASE);
        const std::size_t count = input.fill(bytes);
        progress.add(count);
        return count;
    };
    const auto write = [&](std::span<std::byte> block) {
        const mtTimed timed(MT_TIME_TRANSFER);
        channel->writeBlock(block);
    };
    const std::uint64_t length = storeStream(read, write, backup.blockSize);
    {
        const mtTimed timed(MT_TIME_CLIENT);
        channel->closePiece();
    }
    progress.finish();
    reportTransfer(command, result, length, progress.seconds());
    result["blockSize"] = backup.blockSize;
    return kExitDone;
}

} // namespace

void addBackup(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("backup", "Store a stream as a backup piece");
    auto backup = std::make_shared<Backup>();
    verb.addOption("NAME", backup->name, "Name of the piece; it must be new")
        .required()
        .valueName("");
    verb.addOption("--input,-i", backup->input, "File to store; - is standard input")
        .required()
        .valueName("FILE");
    addBlockSize(verb, backup->blockSize);
    verb.addOption("--copy", backup->attributes.copy, "Copy number, 1 to 4 (default: 1)")
        .between(1, 4)
        .valueName("N");
    verb.addOption("--database", backup->attributes.database, "Name of the database it is of")
        .valueName("NAME");
    verb.addOption("--type", backup->type, "What it holds")
        .oneOf({"datafile", "archivelog", "other"})
        .valueName("datafile|archivelog|other");
    tools::addTimingOption(verb, command.timing);
    addCommonOptions(verb, command);
    verb.footer(
        "Example: tar -c /srv/data | keel backup data-monday --input -\n"
        "Every byte is on disk when it ends with status 0; else nothing of the piece is there.\n"
        "A file that is cut while it is read fails; what is appended to it meanwhile is stored as "
        "far\n"
        "as it is there when its end is reached.");
    verb.onChosen([backup, &command] {
        backup->attributes.fileType = fileType(backup->type);
        command.verb = "backup";
        command.subject = backup->name;
        command.dataFile = backup->input == "-" ? "/dev/stdin" : backup->input;
        command.run = [backup, &command](Json &result) { return run(*backup, command, result); };
    });
}

} // namespace keel
