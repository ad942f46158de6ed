// Management classes: see the header.
#include "client/store/nodes/policy.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/store/records/defaults.h"
#include "client/store/records/record_forms.h"

#include <algorithm>
#include <set>

namespace arca::store
{

namespace
{

constexpr std::string_view kKind = form::managementClass.kind;
constexpr std::uint32_t kVersion = form::managementClass.newest;
constexpr std::string_view kPrefix = "classes/";
constexpr std::size_t kMaxName = 30, kMaxPool = 30, kMaxDescription = 255;
constexpr std::size_t kHashBytesInNames = 16;
constexpr int kMaxAttempts = 100;

} // namespace

// Made by each call: an object with memory would be made at the load, when there may be none, and
// destroyed at the exit, when the host may still call.
ManagementClass Policy::standardClass()
{
    return {std::string(kDefaultClass),
            "Pieces are kept until the application deletes them",
            "BACKUPPOOL",
            1,
            kNoLimit,
            false};
}

namespace
{

std::string canonical(std::string_view name)
{
    std::string upper(name);
    std::transform(upper.begin(), upper.end(), upper.begin(), upperAscii);
    return upper;
}

Result<std::string> blobPrefixOf(const std::string &name)
{
    ARCA_TRY(const Sha256 hash, sha256({viewOf("class"), viewOf(name)}));
    return std::string(kPrefix) + toHex(ByteView(hash).first(kHashBytesInNames));
}

Result<void> check(const ManagementClass &known)
{
    const bool named = !known.name.empty() && known.name.size() <= kMaxName &&
                       known.name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.") ==
                           std::string::npos;
    if (!named)
        return Error{ErrorKind::badArgument, "the name of a management class has 1 to 30 letters, "
                                             "digits, '_', '-' and '.', not '" +
                                                 printable(known.name, 40) + "'"};
    if (known.storagePool.empty() || known.storagePool.size() > kMaxPool)
        return Error{ErrorKind::badArgument, "the name of a storage pool has 1 to 30 characters"};
    if (known.description.size() > kMaxDescription)
        return Error{ErrorKind::badArgument, "a description has at most 255 characters"};
    return {};
}

/// What the newest state of a class says; nothing when there is none.
Result<std::optional<ManagementClass>> readState(NumberedRecord &record)
{
    ARCA_TRY(const auto state, record.latest());
    if (!state)
        return std::optional<ManagementClass>();
    ARCA_TRY(ManagementClass known,
             inRecord(record.nameOf(state->number), decodeManagementClass(state->bytes)));
    return std::optional(std::move(known));
}

Error undefined(std::string_view name)
{
    return {ErrorKind::notFound,
            "the management class " + printable(name, kMaxName) + " is not defined"};
}

} // namespace

Bytes encodeManagementClass(const ManagementClass &known)
{
    ByteWriter payload;
    payload.u16(known.retired ? 1 : 0);
    payload.u16(known.versionsKept);
    payload.u16(known.daysKept);
    for (const std::string *text : {&known.name, &known.description, &known.storagePool})
        payload.text(*text);
    return frameRecord(kKind, kVersion, payload.view());
}

Result<ManagementClass> decodeManagementClass(ByteView record)
{
    ARCA_TRY(const ByteView payload, unframeRecord(record, kKind, kVersion));
    ByteReader reader(payload);
    ManagementClass known;
    known.retired = reader.u16() != 0;
    known.versionsKept = reader.u16();
    known.daysKept = reader.u16();
    for (std::string *text : {&known.name, &known.description, &known.storagePool})
        *text = reader.text();
    if (!reader.ok() || !check(known))
        return Error{ErrorKind::damaged, "the record of a management class is damaged"};
    return known;
}

Result<std::string> Policy::placeOf(std::string_view name)
{
    return blobPrefixOf(canonical(name));
}

Result<Policy::Known> Policy::read(const std::string &name, Lost lost)
{
    ARCA_TRY(const std::string prefix, blobPrefixOf(name));
    Known known{NumberedRecord(store_, prefix, seal_), 0, std::nullopt};
    ARCA_TRY(const auto state, name == kDefaultClass && lost == Lost::damaged
                                   ? latestDefault(store_, known.record)
                                   : known.record.latest());
    if (!state)
        return known;
    ARCA_TRY(known.state,
             inRecord(known.record.nameOf(state->number), decodeManagementClass(state->bytes)));
    if (known.state->name != name)
        return Error{ErrorKind::damaged, "the record of management class " + printable(name) +
                                             " is another one than its place says"};
    known.number = state->number;
    return known;
}

Result<std::optional<ManagementClass>> Policy::find(std::string_view name, Retired retired)
{
    const std::string wanted = canonical(name.substr(0, kMaxName + 1));
    ARCA_TRY(const Known known, read(wanted));
    if (!known.state && wanted == kDefaultClass)
        return std::optional(standardClass());
    if (!known.state || (known.state->retired && retired == Retired::left))
        return std::optional<ManagementClass>();
    return known.state;
}

Result<std::vector<ManagementClass>> Policy::list(Retired retired,
                                                  std::vector<std::string> *damaged)
{
    std::set<std::string> prefixes;
    ARCA_CHECK(store_.list(std::string(kPrefix), [&](const std::string &name) {
        prefixes.insert(name.substr(0, name.rfind('/')));
        return true;
    }));
    std::vector<ManagementClass> classes;
    ARCA_TRY(const std::string standard, blobPrefixOf(std::string(kDefaultClass)));
    if (!prefixes.contains(standard)) {
        const auto lost = find(kDefaultClass);
        if (!lost && damaged != nullptr && isUnreadable(lost.error()))
            damaged->push_back(standard);
        else if (!lost)
            return lost.error();
        else
            classes.push_back(**lost);
    }
    for (const std::string &prefix : prefixes) {
        NumberedRecord record(store_, prefix, seal_);
        const auto known = readState(record);
        if (!known && damaged != nullptr && isUnreadable(known.error())) {
            ARCA_TRY(const std::uint32_t newest, record.newestNumber());
            damaged->push_back(record.nameOf(newest));
            continue;
        }
        ARCA_CHECK(known);
        if (*known && (!(*known)->retired || retired == Retired::included) &&
            (*known)->isDefault() == (prefix == standard))
            classes.push_back(**known);
    }
    std::sort(classes.begin(), classes.end(), [](const auto &a, const auto &b) {
        return std::pair(!a.isDefault(), a.name) < std::pair(!b.isDefault(), b.name);
    });
    return classes;
}

Result<void> Policy::define(ManagementClass fresh)
{
    fresh.name = canonical(fresh.name);
    fresh.retired = false;
    ARCA_CHECK(check(fresh));
    const Error known{ErrorKind::exists,
                      "the management class " + fresh.name + " is defined already"};
    ARCA_TRY(Known before, read(fresh.name));
    if (fresh.isDefault() || (before.state && !before.state->retired))
        return known;
    // Else what was said before its deletion would hold again when this state is lost.
    auto written = before.record.end(before.number, encodeManagementClass(fresh));
    if (!written && written.error().kind == ErrorKind::conflict)
        return known;
    return written;
}

/// A lost STANDARD begins again as that of a new repository, with what it keeps said again: what is
/// left out would be the default in the place of what was said before.
Result<void> Policy::expectSaid(const std::function<void(ManagementClass &)> &change)
{
    ARCA_TRY(const bool noted, areDefaultsNoted(store_));
    ManagementClass one = standardClass(), other = standardClass();
    other.versionsKept = static_cast<std::uint16_t>(one.versionsKept + 1);
    other.daysKept = static_cast<std::uint16_t>(one.daysKept - 1);
    change(one);
    change(other);
    if (!noted || (one.versionsKept == other.versionsKept && one.daysKept == other.daysKept))
        return {};
    return Error{ErrorKind::damaged,
                 "the record of the management class STANDARD is lost: say both "
                 "how many versions and how many days it keeps"};
}

Result<void> Policy::change(std::string_view name,
                            const std::function<void(ManagementClass &)> &change)
{
    const std::string wanted = canonical(name.substr(0, kMaxName + 1));
    for (int attempt = 0;; ++attempt) {
        ARCA_TRY(Known known, read(wanted, Lost::none));
        if (!known.state && wanted == kDefaultClass) {
            known.state = standardClass();
            ARCA_CHECK(expectSaid(change));
        }
        if (!known.state || known.state->retired)
            return undefined(name);
        change(*known.state);
        known.state->name = wanted;
        ARCA_CHECK(check(*known.state));
        // Of two states the one before would hold when the newest is lost: only the last stays.
        auto written = known.record.end(known.number, encodeManagementClass(*known.state));
        if (written || written.error().kind != ErrorKind::conflict || attempt == kMaxAttempts)
            return written;
    }
}

Result<void> Policy::writeDefault()
{
    ARCA_TRY(const std::string prefix, blobPrefixOf(std::string(kDefaultClass)));
    NumberedRecord record(store_, prefix, seal_);
    ARCA_TRY(const std::uint32_t newest, record.newestNumber());
    if (newest != 0)
        return {};
    auto written = record.write(0, encodeManagementClass(standardClass()));
    if (!written && written.error().kind == ErrorKind::conflict)
        return {};
    return written;
}

Result<void> Policy::retire(std::string_view name)
{
    if (equalIgnoringCase(name, kDefaultClass))
        return Error{ErrorKind::badArgument,
                     "the management class STANDARD is the default and cannot be deleted"};
    return change(name, [](ManagementClass &known) { known.retired = true; });
}

} // namespace arca::store
