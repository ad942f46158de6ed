// Which objects a session may find and read. A value; guarded by the session's mutex.
#ifndef KEEL_CLIENT_API_SESSION_GRANTED_H
#define KEEL_CLIENT_API_SESSION_GRANTED_H

#include "client/store/nodes/access.h"

#include <algorithm>
#include <vector>

namespace arca::api
{

class Granted
{
public:
    /// Covers everything: for a session for its own objects.
    Granted() = default;
    /// Covers the objects that these rules of another node name; all of them admit the session. No
    /// rules cover nothing.
    explicit Granted(std::vector<store::AccessRule> rules) : all_(false), rules_(std::move(rules))
    {
    }

    bool covers(const store::ObjectName &name) const
    {
        return all_ || std::any_of(rules_.begin(), rules_.end(),
                                   [&](const auto &rule) { return rule.covers(name); });
    }

    /// Returns the rules; none in a session for its own objects.
    const std::vector<store::AccessRule> &rules() const { return rules_; }

private:
    bool all_ = true;
    std::vector<store::AccessRule> rules_;
};

} // namespace arca::api

#endif
