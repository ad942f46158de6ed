// What this host remembers of a node's packs, so that one that is mostly needed is not opened to
// be told so: in `packs-<node key>` in the host's cache of the repository. It may be anything: what
// it says is only used to leave a pack as it is. Lost or damaged, each pack is opened once more.
//
// Payload (kind "ARCAPSIZ", version 1): for each pack, ascending: its identifier (16 bytes), its
// revision (4), how many needed blocks are enough for it to stay (4), its length (8).
//
// A value; belongs to one thread.
#ifndef KEEL_CLIENT_STORE_USAGE_PACK_SIZES_H
#define KEEL_CLIENT_STORE_USAGE_PACK_SIZES_H

#include "client/engine/packs/pack_store.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace arca::store
{

struct PackSize {
    engine::PackName which;
    std::uint32_t enough = 0; // with this number of needed blocks, or more, it stays
    std::uint64_t bytes = 0;

    bool isBefore(const PackSize &other) const;
    bool operator==(const PackSize &) const = default;
};

class PackSizes
{
public:
    /// Reads what was remembered; empty where there is nothing, or nothing sound. 32 bytes of
    /// memory for each pack, and as much for each that is kept.
    static PackSizes load(const std::string &directory, const std::string &nodeKey);

    /// Returns what is remembered of it.
    std::optional<PackSize> of(const engine::PackName &which) const;
    /// Keeps a pack for the next save(). Each pack once.
    void keep(const PackSize &size) { kept_.push_back(size); }
    /// Says of the pack that was kept last that fewer blocks are enough. Only after keep().
    void isEnough(std::uint32_t blocks)
    {
        kept_.back().enough = std::min(kept_.back().enough, blocks);
    }
    /// Remembers what was kept, and nothing else, unless that is what was remembered already. Never
    /// fails: what cannot be written (or more than 4 Mi packs) is remembered by this object only.
    void save(const std::string &directory, const std::string &nodeKey);

private:
    std::vector<PackSize> known_; // ascending
    std::vector<PackSize> kept_;
};

Bytes encodePackSizes(std::span<const PackSize> sizes);
/// Takes any bytes: empty when they are no such record.
std::vector<PackSize> parsePackSizes(ByteView bytes);

} // namespace arca::store

#endif
