// Writing a blob into a directory store: see the header.
#include "client/blob/directory/directory_writer.h"

#include "client/blob/directory/directory_reader.h"
#include "client/blob/temporary_name.h"

#include <new>

namespace arca::blob
{

DirectoryWriter::DirectoryWriter(WritersStore &store, std::string temporary)
    : store_(store), temporary_(std::move(temporary))
{
}

DirectoryWriter::~DirectoryWriter()
{
    if (!file_ && !parked_)
        return;
    try {
        (void)store_.files().unlink(store_.pathOf(temporary_));
    } catch (const std::bad_alloc &) {
        // A later session removes it: no process holds its lock then.
    }
}

Result<bool> DirectoryWriter::claim()
{
    auto created = store_.files().create(store_.pathOf(temporary_));
    if (!created && created.error().kind == ErrorKind::exists)
        return false;
    ARCA_TRY(file_, std::move(created));
    ARCA_TRY(const bool locked, file_->lock());
    if (!locked)
        return false;
    return file_->hasName();
}

Result<void> DirectoryWriter::append(ByteView bytes)
{
    while (!bytes.empty()) {
        bytes = bytes.subspan(gathered_.take(bytes));
        if (gathered_.isFull()) {
            ARCA_CHECK(file_->write(gathered_.content()));
            gathered_.clear();
        }
    }
    return {};
}

Result<std::unique_ptr<BlobReader>> DirectoryWriter::readBack()
{
    ARCA_CHECK(writeRest());
    ARCA_TRY(const std::uint64_t size, file_->size());
    return std::unique_ptr<BlobReader>(std::make_unique<WrittenReader>(*file_, size));
}

/// The name goes on with that of the claim, which tells others whose lock to look for.
Result<void> DirectoryWriter::park(const BlobWriter &claim)
{
    ARCA_CHECK(writeRest());
    // Now: a file that is opened again may not be told what went wrong before.
    ARCA_CHECK(file_->sync());
    gathered_.release();
    const std::string &owner = static_cast<const DirectoryWriter &>(claim).temporary_;
    std::string parked = parkedName(owner, temporary_);
    ARCA_CHECK(store_.files().moveNew(store_.pathOf(temporary_), store_.pathOf(parked)));
    temporary_ = std::move(parked);
    parked_ = true;
    file_.reset();
    return {};
}

Result<void> DirectoryWriter::commit(const std::string &name, Unsure unsure)
{
    if (parked_) {
        ARCA_TRY(file_, store_.files().openForLocking(store_.pathOf(temporary_), false));
        parked_ = false;
    } else {
        ARCA_CHECK(writeRest());
        ARCA_CHECK(file_->sync());
    }
    ARCA_CHECK(store_.publish(temporary_, name, *file_, unsure));
    file_.reset();
    return {};
}

/// In two portions, so that most of a large rest can go the fast way.
Result<void> DirectoryWriter::writeRest()
{
    const ByteView rest = gathered_.content();
    const ByteView units = rest.first(rest.size() - rest.size() % kTransferUnit);
    if (!units.empty())
        ARCA_CHECK(file_->write(units));
    if (units.size() != rest.size())
        ARCA_CHECK(file_->write(rest.subspan(units.size())));
    gathered_.clear();
    return {};
}

} // namespace arca::blob
