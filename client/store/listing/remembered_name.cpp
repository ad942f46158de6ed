// See remembered_name.h. A row is found by what the blob's name says of it: the hash of the piece's
// name, or the identifier of an inactive one, which begins with the same byte.
#include "client/store/listing/remembered_name.h"

#include "client/base/text.h"
#include "client/base/thread.h"
#include "client/store/listing/catalogue_file.h"

#include <algorithm>
#include <filesystem>

namespace arca::store
{

namespace
{

/// The last part of the blob's name, without the change that an inactive one came with or the time
/// of a removal; of one in the quarantine that of its name before.
Bytes digitsIn(const std::string &blobName)
{
    auto last = std::string_view(blobName).substr(blobName.rfind('/') + 1);
    if (blobName.starts_with("quarantine/"))
        last = last.substr(last.find('-') + 1);
    const auto digits = fromHex(last.substr(0, last.find_first_of(".-")));
    return digits ? *digits : Bytes();
}

bool isMeant(const CatalogueRow &row, ByteView digits)
{
    if (digits.size() == row.hash.size())
        return std::ranges::equal(row.hash, digits);
    PieceId id = 0;
    for (const std::byte digit : digits)
        id = id << 8 | std::to_integer<PieceId>(digit);
    return row.id == id && digits.size() == sizeof id;
}

/// `row` without what is sealed.
std::string nameIn(CatalogueFile &file, const CatalogueRow &row)
{
    std::vector<CatalogueRow> rows;
    const CataloguePosition before{true, row.hash, row.inserted, row.id - 1, true};
    if (!file.rowsAfter(CatalogueOrder::name, before, 2, rows))
        return {};
    for (const CatalogueRow &one : rows) {
        if (one.id != row.id || one.inactive != row.inactive)
            continue;
        const auto piece = file.openRow(one);
        return piece ? piece->description.name.joined() : std::string();
    }
    return {};
}

} // namespace

std::string cataloguePathOf(NodeSpace &space)
{
    const HostCache &cache = space.domain().cache();
    return cache.exists() ? cache.directory() + "/objects-" + space.domain().nodeKey() + ".sqlite"
                          : std::string();
}

Result<SecretKey> catalogueKeyOf(const NodeSpace &space)
{
    return deriveKey(space.dataKey(), "object catalogue");
}

std::string rememberedName(NodeSpace &space, const std::string &blobName)
{
    const Bytes digits = digitsIn(blobName);
    const std::string path = cataloguePathOf(space);
    const auto key = catalogueKeyOf(space);
    std::error_code error;
    if (digits.empty() || path.empty() || !key || !std::filesystem::exists(path, error))
        return {};
    std::string name;
    onThreadOfOurs([&] {
        CatalogueFile file(path, *key);
        std::vector<CatalogueRow> rows;
        if (!file.open() || !file.rowsUnder(digits.front(), rows))
            return;
        const auto row = std::ranges::find_if(
            rows, [&](const CatalogueRow &one) { return isMeant(one, digits); });
        if (row != rows.end())
            name = nameIn(file, *row);
    });
    return name;
}

} // namespace arca::store
