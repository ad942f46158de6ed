// arca ls: shows pieces, each as soon as it is found, so that any number takes bounded memory; only
// a list that has to be sorted is held whole.
#include "client/base/text.h"
#include "tools/arca/client/client_session.h"
#include "tools/arca/moment.h"
#include "tools/arca/node_session.h"
#include "tools/arca/object_text.h"
#include "tools/arca/piece_name.h"
#include "tools/arca/repository/removed.h"
#include "tools/arca/selection.h"
#include "tools/common/command/streams.h"
#include "tools/common/text.h"
#include "tools/timing/timing.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

enum class Sort { stored, name, size };
constexpr std::pair<const char *, Sort> kSorts[] = {
    {"stored", Sort::stored}, {"name", Sort::name}, {"size", Sort::size}};

struct Asked {
    Selection selection;
    Sort sort = Sort::stored;
    bool longForm = false, tree = false, removed = false, fromStandardInput = false;
};

/// A line of the list, small, because a sorted list holds all of them.
struct Row {
    std::string filespace, piece, className;
    std::uint64_t id = 0, size = 0, storedSize = 0;
    std::int64_t stored = 0, inactive = 0;

    explicit Row(const dhoxBackupObject_t &object)
        : filespace(object.objName.fsName), piece(pieceOf(object.objName)),
          className(object.mcName), id(object.objId), size(object.size),
          storedSize(object.storedSize), stored(object.insTime), inactive(object.inactTime)
    {
    }
};

struct Totals {
    std::uint64_t objects = 0, size = 0, storedSize = 0;
};

class Printer
{
public:
    explicit Printer(const Asked &asked) : asked_(asked) {}

    void heading() const
    {
        if (asked_.tree)
            return;
        if (asked_.longForm)
            tools::print("{:<16}  {:>10}  {:>10}  {:<19}  {:<8}  {:<12}  {}\n", "Identifier",
                         "Size", "Stored", "Since", "State", "Class", "Piece");
        else
            tools::print("{:>10}  {:>8}  {}\n", "Size", "Age", "Piece");
    }

    void print(const Row &row)
    {
        if (asked_.tree)
            printBranch(row);
        else if (asked_.longForm)
            tools::print("{}  {:>10}  {:>10}  {:<19}  {:<8}  {:<12}  {}\n", idText(row.id),
                         sizeText(row.size), sizeText(row.storedSize),
                         tools::localTimeText(row.stored),
                         row.inactive == 0 ? "active" : "inactive", printable(row.className),
                         printable(row.filespace + "//" + row.piece, 2400));
        else
            tools::print("{:>10}  {:>8}  {}{}\n", sizeText(row.size), ageText(now_ - row.stored),
                         printable(row.piece, 1300), row.inactive == 0 ? "" : "  (inactive)");
    }

private:
    void printBranch(const Row &row)
    {
        if (row.filespace != filespace_)
            tools::print("{}\n", printable(row.filespace, 1100));
        if (row.filespace != filespace_ || row.piece != piece_)
            tools::print("    {}\n", printable(row.piece, 1300));
        filespace_ = row.filespace;
        piece_ = row.piece;
        tools::print(
            "        {:>10}  {:>8}  {}{}\n", sizeText(row.size), ageText(now_ - row.stored),
            row.inactive == 0 ? "active" : "inactive for " + ageText(now_ - row.inactive),
            asked_.longForm ? "  " + idText(row.id) + "  " + printable(row.className) : "");
    }

    const Asked &asked_;
    const std::int64_t now_ = std::time(nullptr);
    std::string filespace_, piece_;
};

void sortRows(std::vector<Row> &rows, const Asked &asked)
{
    const auto byName = [](const Row &row) {
        return std::tie(row.filespace, row.piece, row.stored, row.id);
    };
    if (asked.tree || asked.sort == Sort::name)
        std::ranges::sort(rows, {}, byName);
    else if (asked.sort == Sort::size)
        std::ranges::stable_sort(rows, std::greater<>(), &Row::size);
}

/// Prints one JSON object with a line for each piece, so that neither writer nor reader has to hold
/// them all.
class JsonStream
{
public:
    explicit JsonStream(const Json &head)
    {
        std::string text = head.dump(-1, ' ', false, Json::error_handler_t::replace);
        text.pop_back();
        tools::print("{},\"objects\":[", text);
    }
    void add(const dhoxBackupObject_t &object)
    {
        describe(row_, object);
        tools::print("{}\n{}", first_ ? "" : ",",
                     row_.dump(-1, ' ', false, Json::error_handler_t::replace));
        first_ = false;
    }
    void end(const Result<void> &done, const Totals &totals, const Command &command)
    {
        Json tail = {{"count", totals.objects},
                     {"size", totals.size},
                     {"storedSize", totals.storedSize},
                     {"ok", static_cast<bool>(done)}};
        if (!done)
            tail["error"] = done.error().text;
        if (command.timing)
            tail["timing"] = tools::timesJson();
        tools::print("\n],{}\n",
                     tail.dump(-1, ' ', false, Json::error_handler_t::replace).substr(1));
    }

private:
    Json row_;
    bool first_ = true;
};

void count(const dhoxBackupObject_t &object, Totals &totals)
{
    ++totals.objects;
    totals.size += object.size;
    totals.storedSize += object.storedSize;
}

Result<void> listJson(ClientSession &client, const mtFilter_t &filter, const Asked &asked,
                      const Command &command, Json &result)
{
    Totals totals;
    result.erase("ok");
    JsonStream stream(result);
    auto done = answered(mtQueryObjects(client.session(), filter, mtOrder_t::inserted,
                                        [&](const dhoxBackupObject_t &object) {
                                            stream.add(object);
                                            count(object, totals);
                                            return std::ferror(stdout) == 0;
                                        }));
    if (done && totals.objects == 0 && !asked.selection.pattern.empty())
        done = noMatch(asked.selection);
    stream.end(done, totals, command);
    return done;
}

Result<void> listText(ClientSession &client, const mtFilter_t &filter, const Asked &asked)
{
    const bool held = asked.tree || asked.sort != Sort::stored;
    std::vector<Row> rows;
    Totals totals;
    Printer printer(asked);
    const auto done = answered(mtQueryObjects(client.session(), filter, mtOrder_t::inserted,
                                              [&](const dhoxBackupObject_t &object) {
                                                  if (totals.objects == 0)
                                                      printer.heading();
                                                  count(object, totals);
                                                  if (held)
                                                      rows.emplace_back(object);
                                                  else
                                                      printer.print(Row(object));
                                                  return std::ferror(stdout) == 0;
                                              }));
    sortRows(rows, asked);
    for (const Row &row : rows)
        printer.print(row);
    ARCA_CHECK(done);
    if (totals.objects == 0 && !asked.selection.pattern.empty())
        return noMatch(asked.selection);
    tools::print("{}, {}, {} stored\n", tools::counted(totals.objects, "piece"),
                 sizeText(totals.size), sizeText(totals.storedSize));
    return {};
}

Result<void> list(Command &command, const Asked &asked, Json &result)
{
    if (asked.removed)
        return listRemoved(command, asked.selection.pattern, asked.fromStandardInput, result);
    const mtFilter_t filter = filterFrom(asked.selection);
    ARCA_TRY(const auto client, logOnClient(command, asked.fromStandardInput, result));
    if (!command.json)
        return listText(*client, filter, asked);
    command.ownJson = true;
    return listJson(*client, filter, asked, command, result);
}

} // namespace

void addLs(tools::Verb app, Command &command)
{
    const tools::Verb verb = app.addVerb("ls", "Show pieces: names, sizes, ages");
    auto asked = std::make_shared<Asked>();
    verb.addOption("PATTERN", asked->selection.pattern,
                   "Names of pieces: * stands for anything, ? for one character");
    verb.addFlag("--long,-l", asked->longForm, "With identifier, class, state, stored size");
    verb.addFlag("--tree", asked->tree, "By filespace and name, with the versions of each");
    verb.addChoice("--sort", asked->sort, "Order; any but stored holds the list in memory", kSorts)
        .valueName("stored|name|size");
    addSelectionOptions(verb, asked->selection);
    const tools::Option removed = verb.addFlag(
        "--removed", asked->removed, "Those that arca undelete can bring back, and for how long");
    for (const tools::Option option : verb.otherOptions(removed))
        removed.excludes(option);
    addCommonOptions(verb, command);
    addPasswordOption(verb, asked->fromStandardInput);
    verb.footer("Example: arca ls 'df_*' --older 30d --larger 1G\n"
                "With --json the object has a line of its own for each piece.");
    verb.onChosen([&command, asked] {
        command.verb = "ls";
        command.run = [&command, asked](Json &result) { return list(command, *asked, result); };
    });
}

} // namespace arca::tool
