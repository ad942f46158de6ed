// Counting and telling.
#include "client/store/upkeep/verify_report.h"

#include "client/base/text.h"
#include "client/store/listing/remembered_name.h"

#include <algorithm>

namespace arca::store
{

namespace
{

constexpr std::size_t kMissingNamed = 100;

} // namespace

void VerifyReport::tell(Checked what, std::string name, std::string reason)
{
    if (watcher_.hurt)
        watcher_.hurt({what, std::move(name), std::move(reason)});
}

void VerifyReport::missing(const Stock &stock)
{
    outcome_.missing = stock.missing.size();
    for (std::size_t i = 0; i < std::min(stock.missing.size(), kMissingNamed); ++i)
        tell(Checked::piece, toHex(stock.missing[i]),
             "it was stored and never purged, and is not there any more");
    outcome_.uncounted = stock.uncounted;
}

void VerifyReport::endStock(bool onlyPacks)
{
    outcome_.onlyPacks = onlyPacks;
    // A round of several runs counts them once.
    if (round_.hurt == 0)
        round_.hurt = outcome_.missing + (onlyPacks ? 1 : 0);
}

void VerifyReport::hurt(const std::string &blobName, Checked what, std::string reason)
{
    ++(what == Checked::record ? outcome_.hurtRecords
       : what == Checked::pack ? outcome_.hurtPacks
                               : outcome_.hurtPieces);
    ++round_.hurt;
    // Some reasons begin with where it was, which the name says already.
    if (const auto at = reason.find(blobName + ": "); at != std::string::npos && at < 32)
        reason.erase(0, at + blobName.size() + 2);
    if (watcher_.hurt)
        tell(what, nameOf(blobName, what), std::move(reason));
}

/// A piece that was acknowledged, and is not there for a restore.
void VerifyReport::quarantined(const std::string &blobName)
{
    ++outcome_.quarantined;
    ++round_.hurt;
    if (watcher_.hurt)
        tell(Checked::piece, nameOf(blobName, Checked::piece),
             "it is damaged and was set aside; arca repair brings it back when it can be read "
             "after all, arca rm --blob gives it up");
    ++progress_.done;
}

void VerifyReport::lostFilespace(const std::string &name)
{
    if (!lostFilespaces_.insert(name).second)
        return;
    ++outcome_.hurtRecords;
    ++round_.hurt;
    tell(Checked::record, name, lostFilespaceText(name));
}

void VerifyReport::read(std::size_t bytes)
{
    progress_.bytes += bytes;
    tellProgress();
}

void VerifyReport::checked(Checked what)
{
    ++(what == Checked::record ? outcome_.records
       : what == Checked::pack ? outcome_.packs
                               : outcome_.pieces);
    ++progress_.done;
    tellProgress();
}

std::string VerifyReport::nameOf(const std::string &blobName, Checked what)
{
    if (what != Checked::piece)
        return blobName;
    if (const auto blob = space_.domain().blobs().open(blobName)) {
        const auto description = readDescription(**blob, space_.domain().manifestKey());
        if (description)
            return description->name.joined();
    }
    const std::string remembered = rememberedName(space_, blobName);
    return remembered.empty() ? blobName : remembered + " (" + blobName + ")";
}

void VerifyReport::tellProgress()
{
    if (watcher_.progress)
        watcher_.progress(progress_);
}

} // namespace arca::store
