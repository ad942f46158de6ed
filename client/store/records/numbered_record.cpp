// See the header.
#include "client/store/records/numbered_record.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

namespace arca::store
{

std::string NumberedRecord::nameOf(std::uint32_t number) const
{
    char digits[16];
    std::snprintf(digits, sizeof digits, "%08x", number);
    return prefix_ + "/" + digits;
}

Result<std::vector<std::uint32_t>> NumberedRecord::numbers()
{
    std::vector<std::uint32_t> found;
    ARCA_CHECK(store_.list(prefix_ + "/", [&](const std::string &name) {
        std::uint32_t number = 0;
        const char *const end = name.data() + name.size();
        (void)std::from_chars(name.data() + prefix_.size() + 1, end, number, 16);
        if (name == nameOf(number)) // to the letter, or a stray name counts as a state
            found.push_back(number);
        return true;
    }));
    std::sort(found.begin(), found.end());
    return found;
}

Result<std::uint32_t> NumberedRecord::newestNumber()
{
    ARCA_TRY(const auto found, numbers());
    return found.empty() ? 0 : found.back();
}

Result<std::optional<NumberedRecord::State>> NumberedRecord::latest()
{
    // The newest may be superseded and removed between listing and opening it; then there is a
    // newer one to be found.
    for (int attempt = 0;; ++attempt) {
        ARCA_TRY(const auto found, numbers());
        if (found.empty())
            return std::optional<State>();
        auto bytes = blob::readWhole(store_, nameOf(found.back()), maxBytes_);
        if (bytes) {
            const std::string name = nameOf(found.back());
            ARCA_TRY(auto opened, inRecord(name, seal_.open(name, std::move(bytes).value())));
            return std::optional(State{found.back(), std::move(opened.record), opened.proven});
        }
        if (bytes.error().kind != ErrorKind::notFound || attempt == 100)
            return std::move(bytes).error();
    }
}

Result<void> NumberedRecord::write(std::uint32_t number, ByteView bytes)
{
    ARCA_TRY(const Bytes sealed, seal_.seal(nameOf(number + 1), Bytes(bytes.begin(), bytes.end())));
    auto put = blob::putWhole(store_, nameOf(number + 1), sealed);
    if (!put && put.error().kind == ErrorKind::exists)
        return Error{ErrorKind::conflict, "the record " + prefix_ + " was changed meanwhile"};
    ARCA_CHECK(std::move(put));
    // The highest number is never removed. So when this one was free only because later states had
    // come, one of them shows now.
    auto found = numbers();
    if (!found)
        found = numbers(); // what failed in passing must not make a failure of what holds
    ARCA_CHECK(found);
    if (!found->empty() && found->back() > number + 1)
        return Error{ErrorKind::conflict, "the record " + prefix_ + " was changed meanwhile"};
    removeBefore(number + 1, *found);
    return {};
}

Result<void> NumberedRecord::end(std::uint32_t number, ByteView bytes)
{
    ARCA_CHECK(write(number, bytes));
    (void)removeUpTo(number);
    return {};
}

Result<void> NumberedRecord::removeUpTo(std::uint32_t number)
{
    ARCA_TRY(const auto found, numbers());
    for (const std::uint32_t state : found) {
        if (state > number)
            break;
        auto reader = store_.open(nameOf(state));
        auto removed = reader ? store_.remove(nameOf(state), **reader)
                              : Result<void>(std::move(reader).error());
        if (!removed && removed.error().kind != ErrorKind::notFound)
            return removed;
    }
    return {};
}

/// The state before the newest stays, so that whoever lists while a change goes on finds at least
/// one.
void NumberedRecord::removeBefore(std::uint32_t newest, const std::vector<std::uint32_t> &numbers)
{
    for (const std::uint32_t number : numbers) {
        if (number + 1 >= newest)
            continue;
        // A state that cannot be removed now is harmless, and the next change tries again.
        auto reader = store_.open(nameOf(number));
        if (reader)
            (void)store_.remove(nameOf(number), **reader);
    }
}

} // namespace arca::store
