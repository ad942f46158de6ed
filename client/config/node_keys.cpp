// The file of kept node passwords: see the header, which numbers what must stay true.
#include "client/config/node_keys.h"

#include "client/base/crypto/hash.h"
#include "client/base/text.h"
#include "client/blob/directory/lock_wait.h"
#include "client/config/root_file.h"

#include <cstdio>
#include <filesystem>

namespace arca::config
{

namespace
{

constexpr std::uint64_t kMaxFileBytes = std::uint64_t{1} << 20;
constexpr std::string_view kPreamble =
    "# Node passwords kept by the storage client. Whoever can read this file can act as these\n"
    "# nodes: keep its mode 0600, and keep a copy of it in a safe place.\n";

/// Calls `visit` with each line, its line feed included.
template <class Visit> void eachLine(std::string_view text, Visit visit)
{
    while (!text.empty()) {
        const auto end = text.find('\n');
        const std::size_t length = end == std::string_view::npos ? text.size() : end + 1;
        visit(text.substr(0, length));
        text = text.substr(length);
    }
}

/// Returns the password of a line that belongs to the node; empty for any other line.
std::string_view passwordIn(std::string_view line, const std::string &uuid, const std::string &node)
{
    line = trimmed(line);
    const auto first = line.find(' ');
    const auto second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    if (second == std::string_view::npos || line.substr(0, first) != uuid ||
        line.substr(second + 1) != node)
        return {};
    return line.substr(first + 1, second - first - 1);
}

} // namespace

Result<std::string> NodeKeys::read() const
{
    ARCA_TRY(const auto file, blob::systemFiles().open(path_));
    ARCA_TRY(const std::uint64_t size, file->size());
    if (size > kMaxFileBytes)
        return Error{ErrorKind::io, path_ + " has more than 1 MiB"};
    std::string text(static_cast<std::size_t>(size), '\0');
    ARCA_TRY(const std::size_t got, file->readAt(0, std::as_writable_bytes(std::span(text))));
    text.resize(got);
    return text;
}

Result<std::string>
NodeKeys::find(const std::string &uuid, const std::string &node,
               const std::function<Result<void>(const std::string &)> &prove) const
{
    std::string before;
    for (;;) {
        auto text = read();
        if (!text) {
            Error failure = std::move(text).error();
            failure.kind = ErrorKind::noPassword;
            return inContext(std::move(failure), "the kept password of node " + printable(node));
        }
        auto answer = findIn(*text, uuid, node, prove);
        // Another process may have changed the password after the file was read and before it was
        // proved. Passwords that failed twice from the same file are wrong.
        const bool settled = answer || *text == before;
        wipe(before);
        before = std::move(*text);
        if (settled) {
            wipe(before);
            return answer;
        }
    }
}

Result<std::string>
NodeKeys::findIn(std::string_view text, const std::string &uuid, const std::string &node,
                 const std::function<Result<void>(const std::string &)> &prove) const
{
    Result<std::string> answer = Error{
        ErrorKind::noPassword, "no password of node " + printable(node) + " is kept in " + path_};
    eachLine(text, [&](std::string_view line) {
        std::string password(passwordIn(line, uuid, node));
        if (password.empty() || answer)
            return;
        if (auto proved = prove(password); proved) {
            answer = std::move(password);
        } else {
            wipe(password);
            answer = std::move(proved).error();
        }
    });
    return answer;
}

/// Returns where the file is, behind links: an administrator may have put it elsewhere.
Result<std::string> NodeKeys::place() const
{
    constexpr int kMostLinks = 40;
    std::filesystem::path place = path_;
    std::error_code error;
    for (int links = 0; std::filesystem::is_symlink(place, error); ++links) {
        if (links == kMostLinks)
            return Error{ErrorKind::io, path_ + " is behind too many symbolic links"};
        const auto next = std::filesystem::read_symlink(place, error);
        if (error)
            return blob::fromErrno(error.value(), "reading the symbolic link", place.string());
        place = place.parent_path() / next; // next alone when it is absolute
    }
    return place.string();
}

class NodeKeys::Turn
{
public:
    explicit Turn(std::unique_ptr<blob::File> locked) : file_(std::move(locked))
    {
        file_->setNote(blob::lockNote("changing kept passwords"));
    }
    /// What it said of its holder would be wrong from now on.
    ~Turn() { file_->setNote({}); }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

private:
    std::unique_ptr<blob::File> file_;
};

Result<std::unique_ptr<NodeKeys::Turn>> NodeKeys::lock() const
{
    ARCA_TRY(const std::string kept, place());
    const std::string path = kept + ".lock";
    ARCA_TRY(auto file, blob::systemFiles().openForLocking(path, true));
    giveToOwnerOf({kept, optionFile_}, path);
    const auto attempt = [&]() -> Result<std::unique_ptr<Turn>> {
        ARCA_TRY(const bool mine, file->lock());
        return mine ? std::make_unique<Turn>(std::move(file)) : nullptr;
    };
    const auto held = [&] {
        return Error{ErrorKind::conflict, "the passwords in " + kept + " are being changed by " +
                                              blob::holderOfLock(*file) + ", which holds " + path +
                                              "; try again later, or end that process"};
    };
    return blob::waitForLock<Turn>(attempt, held, patience_);
}

Result<bool> NodeKeys::introduce(const std::string &uuid, const std::string &node,
                                 const Introduction &steps) const
{
    ARCA_TRY(const auto turn, lock());
    ARCA_TRY(const bool registered, steps.isRegistered());
    if (registered) {
        ARCA_TRY(std::string password, find(uuid, node, steps.prove));
        wipe(password);
        return false;
    }
    ARCA_TRY(std::string password, steps.make());
    const auto isIt = [&](std::string_view kept) { return kept == password; };
    // What is kept already may be about to hold, by a process that the lock does not show.
    auto done = write(uuid, node, [](std::string_view) { return true; }, {password});
    if (done) {
        done = steps.enrol(password);
        // An old line that cannot be dropped now is dropped by the next change.
        if (done)
            (void)write(uuid, node, isIt, {});
        else if (done.error().kind == ErrorKind::exists)
            (void)write(uuid, node, std::not_fn(isIt), {}); // another process registered it
    }
    wipe(password);
    ARCA_CHECK(std::move(done));
    return true;
}

Result<void> NodeKeys::keep(const std::string &uuid, const std::string &node,
                            const std::string &password,
                            const std::function<Result<void>(const std::string &)> &prove) const
{
    ARCA_TRY(const auto turn, lock());
    ARCA_CHECK(prove(password));
    return write(uuid, node, {password});
}

Result<void> NodeKeys::forget(const std::string &uuid, const std::string &node,
                              const std::function<Result<void>(const std::string &)> &prove) const
{
    auto text = read();
    if (!text && text.error().kind == ErrorKind::notFound)
        return {};
    ARCA_TRY(std::string kept, std::move(text));
    wipe(kept);
    ARCA_TRY(const auto turn, lock());
    // The name may have been given to a new node since: its password stays, and one that could not
    // be tried.
    const auto mayHold = [&](std::string_view line) {
        std::string password(line);
        const auto proved = prove(password);
        wipe(password);
        return proved || proved.error().kind != ErrorKind::authentication;
    };
    return write(uuid, node, mayHold, {});
}

Result<void> NodeKeys::replace(const std::string &uuid, const std::string &node,
                               const std::string &fresh,
                               const std::function<Result<void>(const std::string &)> &prove,
                               const std::function<Result<void>(const std::string &)> &change) const
{
    ARCA_TRY(const auto turn, lock());
    ARCA_TRY(std::string holding, find(uuid, node, prove));
    auto done = write(uuid, node, {holding, fresh});
    if (done)
        done = change(holding);
    wipe(holding);
    ARCA_CHECK(std::move(done));
    // The password is changed already. An old line that cannot be dropped now is dropped by the
    // next change.
    (void)write(uuid, node, {fresh});
    return {};
}

Result<void> NodeKeys::recover(const std::string &uuid, const std::string &node,
                               const std::string &fresh,
                               const std::function<Result<void>(const std::string &)> &prove,
                               const std::function<Result<void>()> &change) const
{
    ARCA_TRY(const auto turn, lock());
    auto holding = find(uuid, node, prove);
    if (!holding && holding.error().kind != ErrorKind::noPassword &&
        holding.error().kind != ErrorKind::authentication)
        return std::move(holding).error();
    auto done = holding ? write(uuid, node, {*holding, fresh}) : write(uuid, node, {fresh});
    if (holding)
        wipe(*holding);
    if (done)
        done = change();
    ARCA_CHECK(std::move(done));
    // As in replace().
    (void)write(uuid, node, {fresh});
    return {};
}

/// Replaces the passwords of the node in the file with these. The caller holds the lock.
Result<void> NodeKeys::write(const std::string &uuid, const std::string &node,
                             std::initializer_list<std::string_view> passwords) const
{
    return write(
        uuid, node, [](std::string_view) { return false; }, passwords);
}

/// Leaves of the node's passwords in the file those for which `stays` says so, and adds these. The
/// caller holds the lock.
Result<void> NodeKeys::write(const std::string &uuid, const std::string &node,
                             const std::function<bool(std::string_view)> &stays,
                             std::initializer_list<std::string_view> passwords) const
{
    ARCA_TRY(const std::string file, place());
    auto old = read();
    if (!old && old.error().kind != ErrorKind::notFound)
        return std::move(old).error();
    std::string text;
    text.reserve(2 * kMaxFileBytes); // growing would leave copies of the passwords behind
    text = kPreamble;
    if (old) {
        eachLine(*old, [&](std::string_view line) {
            const std::string_view password = passwordIn(line, uuid, node);
            if (!line.starts_with('#') && (password.empty() || stays(password)))
                text += line;
        });
        wipe(*old);
    }
    if (!text.ends_with('\n'))
        text += '\n';
    for (const std::string_view password : passwords)
        text.append(uuid).append(" ").append(password).append(" ").append(node).append("\n");
    auto written = put(file, text);
    wipe(text);
    return written;
}

/// Writes the file durably. The caller holds the lock, so `.new` has one writer.
Result<void> NodeKeys::put(const std::string &file, const std::string &text) const
{
    blob::FileLayer &files = blob::systemFiles();
    const std::string fresh = file + ".new";
    (void)files.unlink(fresh); // of an attempt that was interrupted
    {
        ARCA_TRY(const auto made, files.create(fresh));
        ARCA_CHECK(made->write(viewOf(text)));
        ARCA_CHECK(made->sync());
        giveToOwnerOf({file, optionFile_}, fresh);
    }
    if (std::rename(fresh.c_str(), file.c_str()) != 0)
        return blob::fromErrno(errno, "renaming", fresh);
    const auto slash = file.rfind('/');
    return files.syncDirectory(slash == std::string::npos ? "." : file.substr(0, slash + 1));
}

} // namespace arca::config
