// Access rules: see the header.
#include "client/store/nodes/access.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/nodes/node_registry.h"
#include "client/store/records/record_forms.h"
#include "client/store/space/node_space.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::access.kind;
constexpr std::uint32_t kVersion = form::access.newest;
constexpr std::string_view kEvery = "/*";
constexpr std::size_t kMaxRules = 1024;

/// All of a rule but its mark.
Bytes markedPart(const AccessRule &rule)
{
    ByteWriter part;
    part.u32(rule.number);
    part.u32(rule.name.type);
    for (const std::string *text : {&rule.grantor, &rule.node, &rule.owner, &rule.name.filespace,
                                    &rule.name.highLevel, &rule.name.lowLevel})
        part.text(*text);
    part.raw(rule.readerKey);
    return part.take();
}

Result<Sha256> markOf(const AccessRule &rule, const SecretKey &dataKey)
{
    ARCA_TRY(const SecretKey key, deriveKey(dataKey, "access rule"));
    return hmacSha256(key.view(), markedPart(rule));
}

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

bool AccessRule::namesOne() const
{
    return name.highLevel != kEvery && name.lowLevel != kEvery;
}

Bytes encodeAccessRule(const AccessRule &rule)
{
    ByteWriter payload;
    payload.raw(markedPart(rule));
    payload.raw(rule.mark);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<AccessRule> decodeAccessRule(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion, kVersion));
    ByteReader reader(payload);
    AccessRule rule;
    rule.number = reader.u32();
    const std::uint32_t type = reader.u32();
    rule.name.type = static_cast<std::uint16_t>(type);
    for (std::string *text : {&rule.grantor, &rule.node, &rule.owner, &rule.name.filespace,
                              &rule.name.highLevel, &rule.name.lowLevel})
        *text = reader.text();
    reader.copyInto(rule.readerKey);
    reader.copyInto(rule.mark);
    if (!reader.ok() || reader.remaining() != 0 || rule.number == 0 || type != rule.name.type)
        return Error{ErrorKind::damaged, "an access rule is damaged"};
    return rule;
}

Result<AccessRules> AccessRules::of(blob::BlobStore &store, std::string grantor)
{
    const auto incarnation = NodeRegistry(store).incarnationOf(grantor);
    if (!incarnation && !isUnreadable(incarnation.error()))
        return incarnation.error();
    return of(store, std::move(grantor), incarnation ? *incarnation : 0);
}

Result<AccessRules> AccessRules::of(blob::BlobStore &store, std::string grantor,
                                    std::uint32_t incarnation)
{
    ARCA_TRY(const std::string key, spaceKeyOf(grantor, incarnation));
    Grants grants(store, grantor, "grants/" + key + "/");
    return AccessRules(store, std::move(grantor), "access/" + key + "/", std::move(grants),
                       incarnation);
}

std::string AccessRules::blobNameOf(std::uint32_t number) const
{
    return prefix_ + ruleDigits(number);
}

Result<AccessRule> AccessRules::read(const std::string &name)
{
    ARCA_TRY(const Bytes record, blob::readWhole(store_, name, kMaxRecordBytes));
    ARCA_TRY(AccessRule rule, inRecord(name, decodeAccessRule(record)));
    // A rule of another node, put here by whatever mishap, must not open anything.
    if (rule.grantor != grantor_ || blobNameOf(rule.number) != name)
        return Error{ErrorKind::damaged,
                     "the access rule in " + name + " is another one than its place says"};
    return rule;
}

Result<std::vector<AccessRule>> AccessRules::readAll(std::vector<std::string> &damaged)
{
    std::vector<std::string> names;
    ARCA_CHECK(store_.list(prefix_, [&](const std::string &name) {
        names.push_back(name);
        return true;
    }));
    std::sort(names.begin(), names.end());
    std::vector<AccessRule> rules;
    for (const std::string &name : names) {
        auto rule = read(name);
        if (!rule && rule.error().kind == ErrorKind::notFound)
            continue; // taken back since the listing
        if (!rule && isUnreadable(rule.error())) {
            damaged.push_back(name);
            continue; // it opens nothing, and is in the way of no other one
        }
        ARCA_TRY(rules.emplace_back(), std::move(rule));
    }
    return rules;
}

Result<void> AccessRules::verify(const AccessRule &rule, const SecretKey &dataKey) const
{
    ARCA_TRY(const Sha256 mark, markOf(rule, dataKey));
    if (!equalSecrets(mark, rule.mark))
        return Error{ErrorKind::damaged, "the access rule in " + blobNameOf(rule.number) +
                                             " was not made by node " + printable(grantor_)};
    return {};
}

Result<std::vector<AccessRule>> AccessRules::list(const SecretKey &dataKey,
                                                  std::vector<std::string> *damaged)
{
    std::vector<std::string> bad;
    ARCA_TRY(auto rules, readAll(bad));
    std::vector<AccessRule> good;
    for (AccessRule &rule : rules) {
        const auto proven = verify(rule, dataKey);
        if (!proven && proven.error().kind != ErrorKind::damaged)
            return proven.error();
        if (proven)
            good.push_back(std::move(rule));
        else
            bad.push_back(blobNameOf(rule.number));
    }
    if (damaged != nullptr)
        *damaged = std::move(bad);
    return good;
}

Result<void> AccessRules::add(AccessRule rule, const SecretKey &dataKey)
{
    ARCA_TRY(const auto rules, list(dataKey));
    ARCA_TRY(const auto reader, NodeRegistry(store_).identityOf(rule.node));
    rule.readerKey = reader.value_or(PublicKey{});
    rule.grantor = grantor_;
    const auto same = std::find_if(rules.begin(), rules.end(), [&](const AccessRule &known) {
        return known.node == rule.node && known.owner == rule.owner && known.name == rule.name;
    });
    if (same != rules.end() && (!reader || same->readerKey == *reader))
        return giveKey(*same, dataKey);
    if (rules.size() >= kMaxRules)
        return Error{ErrorKind::badArgument, "a node makes at most 1,024 access rules"};
    ARCA_CHECK(put(rule, dataKey));
    // Whoever was told that access was granted must have it: without its key the rule goes again.
    if (auto given = giveKey(rule, dataKey); !given) {
        (void)remove(rule.number);
        return given;
    }
    if (same != rules.end())
        (void)remove(same->number); // its key is for whom the node was before
    return {};
}

/// Gives it a number that is free.
Result<void> AccessRules::put(AccessRule &rule, const SecretKey &dataKey)
{
    for (;;) {
        Bytes random(4);
        ARCA_CHECK(fillRandom(random));
        rule.number = ByteReader(random).u32();
        if (rule.number == 0)
            continue;
        ARCA_TRY(rule.mark, markOf(rule, dataKey));
        auto written = blob::putWhole(store_, blobNameOf(rule.number), encodeAccessRule(rule));
        if (written || written.error().kind != ErrorKind::exists)
            return written;
    }
}

Result<void> AccessRules::remove(std::uint32_t number)
{
    auto removed = removeBlob(store_, blobNameOf(number));
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return Error{ErrorKind::notFound,
                     "no access rule has the number " + std::to_string(number)};
    // The rule was what counted. A key that stays behind goes when the node next logs on.
    if (removed)
        (void)grants_.removeAll(number);
    return removed;
}

Result<void> AccessRules::removeOf(const std::string &filespace,
                                   const std::function<Result<bool>()> &isMeant)
{
    ARCA_TRY(const State present, state());
    for (const auto &[blobName, stamp] : present) {
        const auto rule = read(blobName);
        if (!rule &&
            (rule.error().kind == ErrorKind::notFound || rule.error().kind == ErrorKind::damaged))
            continue;
        ARCA_CHECK(rule);
        if (rule->name.filespace != filespace)
            continue;
        ARCA_TRY(const bool meant, isMeant());
        if (!meant)
            return {};
        auto removed = remove(rule->number);
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return removed;
    }
    return {};
}

Result<AccessRules::State> AccessRules::state()
{
    State present;
    ARCA_CHECK(store_.listStamped(prefix_, [&](const std::string &name, std::uint64_t stamp) {
        present.emplace_back(name, stamp);
        return true;
    }));
    std::sort(present.begin(), present.end());
    return present;
}

Result<void> AccessRules::giveKey(const AccessRule &rule, const SecretKey &dataKey)
{
    ARCA_TRY(const auto reader, NodeRegistry(store_).identityOf(rule.node));
    const bool unregisteredThen = rule.readerKey == PublicKey{};
    if (!reader || (!unregisteredThen && *reader != rule.readerKey))
        return {};
    ARCA_CHECK(grants_.give(rule.number, rule.node, *reader, dataKey));
    // Whoever took the rule back meanwhile saw no key to remove.
    const auto present = store_.open(blobNameOf(rule.number));
    if (!present && present.error().kind == ErrorKind::notFound)
        (void)grants_.removeAll(rule.number);
    return {};
}

Result<void> AccessRules::complete(const SecretKey &dataKey)
{
    // In this order: a rule is there before its key, so a key whose rule is not listed has none.
    ARCA_TRY(const auto given, grants_.rules());
    ARCA_TRY(const auto made, rulesUnder(store_, prefix_));
    Result<void> outcome;
    const auto note = [&](Result<void> step) {
        if (!step && step.error().kind != ErrorKind::notFound && outcome)
            outcome = std::move(step);
    };
    for (const std::uint32_t number : given)
        if (!made.contains(number))
            note(grants_.removeAll(number));
    for (const std::uint32_t number : made)
        if (!given.contains(number))
            note(completeOne(number, dataKey));
    return outcome;
}

Result<void> AccessRules::completeOne(std::uint32_t number, const SecretKey &dataKey)
{
    ARCA_TRY(const AccessRule rule, read(blobNameOf(number)));
    // Or whoever can write files would be given the key by a rule of his own making.
    ARCA_CHECK(verify(rule, dataKey));
    return giveKey(rule, dataKey);
}

Result<SecretKey> AccessRules::keyFor(const std::string &reader, const std::string &readersOwner,
                                      const SecretKey &identity)
{
    std::vector<std::string> damaged;
    ARCA_TRY(const auto rules, readAll(damaged));
    std::optional<AccessRule> admitting;
    for (const AccessRule &rule : rules) {
        if (!rule.admits(reader, readersOwner))
            continue;
        // A damaged grant, or a rule that another key made, is in the way of no other rule.
        auto key = grants_.find(rule.number, reader, identity);
        const auto proven = !key   ? Result<void>(key.error())
                            : *key ? verify(rule, **key)
                                   : Result<void>();
        if (!proven && !isUnreadable(proven.error()))
            return proven.error();
        if (proven && *key)
            return std::move(**key);
        if (proven)
            admitting = rule;
        else
            damaged.push_back(blobNameOf(rule.number));
    }
    const std::string from = "node " + printable(grantor_), to = "node " + printable(reader);
    if (!admitting && !damaged.empty())
        return Error{ErrorKind::denied, from + " grants no access to " + to +
                                            " by a rule that can be read; damaged is " +
                                            damaged.front() + ", which it must grant again"};
    if (!admitting)
        return Error{ErrorKind::denied, from + " grants no access to " + to};
    ARCA_TRY(const auto given, grants_.rules());
    if (admitting->readerKey != PublicKey{} || given.contains(admitting->number))
        return Error{ErrorKind::denied, from + " granted access to " + to +
                                            " when that had another key; it must grant it again"};
    return Error{ErrorKind::denied, from + " granted access to " + to +
                                        " before that was registered; it takes effect when " +
                                        from + " logs on the next time"};
}

} // namespace arca::store
