// The records of damage, to and from names and bytes.
#include "client/store/marks/damage.h"

#include "client/base/text.h"
#include "client/store/records/record_forms.h"

#include <algorithm>
#include <charconv>
#include <ctime>

namespace arca::store
{

namespace
{

using engine::DamagedPart;
using engine::DamageKind;

constexpr std::string_view kKind = form::damage.kind;
constexpr std::uint32_t kVersion = form::damage.newest;
constexpr std::size_t kMaxFound = 1000;
constexpr std::string_view kWhole = "whole", kGaps = "gaps";

std::string stemOf(const engine::PackName &pack)
{
    return toHex(pack.id) + "." + std::to_string(pack.revision) + "-";
}

/// All of the text, or nothing.
std::optional<std::uint32_t> numberIn(std::string_view text, int base)
{
    std::uint32_t number = 0;
    const char *const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number, base);
    if (parsed.ec != std::errc() || parsed.ptr != end)
        return std::nullopt;
    return number;
}

} // namespace

Bytes encodeDamage(const DamageRecord &record)
{
    ByteWriter payload;
    payload.raw(record.part.pack);
    payload.u32(record.part.revision);
    payload.u32(static_cast<std::uint32_t>(record.part.kind));
    payload.u32(record.part.frame);
    payload.u64(static_cast<std::uint64_t>(record.foundAt));
    payload.text(std::string_view(record.found).substr(0, kMaxFound));
    return frameRecord(kKind, kVersion, payload.view());
}

Result<DamageRecord> decodeDamage(ByteView bytes)
{
    ARCA_TRY(const ByteView payload, unframeRecord(bytes, kKind, kVersion));
    ByteReader reader(payload);
    DamageRecord record;
    reader.copyInto(record.part.pack);
    record.part.revision = reader.u32();
    const std::uint32_t kind = reader.u32();
    record.part.kind = static_cast<DamageKind>(kind);
    record.part.frame = reader.u32();
    record.foundAt = static_cast<std::int64_t>(reader.u64());
    record.found = reader.text();
    if (!reader.ok() || reader.remaining() != 0 ||
        kind > static_cast<std::uint32_t>(DamageKind::gaps))
        return Error{ErrorKind::damaged, "the record of a damaged part is damaged itself"};
    return record;
}

std::string partText(const DamagedPart &part)
{
    switch (part.kind) {
    case DamageKind::frame:
        return "frame " + std::to_string(part.frame);
    case DamageKind::whole:
        return "its header, index or trailer";
    case DamageKind::gaps:
        break;
    }
    return "blocks that no pack has";
}

std::string DamageRecords::nameOf(const DamagedPart &part) const
{
    std::string suffix(part.kind == DamageKind::whole ? kWhole : kGaps);
    if (part.kind == DamageKind::frame)
        suffix = "f" + toHex(std::uint64_t{part.frame}).substr(8);
    return prefix_ + stemOf({part.pack, part.revision}) + suffix;
}

std::optional<DamagedPart> DamageRecords::partIn(std::string_view blobName) const
{
    const std::string_view file = blobName.substr(blobName.rfind('/') + 1);
    const auto dot = file.find('.');
    const auto dash = file.find('-');
    if (dot == std::string_view::npos || dash == std::string_view::npos || dash < dot)
        return std::nullopt;
    DamagedPart part;
    const auto id = fromHex(file.substr(0, dot));
    const auto revision = numberIn(file.substr(dot + 1, dash - dot - 1), 10);
    if (!id || id->size() != part.pack.size() || !revision)
        return std::nullopt;
    std::copy(id->begin(), id->end(), part.pack.begin());
    part.revision = *revision;
    const std::string_view what = file.substr(dash + 1);
    if (what.starts_with("f")) {
        const auto frame = numberIn(what.substr(1), 16);
        part.frame = frame.value_or(0);
    } else {
        part.kind = what == kWhole ? DamageKind::whole : DamageKind::gaps;
    }
    // Every part has one name.
    if (nameOf(part) != blobName)
        return std::nullopt;
    return part;
}

Result<void> DamageRecords::note(const DamagedPart &part, const std::string &found)
{
    const std::string name = nameOf(part);
    if (blobs_.open(name))
        return {};
    auto put = blob::putWhole(
        blobs_, name, encodeDamage({part, std::time(nullptr), printable(found, kMaxFound)}));
    if (!put && put.error().kind == ErrorKind::exists)
        return {};
    return put;
}

Result<void> DamageRecords::passOnGaps(const engine::PackStore &packs, const DamagedPart &part,
                                       const std::string &found)
{
    if (part.kind != DamageKind::gaps)
        return {};
    ARCA_TRY(const auto revisions, packs.revisionsOf(part.pack));
    if (revisions.empty())
        return {};
    return note({part.pack, *revisions.rbegin(), DamageKind::gaps, 0}, found);
}

Result<engine::DamagedParts> DamageRecords::under(const std::string &prefix) const
{
    engine::DamagedParts parts;
    ARCA_CHECK(blobs_.list(prefix, [&](const std::string &name) {
        if (const auto part = partIn(name))
            parts.add(*part);
        return true;
    }));
    return parts;
}

Result<engine::DamagedParts> DamageRecords::all() const
{
    return under(prefix_);
}

Result<engine::DamagedParts> DamageRecords::of(const engine::PackName &pack) const
{
    return under(prefix_ + stemOf(pack));
}

Result<void> DamageRecords::remove(const DamagedPart &part)
{
    const std::string name = nameOf(part);
    const auto opened = blobs_.open(name);
    auto removed = opened ? blobs_.remove(name, **opened) : Result<void>(opened.error());
    if (!removed && removed.error().kind == ErrorKind::notFound)
        return {};
    return removed;
}

} // namespace arca::store
