// The file of verifying: see the header.
#include "client/store/upkeep/verify_state.h"

#include "client/store/usage/cache_file.h"

#include <sstream>

namespace arca::store
{

namespace
{

constexpr std::string_view kFirstLine = "arca verify 2";
constexpr std::size_t kMaxStateBytes = 4096;

std::string fileOf(const std::string &nodeKey)
{
    return "verify-" + nodeKey;
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
    return parseVerifyState(textOf(readCacheFile(directory, fileOf(nodeKey), kMaxStateBytes)));
}

void saveVerifyState(const std::string &directory, const std::string &nodeKey,
                     const VerifyState &state)
{
    replaceCacheFile(directory, fileOf(nodeKey), viewOf(encodeVerifyState(state)));
}

} // namespace arca::store
