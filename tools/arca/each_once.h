// Operands that say the same twice. Any thread.
#ifndef KEEL_TOOLS_ARCA_EACH_ONCE_H
#define KEEL_TOOLS_ARCA_EACH_ONCE_H

#include <algorithm>
#include <vector>

namespace arca::tool
{

/// Returns the values in their order, each where it comes first: what is done for the first needs
/// not, and cannot, be done for the second.
template <class Value> std::vector<Value> eachOnce(const std::vector<Value> &values)
{
    std::vector<Value> once;
    for (const Value &value : values)
        if (std::ranges::find(once, value) == once.end())
            once.push_back(value);
    return once;
}

} // namespace arca::tool

#endif
