// The file of verifying: see the header.
#include "client/store/upkeep/verify_state.h"

#include "client/base/descriptor.h"
#include "client/blob/files/file_layer.h"

#include <cstdio>
#include <fcntl.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace arca::store
{

namespace
{

constexpr std::string_view kFirstLine = "arca verify 2";
constexpr std::size_t kMaxStateBytes = 4096;

std::string pathIn(const std::string &directory, const std::string &nodeKey)
{
    return directory + "/verify-" + nodeKey;
}

bool isSound(const VerifyRound &round)
{
    return round.began >= 0 && round.proven >= 0 && (round.began != 0 || round.last.empty());
}

} // namespace

VerifyState parseVerifyState(std::string_view text)
{
    std::istringstream lines{std::string(text.substr(0, kMaxStateBytes))};
    std::string line;
    if (!std::getline(lines, line) || line != kFirstLine)
        return {};
    VerifyState state;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string depth;
        VerifyRound round;
        fields >> depth >> round.began >> round.proven >> round.hurt >> round.last;
        if (round.last == "-")
            round.last.clear();
        if (!fields || !isSound(round))
            continue;
        if (depth == "structure")
            state.structure = round;
        else if (depth == "data")
            state.data = round;
    }
    return state;
}

std::string encodeVerifyState(const VerifyState &state)
{
    std::ostringstream text;
    const auto put = [&](const char *depth, const VerifyRound &round) {
        text << depth << ' ' << round.began << ' ' << round.proven << ' ' << round.hurt << ' '
             << (round.last.empty() ? "-" : round.last) << '\n';
    };
    text << kFirstLine << '\n';
    put("structure", state.structure);
    put("data", state.data);
    return text.str();
}

VerifyState loadVerifyState(const std::string &directory, const std::string &nodeKey)
{
    // The file layer opens regular files only and waits for none.
    const auto file = blob::systemFiles().open(pathIn(directory, nodeKey));
    if (!file)
        return {};
    Bytes content(kMaxStateBytes);
    const auto count = (*file)->readAt(0, content);
    if (!count)
        return {};
    return parseVerifyState(textOf(ByteView(content).first(*count)));
}

/// Written beside it and renamed, so that whoever is killed leaves the one before. Without a sync:
/// after a loss of power some things are checked once more.
void saveVerifyState(const std::string &directory, const std::string &nodeKey,
                     const VerifyState &state)
{
    if (directory.empty())
        return;
    (void)makeDirectoryAt(AT_FDCWD, directory.substr(0, directory.rfind('/')).c_str());
    (void)makeDirectoryAt(AT_FDCWD, directory.c_str());
    const std::string path = pathIn(directory, nodeKey);
    const std::string fresh = path + "." + std::to_string(getpid());
    blob::FileLayer &files = blob::systemFiles();
    (void)files.unlink(fresh); // of a process that had the number before and was killed
    auto file = files.create(fresh);
    if (!file)
        return;
    if (!(*file)->write(viewOf(encodeVerifyState(state))) ||
        std::rename(fresh.c_str(), path.c_str()) != 0)
        (void)files.unlink(fresh);
}

} // namespace arca::store
