// See context_channel.h.
#include "tools/keel/channel/context_channel.h"

#include "tools/common/text.h"
#include "tools/keel/channel/failure.h"

#include <charconv>
#include <string_view>
#include <type_traits>

#include <fmt/format.h>

namespace keel
{

namespace
{

/// Returns a text for a failure that the agent has none for.
const char *meaning(std::uint32_t code)
{
    switch (code) {
    case SBT_NOT_FOUND:
        return "there is no such piece";
    case SBT_EXISTS:
        return "a piece of that name is there already, or cannot be looked for";
    case SBT_END_OF_FILE:
        return "the piece has no more data";
    default:
        return "the agent could not do it";
    }
}

/// The agent takes strings that it may write to, in lists that end at a null pointer.
std::vector<char *> nameList(std::vector<std::string> &names)
{
    std::vector<char *> list;
    for (std::string &name : names)
        list.push_back(name.data());
    list.push_back(nullptr);
    return list;
}

/// Returns 2105 for a text that begins with RBS2105S: only the text carries the storage client's
/// code.
std::uint32_t reasonIn(const std::string &text)
{
    constexpr std::string_view kPrefix = "RBS";
    std::uint32_t reason = 0;
    if (text.starts_with(kPrefix))
        std::from_chars(text.data() + kPrefix.size(), text.data() + text.size(), reason);
    return reason;
}

std::uint64_t numberAt(const void *value)
{
    return value ? *static_cast<const std::uint64_t *>(value) : 0;
}

std::string textAt(const void *value)
{
    return value ? static_cast<const char *>(value) : "";
}

} // namespace

ContextChannel::ContextChannel(const ChannelOptions &options) : agent_(options)
{
    const Agent::Offer offer = agent_.initialise();
    if (!offer.table || offer.contextSize == 0)
        throw Failure(fmt::format("{} did not hand out its entry points", agent_.library()));
    contextSize_ = offer.contextSize;
    takeEntries(offer.table);
    handOverContext(options);
}

void ContextChannel::takeEntries(void *const *table)
{
    const auto take = [&](auto &entry, sbtFunctionIndex index) {
        if (!table[index])
            throw Failure(fmt::format("{} lacks entry point {}", agent_.library(), int{index}));
        entry = reinterpret_cast<std::remove_reference_t<decltype(entry)>>(table[index]);
    };
    take(entries_.backup, SBT_FN_BACKUP);
    take(entries_.close2, SBT_FN_CLOSE2);
    take(entries_.end, SBT_FN_END);
    take(entries_.error, SBT_FN_ERROR);
    take(entries_.info2, SBT_FN_INFO2);
    take(entries_.init2, SBT_FN_INIT2);
    take(entries_.read2, SBT_FN_READ2);
    take(entries_.remove2, SBT_FN_REMOVE2);
    take(entries_.restore, SBT_FN_RESTORE);
    take(entries_.write2, SBT_FN_WRITE2);
}

void ContextChannel::handOverContext(const ChannelOptions &options)
{
    auto context = std::make_unique<std::byte[]>(contextSize_);
    std::uint64_t traceLevel = options.traceLevel.value_or(1);
    std::uint64_t interfaceVersion = 0x0200;
    const sbtPair in[] = {{SBTINIT2_TRACELEVEL, &traceLevel},
                          {SBTINIT2_CLIENTAPI, &interfaceVersion},
                          {SBTINIT2_END, nullptr}};
    if (entries_.init2(context.get(), 0, in) != 0)
        throw Failure("the agent refuses the channel; veloerror.log tells more", SBT_INIT_FAILED);
    context_ = std::move(context);
}

ContextChannel::~ContextChannel()
{
    if (!context_)
        return;
    if (pieceOpen_)
        entries_.close2(context_.get(), SBT_CLOSE_ABORT);
    entries_.end(context_.get(), 0);
}

ContextChannel::LastError ContextChannel::lastError()
{
    unsigned long code = 0;
    void *native = nullptr;
    void *utf8 = nullptr;
    entries_.error(context_.get(), 0, &code, &native, &utf8);
    std::string text = textAt(native);
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return {static_cast<std::uint32_t>(code), std::move(text)};
}

void ContextChannel::fail()
{
    // The first call after the failure: closing the piece would replace the reason.
    const LastError error = lastError();
    throw Failure(error.text.empty() ? meaning(error.code) : tools::printable(error.text),
                  error.code, reasonIn(error.text));
}

void ContextChannel::beginBackup(const std::string &name, const PieceAttributes &attributes,
                                 std::size_t blockSize)
{
    std::string database = attributes.database;
    std::uint64_t fileType = attributes.fileType.value_or(0);
    std::vector<sbtPair> objects;
    if (!database.empty())
        objects.push_back({SBTOBJECT_DBNAME, database.data()});
    if (attributes.fileType)
        objects.push_back({SBTOBJECT_FILETYPE, &fileType});
    objects.push_back({SBTOBJECT_END, nullptr});
    if (entries_.backup(context_.get(), 0, name.c_str(), objects.data(), blockSize, 0,
                        attributes.copy, 0) != 0)
        fail();
    pieceOpen_ = true; // not after a failure: ending the channel undoes a failed open
}

void ContextChannel::writeBlock(std::span<std::byte> block)
{
    if (entries_.write2(context_.get(), 0, block.data()) != 0)
        fail();
}

void ContextChannel::beginRestore(const std::string &name, std::size_t blockSize)
{
    if (entries_.restore(context_.get(), 0, name.c_str(), blockSize) != 0)
        fail();
    pieceOpen_ = true;
}

bool ContextChannel::readBlock(std::span<std::byte> block)
{
    if (entries_.read2(context_.get(), 0, block.data()) == 0)
        return true;
    if (lastError().code != SBT_END_OF_FILE)
        fail();
    return false;
}

void ContextChannel::closePiece()
{
    pieceOpen_ = false;
    if (entries_.close2(context_.get(), 0) != 0)
        fail();
}

namespace
{

void note(PieceInfo &piece, const sbtPair &item)
{
    switch (item.code) {
    case SBTBFINFO_METHOD:
        piece.method = numberAt(item.value);
        break;
    case SBTBFINFO_SHARE:
        piece.share = numberAt(item.value);
        break;
    case SBTBFINFO_CRETIME:
        piece.created = agentTime(numberAt(item.value));
        break;
    case SBTBFINFO_EXPTIME:
        piece.expires = agentTime(numberAt(item.value));
        break;
    case SBTBFINFO_LABEL:
        piece.label = textAt(item.value);
        break;
    case SBTBFINFO_COMMENT:
        piece.managementClass = textAt(item.value);
        break;
    case SBTBFINFO_NOTFOUND:
        piece.found = false;
        break;
    default:
        break;
    }
}

} // namespace

std::vector<PieceInfo> ContextChannel::info(std::vector<std::string> names)
{
    sbtPair *items = nullptr;
    if (entries_.info2(context_.get(), 0, nameList(names).data(), &items) != 0)
        fail();
    std::vector<PieceInfo> pieces;
    for (const sbtPair *item = items; item && item->code != SBTBFINFO_END; ++item) {
        if (item->code == SBTBFINFO_NAME) {
            // The name that was asked for: the agent cuts its copy to 511 characters.
            if (pieces.size() == names.size())
                break;
            PieceInfo piece;
            piece.name = names[pieces.size()];
            piece.found = true; // unless an item says that it is not
            pieces.push_back(piece);
        } else if (!pieces.empty()) {
            note(pieces.back(), *item);
        }
    }
    if (pieces.size() != names.size())
        throw Failure("the agent did not answer for every piece");
    return pieces;
}

std::uint16_t ContextChannel::updatePassword(char *password)
{
    std::uint16_t (*update)(char *, void *) = nullptr;
    agent_.take(update, "psveloUpdatePswd");
    return update(password, context_.get());
}

bool ContextChannel::clientKeepsPassword()
{
    return lastError().text.starts_with("RBQ2610");
}

void ContextChannel::remove(std::vector<std::string> names)
{
    if (entries_.remove2(context_.get(), 0, nameList(names).data()) != 0)
        fail();
}

} // namespace keel
