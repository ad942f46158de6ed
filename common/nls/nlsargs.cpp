// What arguments each message takes, generated from the English source.
#include "common/nls/nlsinserts.h"

#include <algorithm>
#include <iterator>

namespace
{
struct ArgumentTypes {
    int number;
    const char *types;
};

constexpr ArgumentTypes table[] = {
#include "nlsargs.inc"
};
} // namespace

const char *nlsArgumentTypes(int msgNum) noexcept
{
    const auto *row = std::lower_bound(
        std::begin(table), std::end(table), msgNum,
        [](const ArgumentTypes &candidate, int number) { return candidate.number < number; });
    return row != std::end(table) && row->number == msgNum ? row->types : nullptr;
}
