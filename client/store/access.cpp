// Access rules: see the header.
#include "client/store/access.h"

#include "client/base/text.h"
#include "client/store/node_space.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = "ARCAACCS";
constexpr std::uint32_t kVersion = 1;
constexpr std::string_view kEvery = "/*";
constexpr std::size_t kMaxRules = 1024;

} // namespace

bool AccessRule::admits(const std::string &reader, const std::string &readersOwner) const
{
    return node == reader && (owner.empty() || owner == readersOwner);
}

bool AccessRule::covers(const ObjectName &piece) const
{
    return name.type == piece.type && name.filespace == piece.filespace &&
           (name.highLevel == kEvery || name.highLevel == piece.highLevel) &&
           (name.lowLevel == kEvery || name.lowLevel == piece.lowLevel);
}

Bytes encodeAccessRule(const AccessRule &rule)
{
    ByteWriter payload;
    payload.u32(rule.number);
    payload.u32(rule.name.type);
    for (const std::string *text : {&rule.grantor, &rule.node, &rule.owner, &rule.name.filespace,
                                    &rule.name.highLevel, &rule.name.lowLevel})
        payload.text(*text);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<AccessRule> decodeAccessRule(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion));
    ByteReader reader(payload);
    AccessRule rule;
    rule.number = reader.u32();
    const std::uint32_t type = reader.u32();
    rule.name.type = static_cast<std::uint16_t>(type);
    for (std::string *text : {&rule.grantor, &rule.node, &rule.owner, &rule.name.filespace,
                              &rule.name.highLevel, &rule.name.lowLevel})
        *text = reader.text();
    if (!reader.ok() || rule.number == 0 || type != rule.name.type)
        return Error{ErrorKind::damaged, "an access rule is damaged"};
    return rule;
}

Result<AccessRules> AccessRules::of(blob::BlobStore &store, std::string grantor)
{
    ARCA_TRY(const std::string key, nodeKey(grantor));
    return AccessRules(store, std::move(grantor), "access/" + key + "/");
}

std::string AccessRules::blobNameOf(std::uint32_t number) const
{
    return prefix_ + toHex(std::uint64_t{number}).substr(8);
}

Result<std::vector<AccessRule>> AccessRules::list()
{
    std::vector<std::string> names;
    ARCA_CHECK(store_.list(prefix_, [&](const std::string &name) {
        names.push_back(name);
        return true;
    }));
    std::sort(names.begin(), names.end());
    std::vector<AccessRule> rules;
    for (const std::string &name : names) {
        auto bytes = blob::readWhole(store_, name, kMaxRecordBytes);
        if (!bytes && bytes.error().kind == ErrorKind::notFound)
            continue; // taken back since the listing
        ARCA_TRY(const Bytes record, std::move(bytes));
        ARCA_TRY(AccessRule rule, decodeAccessRule(record));
        // A rule of another node, put here by whatever mishap, must not open anything.
        if (rule.grantor != grantor_ || blobNameOf(rule.number) != name)
            return Error{ErrorKind::damaged,
                         "the access rule in " + name + " is another one than its place says"};
        rules.push_back(std::move(rule));
    }
    return rules;
}

Result<void> AccessRules::add(AccessRule rule)
{
    ARCA_TRY(const auto rules, list());
    const auto same = [&](const AccessRule &known) {
        return known.node == rule.node && known.owner == rule.owner && known.name == rule.name;
    };
    if (std::any_of(rules.begin(), rules.end(), same))
        return {};
    if (rules.size() >= kMaxRules)
        return Error{ErrorKind::badArgument, "a node makes at most 1,024 access rules"};
    rule.grantor = grantor_;
    for (;;) {
        Bytes random(4);
        ARCA_CHECK(fillRandom(random));
        rule.number = ByteReader(random).u32();
        if (rule.number == 0)
            continue;
        auto put = blob::putWhole(store_, blobNameOf(rule.number), encodeAccessRule(rule));
        if (put || put.error().kind != ErrorKind::exists)
            return put;
    }
}

Result<void> AccessRules::remove(std::uint32_t number)
{
    const std::string name = blobNameOf(number);
    auto opened = store_.open(name);
    auto removed = opened ? store_.remove(name, **opened) : Result<void>(opened.error());
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return Error{ErrorKind::notFound,
                     "no access rule has the number " + std::to_string(number)};
    return removed;
}

} // namespace arca::store
