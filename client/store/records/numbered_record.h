// How small stored records change although no blob ever does: each state is a blob of its own under
// a number, and the highest number holds.
#ifndef KEEL_CLIENT_STORE_RECORDS_NUMBERED_RECORD_H
#define KEEL_CLIENT_STORE_RECORDS_NUMBERED_RECORD_H

#include "client/blob/blob_store.h"
#include "client/store/records/record.h"
#include "client/store/records/record_seal.h"

#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace arca::store
{

/// A record with successive states at PREFIX/00000001, PREFIX/00000002 ... (eight hexadecimal
/// digits; other names are ignored). Any number of processes may change it; none can undo another's
/// change unseen.
class NumberedRecord
{
public:
    /// `seal` proves each state for its place; without a key nothing is proven.
    /// A state of more than `maxBytes` counts as damaged.
    NumberedRecord(blob::BlobStore &store, std::string prefix, RecordSeal seal = {},
                   std::size_t maxBytes = kMaxRecordBytes)
        : store_(store), prefix_(std::move(prefix)), seal_(seal), maxBytes_(maxBytes)
    {
    }

    struct State {
        std::uint32_t number;
        Bytes bytes; // the envelope, without the digest that proves it
        bool proven = false;
    };

    /// Returns the state with the highest number; an earlier one never stands in for one that is
    /// damaged. Nothing when the record was never written. Errors: damaged, also when it is not
    /// proven.
    Result<std::optional<State>> latest();

    /// Returns the number of the newest state, whether it can be read or not; 0: there is none.
    Result<std::uint32_t> newestNumber();
    /// Returns what the names of its states begin with, without the slash.
    const std::string &place() const { return prefix_; }
    /// Returns the name of the blob that holds the state of that number.
    std::string nameOf(std::uint32_t number) const;

    /// Writes the state after `number`, durably; 0 for the first. `bytes`: an envelope of
    /// frameRecord(). Older states but the one before go, where they can be removed. After an error
    /// other than conflict the state may hold. Errors: conflict when another one was faster, also
    /// one whose state was superseded and removed since, so that its number was free again.
    Result<void> write(std::uint32_t number, ByteView bytes);

    /// As write(), and deletes all states before. The last state stays for good, so that no number
    /// is ever given again: a change that was begun before meets it, however late. States before
    /// that cannot be deleted now stay, as the new one holds: the next change tries again.
    Result<void> end(std::uint32_t number, ByteView bytes);

    /// Deletes the states up to `number`. A reader that was listing them meanwhile may find none,
    /// and has to look once more.
    Result<void> removeUpTo(std::uint32_t number);

    /// Takes the record away, the newest state last: for a record that is never written again, as
    /// its name has an identifier in it that is given once. Fine when there is none.
    Result<void> remove() { return removeUpTo(std::numeric_limits<std::uint32_t>::max()); }

private:
    Result<std::vector<std::uint32_t>> numbers();
    void removeBefore(std::uint32_t newest, const std::vector<std::uint32_t> &numbers);

    blob::BlobStore &store_;
    std::string prefix_;
    RecordSeal seal_;
    std::size_t maxBytes_;
};

} // namespace arca::store

#endif
