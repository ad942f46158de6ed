// Which objects a session may find and read.
#ifndef KEEL_CLIENT_API_GRANTED_H
#define KEEL_CLIENT_API_GRANTED_H

#include "client/store/access.h"

#include <algorithm>
#include <vector>

namespace arca::api
{

class Granted
{
public:
    /// The session's own objects: all of them.
    Granted() = default;
    /// Those of another node that these rules cover, which admit the session.
    explicit Granted(std::vector<store::AccessRule> rules) : all_(false), rules_(std::move(rules))
    {
    }

    bool covers(const store::ObjectName &name) const
    {
        return all_ || std::any_of(rules_.begin(), rules_.end(),
                                   [&](const auto &rule) { return rule.covers(name); });
    }

    /// Of another node's objects only.
    const std::vector<store::AccessRule> &rules() const { return rules_; }

private:
    bool all_ = true;
    std::vector<store::AccessRule> rules_;
};

} // namespace arca::api

#endif
