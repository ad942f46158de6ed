// Searching packs for copies of blocks: see the header.
#include "client/engine/mending/block_search.h"

#include "client/engine/mending/pack_check.h"

namespace arca::engine
{

void BlockSearch::want(const BlockEntry &block)
{
    if (block.id != BlockId{})
        wanted_[block.id].length = block.length;
}

Result<void> BlockSearch::run(const std::function<bool()> &goOn)
{
    std::set<std::pair<PackId, std::uint32_t>> packs;
    ARCA_CHECK(domain_.packs().list([&](const PackName &pack) {
        packs.emplace(pack.id, pack.revision);
        return true;
    }));
    for (const auto &[id, revision] : packs) {
        if (wanted_.empty())
            break;
        if (goOn && !goOn())
            return Error{ErrorKind::stopped, "the search for copies was stopped"};
        look({id, revision});
    }
    return {};
}

void BlockSearch::look(const PackName &pack)
{
    const auto opened = domain_.packs().open(pack);
    const auto index = opened ? (*opened)->readIndex() : Result<PackIndex>(opened.error());
    if (!index)
        return; // gone meanwhile, or damaged: checking it says so
    std::uint32_t block = 0;
    for (std::uint32_t number = 0; number < index->frames.size(); ++number) {
        const std::uint32_t end = block + index->frames[number].blocks;
        if (damaged_.hasFrame(pack, number))
            block = end;
        std::uint32_t offset = 0;
        for (; block < end; ++block) {
            const BlockEntry &entry = index->blocks[block];
            if (entry.dropped)
                continue;
            const auto found = wanted_.find(entry.id);
            if (found != wanted_.end() && found->second.length == entry.length &&
                found->second.copies.size() < kCopiesKept)
                found->second.copies.push_back({pack, number, offset});
            offset += entry.length;
        }
    }
}

bool BlockSearch::openFrameOf(const Copy &copy)
{
    const bool samePack =
        pack_ && pack_->which().id == copy.pack.id && pack_->which().revision == copy.pack.revision;
    if (samePack && frame_ == copy.frame)
        return true;
    frame_.reset();
    if (!samePack) {
        auto opened = domain_.packs().open(copy.pack);
        auto index = opened ? (*opened)->readIndex() : Result<PackIndex>(opened.error());
        if (!index)
            return false;
        pack_ = std::move(opened).value();
        index_ = std::move(index).value();
    }
    if (copy.frame >= index_.frames.size() ||
        !openFrame(*pack_, coder_, copy.frame, index_.frames[copy.frame], sealed_, raw_))
        return false;
    frame_ = copy.frame;
    return true;
}

std::optional<ByteView> BlockSearch::fetch(const BlockEntry &block)
{
    const auto found = wanted_.find(block.id);
    if (block.id == BlockId{} || found == wanted_.end())
        return std::nullopt;
    for (const Copy &copy : found->second.copies) {
        if (!openFrameOf(copy) || std::size_t{copy.offset} + block.length > raw_.size())
            continue;
        const ByteView content = ByteView(raw_).subspan(copy.offset, block.length);
        if (domain_.identify()(content) == block.id)
            return content;
    }
    return std::nullopt;
}

} // namespace arca::engine
