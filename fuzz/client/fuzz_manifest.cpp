// Any bytes as the parts of a manifest: header, tail, and what its sealed parts hold. The runs that
// are taken must survive being written again.
#include "client/store/manifest_format.h"

#include <algorithm>
#include <cstdlib>

using namespace arca;
using namespace arca::store;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const ByteView input = std::as_bytes(std::span(data, size)).subspan(1);
    switch (data[0] % 4) {
    case 0:
        (void)parseManifestHeader(input.first(std::min(input.size(), kManifestHeaderBytes)));
        if (input.size() >= kManifestHeaderBytes + kManifestTailBytes)
            (void)parseManifestTail(input.first(kManifestHeaderBytes),
                                    input.last(kManifestTailBytes), input.size());
        break;
    case 1:
        if (const auto description = parseDescription(input)) {
            const Bytes again = encodeDescription(*description);
            if (!std::equal(again.begin(), again.end(), input.begin(), input.end()))
                std::abort();
        }
        break;
    case 2:
        (void)parseEnd(input);
        break;
    default:
        if (const auto runs = parseRuns(input)) {
            const auto again = encodeRuns(*runs);
            const auto reread =
                again ? parseRuns(*again) : Result<std::vector<engine::Run>>(again.error());
            if (!reread || *reread != *runs)
                std::abort();
        }
    }
    return 0;
}
