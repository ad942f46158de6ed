// Any bytes as the files of a host's cache: both are opened, asked and written to, and either
// answer or are thrown away.
#include "client/engine/duplicates/hint_catalogue.h"
#include "client/store/listing/catalogue_file.h"
#include "fuzz/scratch.h"

#include <fstream>
#include <span>

namespace
{

/// With the first bytes that SQLite asks for, or the fuzzer would mostly see files thrown away.
void put(const std::string &path, std::span<const std::uint8_t> bytes)
{
    constexpr std::string_view kFirst{"SQLite format 3", 16};
    std::string content(bytes.begin(), bytes.end());
    if (content.size() >= kFirst.size())
        content.replace(0, kFirst.size(), kFirst);
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(content.data(), static_cast<std::streamsize>(content.size()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using namespace arca;
    const std::string &place = keelfuzz::scratch();
    put(place + "/node.sqlite", {data, size});
    {
        engine::HintCatalogue hints(place, "node");
        const BlockId block{};
        (void)hints.packs();
        (void)hints.packsWith(block, 4);
        engine::PackIndex index;
        index.blocks.resize(3);
        hints.remember(engine::PackId{}, index);
        hints.setComparedAt(hints.comparedAt() + 1);
    }
    put(place + "/objects.sqlite", {data, size});
    static const auto key = SecretKey::from(Bytes(SecretKey::kBytes));
    store::CatalogueFile file(place + "/objects.sqlite", *key);
    if (!file.open())
        return 0;
    std::vector<store::CatalogueRow> rows;
    for (const int first : {0, 1, 255})
        (void)file.rowsUnder(static_cast<std::byte>(first), rows);
    (void)file.isConsistent({});
    rows.clear();
    for (const auto order : {store::CatalogueOrder::inserted, store::CatalogueOrder::name})
        if (file.rowsAfter(order, {}, 512, rows))
            for (const store::CatalogueRow &row : rows)
                (void)file.openRow(row);
    (void)file.change(rows, {});
    return 0;
}
