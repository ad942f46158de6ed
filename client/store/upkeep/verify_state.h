// How far verifying has come, from one run to the next: a small text file in this host's cache
// directory of the repository. It may be lost at any time, and then verifying begins again.
//
//   arca verify 2
//   structure <began> <proven> <hurt> <last name that was checked, or ->
//   data      <began> <proven> <hurt> <last name that was checked, or ->
//
// began: when the round that is under way began; proven: when the last round that found nothing
// hurt began; both in seconds since 1970, UTC, 0 when there is none. Whatever a run finds ends what
// is proven, at both depths, until a whole round finds nothing again.
#ifndef KEEL_CLIENT_STORE_UPKEEP_VERIFY_STATE_H
#define KEEL_CLIENT_STORE_UPKEEP_VERIFY_STATE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace arca::store
{

/// A round checks everything once, in a fixed order of the blobs, in one run or in
/// several.
struct VerifyRound {
    std::int64_t began = 0;  // seconds since 1970, UTC, as the next
    std::int64_t proven = 0; // 0: nothing is
    std::uint64_t hurt = 0;  // found in it so far
    std::string last;        // empty: nothing was checked yet
};

struct VerifyState {
    VerifyRound structure;
    VerifyRound data; // of runs that read everything
};

/// Takes any text: what makes no sense counts as never begun.
VerifyState parseVerifyState(std::string_view text);
std::string encodeVerifyState(const VerifyState &state);

/// `directory` may be empty: then nothing is known, and nothing is kept. Saving makes a missing
/// one; what cannot be saved is not reported.
VerifyState loadVerifyState(const std::string &directory, const std::string &nodeKey);
void saveVerifyState(const std::string &directory, const std::string &nodeKey,
                     const VerifyState &state);

} // namespace arca::store

#endif
