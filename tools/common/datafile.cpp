// See datafile.h. Everything that looks random is a hash of the seed and of the block's identity,
// so that a block can be made without those before it.
#include "tools/common/datafile.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>

namespace tools
{

namespace
{

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
__extension__ using u128 = unsigned __int128;

constexpr u32 kBlock = kDatafileBlock;
constexpr u32 kDirectory = 100; // where the row directory begins
constexpr u32 kEnd = kBlock - 4;
constexpr u32 kMostRows = 512;

u64 mix(u64 a, u64 b)
{
    const u128 product = static_cast<u128>(a ^ 0xa0761d6478bd642fULL) * (b ^ 0xe7037ed1a0b428dbULL);
    return static_cast<u64>(product) ^ static_cast<u64>(product >> 64);
}

struct Random {
    u64 state;
    u64 next()
    {
        state += 0xa0761d6478bd642fULL;
        return mix(state, state);
    }
};

/// 0 to 1.
double share(u64 hash)
{
    return static_cast<double>(hash >> 11) * (1.0 / static_cast<double>(1ULL << 53));
}

u8 low(u64 value)
{
    return static_cast<u8>(value);
}

void put16(u8 *at, u64 value)
{
    const auto cut = static_cast<u16>(value);
    std::memcpy(at, &cut, sizeof cut);
}

void put32(u8 *at, u64 value)
{
    const auto cut = static_cast<u32>(value);
    std::memcpy(at, &cut, sizeof cut);
}

/// 4,096 words that look like names.
class Words
{
public:
    Words()
    {
        constexpr std::array syllables = {"an",  "ber", "co",  "den", "el",  "for", "gar",  "hol",
                                          "is",  "jo",  "ka",  "lin", "mar", "nor", "os",   "per",
                                          "qui", "ran", "sto", "ter", "ul",  "ver", "win",  "xa",
                                          "yor", "zen", "ing", "son", "ton", "ley", "ford", "man"};
        Random random{0x5eed};
        for (Word &word : words_) {
            std::string text;
            const u64 count = 2 + random.next() % 3;
            for (u64 i = 0; i < count; ++i)
                text += syllables[random.next() % syllables.size()];
            text.resize(std::min<std::size_t>(text.size(), 15));
            if ((random.next() & 1) != 0)
                text[0] = static_cast<char>(text[0] - 32);
            std::memset(word.text, ' ', sizeof word.text);
            std::memcpy(word.text, text.data(), text.size());
            word.length = text.size();
        }
    }
    /// Writes the word and a blank and returns the place after them. It always writes 16 bytes, so
    /// there must be room for them.
    u8 *append(u8 *at, u64 number) const
    {
        const Word &word = words_[number];
        std::memcpy(at, word.text, sizeof word.text);
        at[word.length] = ' ';
        return at + word.length + 1;
    }

private:
    struct Word {
        char text[16];
        std::size_t length;
    };
    std::array<Word, 4096> words_;
};

const Words &words()
{
    static const Words all;
    return all;
}

u8 *appendBytes(u8 *at, std::initializer_list<u64> bytes)
{
    for (const u64 byte : bytes)
        *at++ = low(byte);
    return at;
}

/// Writes three short texts, common words more often.
u8 *appendTexts(u8 *at, Random &random)
{
    for (int column = 0; column < 3; ++column) {
        const u64 x = random.next();
        const u64 count = 1 + (x & 1) + (column == 2 ? 2 : 0);
        u8 *const length = at++;
        for (u64 i = 0; i < count; ++i) {
            const u64 chosen = (x >> (8 + 12 * i)) & 4095;
            at = words().append(at, chosen * chosen * chosen >> 24);
        }
        --at;
        while (column == 1 && at - length < 25)
            *at++ = ' '; // a column of fixed width
        *length = static_cast<u8>(at - length - 1);
    }
    return at;
}

/// Writes a row: flag, lock, column count, then columns of a length and a value. Returns its
/// length, at most 240.
u32 makeRow(u8 *row, Random &random, u32 number)
{
    static constexpr const char *kStates[] = {"OPEN      ", "SHIPPED   ", "CLOSED    ",
                                              "PENDING   "};
    const u64 a = random.next();
    const u64 b = random.next();
    const u64 c = random.next();
    u8 *at = appendBytes(row, {0x2c, (a & 3) == 0, 9});
    at = appendBytes(at, {5, 0xc4, 1 + number / 1000000 % 100, 1 + number / 10000 % 100,
                          1 + number / 100 % 100, 1 + number % 100}); // a key
    at = appendBytes(at, {7, 120, 120 + (a >> 4) % 6, 1 + number / 6400 % 12, 1 + number / 200 % 28,
                          1 + (a >> 24) % 24, 1 + (a >> 32) % 60, 1 + (a >> 40) % 60}); // a date
    at = appendBytes(at, {4, 0xc3, 1 + (b & 15), 1 + (b >> 8) % 100, 1 + (b >> 16) % 100, 10});
    std::memcpy(at, kStates[(b >> 24) % 4], 10);
    at = appendTexts(at + 10, random);
    *at++ = 8; // a reference: half counter, half opaque
    put32(at, 0x0a000000 + number);
    put32(at + 4, c);
    at += 8;
    *at++ = 16; // a telephone number
    std::memcpy(at, "+00 20 555 ", 11);
    at += 11;
    for (u32 i = 0; i < 5; ++i)
        *at++ = low('0' + ((b >> (28 + 3 * i)) & 7));
    return static_cast<u32>(at - row);
}

u64 folded(const u8 *block)
{
    u64 sum = 0;
    for (u32 i = 0; i < kBlock; i += 8) {
        u64 word = 0;
        std::memcpy(&word, block + i, sizeof word);
        sum ^= word;
    }
    sum ^= sum >> 32;
    return sum ^ sum >> 16;
}

/// Writes header, tail and checksum, after the rest of the block.
void seal(u8 *block, u8 type, u32 address, u64 changeNumber, u8 sequence)
{
    block[0] = type;
    block[1] = 0xa2;
    put16(block + 2, 0);
    put32(block + 4, address);
    put32(block + 8, changeNumber);
    put16(block + 12, changeNumber >> 32);
    block[14] = sequence;
    block[15] = 4;
    put32(block + 16, 0);
    put32(block + kBlock - 4, (changeNumber & 0xffff) << 16 | u64{type} << 8 | sequence);
    put16(block + 16, folded(block));
}

/// The content of a block, and the places of the rows that can change.
struct Rows {
    std::array<u32, kMostRows> at{};
    u32 count = 0;
};

enum class Kind { rows, index, opaque };

void fillOpaque(u8 *block, Random &random)
{
    for (u32 i = kDirectory; i < kEnd; i += 8) {
        const u64 x = random.next();
        std::memcpy(block + i, &x, std::min(8U, kEnd - i));
    }
}

/// Fills the block with ascending keys and row identifiers.
void fillIndex(u8 *block, Random &random, u64 id, u32 address, Rows &rows)
{
    auto key = static_cast<u32>(id * 300);
    u32 entries = 0;
    u32 at = kEnd;
    std::memset(block + 276, 0, kBlock - 276);
    while (at > kDirectory + 2 * 420 + 600) {
        const u64 x = random.next();
        key += 1 + static_cast<u32>(x & 7);
        at -= 15;
        u8 *behind =
            appendBytes(block + at, {0, 0, 5, 0xc4, 1 + key / 1000000 % 100, 1 + key / 10000 % 100,
                                     1 + key / 100 % 100, 1 + key % 100, 6});
        put32(behind, address - 5000 + ((x >> 8) & 4095));
        put16(behind + 4, (x >> 24) & 63);
        if (entries < kMostRows)
            rows.at[entries] = at;
        ++entries;
    }
    rows.count = std::min(entries, 400U);
}

void fillRows(u8 *block, Random &random, u64 id, Rows &rows)
{
    constexpr u32 kMost = 110;
    u8 row[320];
    u32 at = kEnd;
    const u32 lowest = kDirectory + 220 + 400 + static_cast<u32>(random.next() % 900);
    while (rows.count < kMost) {
        const u32 length = makeRow(row, random, static_cast<u32>(id * 64) + rows.count);
        if (at < lowest + length)
            break;
        at -= length;
        std::memcpy(block + at, row, length);
        rows.at[rows.count++] = at;
    }
    std::memset(block + 276, 0, at > 276 ? at - 276 : 0);
}

/// Writes the transaction slots and the content of the kind, and returns the rows that can change.
Rows fill(u8 *block, Kind kind, u64 id, u32 address, u64 changeNumber, Random &random)
{
    Rows rows;
    std::memset(block + 20, 0, 256);
    put32(block + 20, kind == Kind::rows ? 1 : 2);
    put32(block + 24, 70000 + id / 8192);
    put32(block + 28, changeNumber);
    block[36] = 2;
    for (u32 i = 0; i < 2; ++i) {
        const u64 x = random.next();
        u8 *slot = block + 44 + std::size_t{24} * i;
        put16(slot, x & 31);
        put32(slot + 2, (x >> 8) & 0xffff);
        put32(slot + 8, 0x00c00000 + ((x >> 32) & 0xfff));
        slot[16] = 0x20;
        put32(slot + 18, changeNumber - i * 17);
    }
    if (kind == Kind::opaque)
        fillOpaque(block, random);
    else if (kind == Kind::index)
        fillIndex(block, random, id, address, rows);
    else
        fillRows(block, random, id, rows);
    for (u32 i = 0; i < rows.count; ++i)
        put16(block + kDirectory + std::size_t{2} * i, rows.at[i]);
    put16(block + 92, rows.count);
    return rows;
}

struct Version {
    u64 changeNumber;
    u8 sequence;
};

/// Changes a block as a day's work does.
Version change(u8 *block, Kind kind, const Rows &rows, u64 hash, u32 day)
{
    Random random{hash};
    Version version{};
    version.changeNumber = 0x20000000ULL + u64{day} * 0x1000000 + (random.next() & 0xffffff);
    version.sequence = low(1 + (random.next() & 7));
    const u64 slot = random.next() & 1;
    const u64 x = random.next();
    put16(block + 44 + 24 * slot, x & 31);
    put32(block + 46 + 24 * slot, (x >> 8) & 0xffff);
    put32(block + 62 + 24 * slot, version.changeNumber);
    put32(block + 28, version.changeNumber);
    const u64 count = 1 + random.next() % 4;
    for (u64 i = 0; i < count; ++i) {
        const u64 y = random.next();
        if (rows.count == 0) {
            std::memcpy(block + 512 + random.next() % 7000, &y, 8);
            continue;
        }
        u8 *row = block + rows.at[random.next() % rows.count];
        if (kind != Kind::rows) {
            std::memcpy(row + 9, &y, 6);
            continue;
        }
        row[1] = low(1 + slot);
        std::memcpy(row + 11, &y, 7);
        row[19] = low(1 + (y & 15));
        row[20] = low(1 + (y >> 8) % 100);
        row[21] = low(1 + (y >> 16) % 100);
    }
    return version;
}

} // namespace

Datafile::Datafile(const DatafileSettings &settings) : settings_(settings)
{
    static_cast<void>(words());
    settings_.cluster = std::max(settings_.cluster, 1U);
    settings_.files = std::max(settings_.files, 1U);
    settings_.burst = std::max(settings_.burst, 1U);
    layOut();
}

bool Datafile::changes(std::uint64_t id, std::uint32_t day) const
{
    return day != 0 && share(mix(mix(settings_.seed * 0x9e37 + day, id / settings_.cluster), 77)) <
                           settings_.rate / 100.0;
}

void Datafile::makeHeader(std::uint8_t *block) const
{
    std::memset(block, 0, kBlock);
    std::snprintf(reinterpret_cast<char *>(block) + 64, 200,
                  "PIECE HEADER seed %llu day %u blocks %llu",
                  static_cast<unsigned long long>(settings_.seed), settings_.day,
                  static_cast<unsigned long long>(layout_.size()));
    seal(block, 0x13, 1U << 22 | 1, 0x30000000ULL + settings_.day, 1);
}

void Datafile::makeBlock(std::uint8_t *block, const Place &place) const
{
    const u64 id = place.id;
    const u64 seed = settings_.seed;
    Random random{mix(seed, id * 2 + 1)};
    const u32 address = (place.file + 1) << 22 | static_cast<u32>(id & 0x3fffff);
    const u64 extent = mix(seed ^ 0xe, id / 16);
    const bool unused = place.born == 0 && share(extent) < settings_.empty / 100.0;
    u64 changeNumber = 0x10000000ULL + random.next() % 0x8000000;
    std::vector<u32> days;
    for (u32 day = place.born + 1; day <= settings_.day; ++day) {
        if (changes(id, day))
            days.push_back(day);
    }
    if (unused && days.empty()) { // half of them never formatted
        std::memset(block, 0, kBlock);
        if ((extent & 1) != 0)
            seal(block, 0, address, 0, 1);
        return;
    }
    if (place.born != 0)
        changeNumber = 0x20000000ULL + u64{place.born} * 0x1000000 + id % 0x1000;
    const u64 segment = mix(seed ^ 0x77, id / 64) % 100;
    const Kind kind = segment < 84 ? Kind::rows : segment < 96 ? Kind::index : Kind::opaque;
    const Rows rows = fill(block, kind, id, address, changeNumber, random);
    Version version{changeNumber, low(1 + (changeNumber & 3))};
    for (const u32 day : days)
        version = change(block, kind, rows, mix(mix(seed, id), day), day);
    seal(block, kind == Kind::opaque ? 0x28 : 0x06, address, version.changeNumber,
         version.sequence);
}

void Datafile::make(std::uint64_t number, std::span<std::byte, kDatafileBlock> block) const
{
    auto *bytes = reinterpret_cast<std::uint8_t *>(block.data());
    if (settings_.header && number == 0)
        makeHeader(bytes);
    else
        makeBlock(bytes, layout_[number - (settings_.header ? 1 : 0)]);
}

std::vector<Datafile::Place> Datafile::placesOf(std::uint32_t file) const
{
    const u64 all = settings_.bytes / kBlock;
    const u64 from = all * file / settings_.files;
    const u64 to = all * (file + 1) / settings_.files;
    std::vector<std::pair<u64, Place>> extents;
    for (u32 day = 1; day <= settings_.day && to > from; ++day) {
        for (u64 k = file; k < settings_.inserts; k += settings_.files) {
            Random random{mix(settings_.seed ^ 0xabc, day * u64{1000} + k)};
            extents.emplace_back(
                from + random.next() % (to - from),
                Place{all + (day * u64{64} + k) * settings_.insertBlocks, file, day});
        }
    }
    std::ranges::stable_sort(extents, {}, [](const auto &extent) { return extent.first; });
    std::vector<Place> places;
    auto extent = extents.begin();
    for (u64 block = from; block < to; ++block) {
        for (; extent != extents.end() && extent->first == block; ++extent) {
            for (u64 i = 0; i < settings_.insertBlocks; ++i)
                places.push_back({extent->second.id + i, file, extent->second.born});
        }
        places.push_back({block, file, 0});
    }
    return places;
}

void Datafile::layOut()
{
    std::vector<std::vector<Place>> files;
    for (u32 file = 0; file < settings_.files; ++file)
        files.push_back(placesOf(file));
    if (files.size() == 1) {
        layout_ = std::move(files.front());
        return;
    }
    std::vector<std::size_t> done(files.size());
    Random random{mix(settings_.seed ^ 0xfeed, settings_.day)};
    for (std::size_t open = static_cast<std::size_t>(
             std::ranges::count_if(files, [](const auto &file) { return !file.empty(); }));
         open != 0;) {
        const std::size_t file = random.next() % files.size();
        const auto &places = files[file];
        if (done[file] == places.size())
            continue;
        for (u32 i = 0; i < settings_.burst && done[file] < places.size(); ++i)
            layout_.push_back(places[done[file]++]);
        open -= done[file] == places.size() ? 1 : 0;
    }
}

bool isSoundDatafileBlock(std::span<const std::byte, kDatafileBlock> block)
{
    const bool zero =
        std::ranges::all_of(block, [](std::byte byte) { return byte == std::byte{}; });
    const auto *bytes = reinterpret_cast<const u8 *>(block.data());
    return zero || ((folded(bytes) & 0xffff) == 0 && bytes[1] == 0xa2);
}

} // namespace tools
