// arca class: the management classes of the repository.
#include "client/base/text.h"
#include "client/store/policy.h"
#include "client/store/repository.h"
#include "tools/arca/command.h"

#include <optional>

#include <fmt/format.h>

namespace arca::tool
{

namespace
{

/// What a verb is told of a class; what it is not told stays as it is.
struct Asked {
    std::string name;
    std::optional<std::string> pool, versions, days, description;
};

Result<std::uint16_t> limitFrom(const std::string &text, std::string_view unlimited, int least)
{
    if (equalIgnoringCase(text, unlimited))
        return store::kNoLimit;
    const bool digits = !text.empty() && text.size() <= 5 &&
                        text.find_first_not_of("0123456789") == std::string::npos;
    const int value = digits ? std::stoi(text) : -1;
    if (value < least || value >= store::kNoLimit)
        return Error{ErrorKind::badArgument,
                     fmt::format("'{}' is neither a number from {} to 65534 nor {}",
                                 printable(text, 40), least, unlimited)};
    return static_cast<std::uint16_t>(value);
}

std::string limitText(std::uint16_t value, std::string_view unlimited)
{
    return value == store::kNoLimit ? std::string(unlimited) : std::to_string(value);
}

/// Everything that is wrong with what was asked is found before anything is changed.
Result<std::function<void(store::ManagementClass &)>> changesIn(const Asked &asked)
{
    std::optional<std::uint16_t> versions, days;
    if (asked.versions) {
        ARCA_TRY(versions, limitFrom(*asked.versions, "nolimit", 1));
    }
    if (asked.days) {
        ARCA_TRY(days, limitFrom(*asked.days, "forever", 0));
    }
    return std::function([asked, versions, days](store::ManagementClass &known) {
        known.storagePool = asked.pool.value_or(known.storagePool);
        known.description = asked.description.value_or(known.description);
        known.versionsKept = versions.value_or(known.versionsKept);
        known.daysKept = days.value_or(known.daysKept);
    });
}

Json jsonOf(const store::ManagementClass &known)
{
    const auto limit = [](std::uint16_t value) {
        return value == store::kNoLimit ? Json(nullptr) : Json(value);
    };
    return {{"name", known.name},
            {"default", known.isDefault()},
            {"storagePool", known.storagePool},
            {"versionsKept", limit(known.versionsKept)},
            {"daysKept", limit(known.daysKept)},
            {"description", known.description}};
}

Result<void> list(store::Policy &policy, const Command &command, Json &result)
{
    ARCA_TRY(const auto classes, policy.list());
    Json &shown = result["classes"] = Json::array();
    if (!command.json)
        fmt::print("{:<30}  {:<30}  {:>8}  {:>7}  {}\n", "Class", "Storage pool", "Versions",
                   "Days", "Description");
    for (const store::ManagementClass &known : classes) {
        shown.push_back(jsonOf(known));
        if (!command.json)
            fmt::print("{:<30}  {:<30}  {:>8}  {:>7}  {}\n", known.name,
                       printable(known.storagePool), limitText(known.versionsKept, "nolimit"),
                       limitText(known.daysKept, "forever"), printable(known.description));
    }
    return {};
}

using Work = Result<void> (*)(store::Policy &, const Asked &);

Result<void> define(store::Policy &policy, const Asked &asked)
{
    ARCA_TRY(const auto apply, changesIn(asked));
    ARCA_TRY(const auto standard, policy.find(store::kDefaultClass));
    store::ManagementClass fresh;
    fresh.name = asked.name;
    fresh.storagePool = standard->storagePool;
    apply(fresh);
    return policy.define(std::move(fresh));
}

Result<void> change(store::Policy &policy, const Asked &asked)
{
    ARCA_TRY(const auto apply, changesIn(asked));
    return policy.change(asked.name, apply);
}

Result<void> retire(store::Policy &policy, const Asked &asked)
{
    return policy.retire(asked.name);
}

Result<void> perform(const Command &command, const Asked &asked, Work work, const char *done,
                     Json &result)
{
    ARCA_TRY(const config::Options options, optionsOf(command));
    ARCA_TRY(const auto repository, store::Repository::open(options.repository));
    result["repository"] = repository->shownName();
    store::Policy policy(repository->blobs());
    if (work == nullptr)
        return list(policy, command, result);
    ARCA_CHECK(work(policy, asked));
    ARCA_TRY(const auto known, policy.find(asked.name));
    if (known)
        result["class"] = jsonOf(*known);
    if (!command.json)
        fmt::print("Class       {} ({})\n", known ? known->name : printable(asked.name), done);
    return {};
}

} // namespace

void addClass(CLI::App &app, Command &command)
{
    CLI::App *verb =
        app.add_subcommand("class", "Define, list, change and delete management classes");
    verb->require_subcommand(1);
    verb->footer("Example: arca class define GOLD --pool FASTPOOL --versions nolimit --days 365");
    const struct {
        const char *name, *help, *footer;
        Work work;
        const char *done;
        bool takesName, takesSettings;
    } actions[] = {
        {"define", "Define a class",
         "Example: arca class define GOLD --pool FASTPOOL --days 365\n"
         "What is left out: the pool of STANDARD, one version, for ever.",
         define, "defined now", true, true},
        {"list", "Show the classes, the default first", "Example: arca class list --json", nullptr,
         "", false, false},
        {"change", "Change what is given of a class",
         "Example: arca class change STANDARD --days 90\nWhat is left out stays as it is.", change,
         "changed now", true, true},
        {"delete", "Delete a class",
         "Example: arca class delete GOLD\n"
         "Nothing new is bound to it; pieces that are bound to it keep it. STANDARD stays.",
         retire, "deleted now", true, false},
    };
    for (const auto &action : actions) {
        CLI::App *inner = verb->add_subcommand(action.name, action.help);
        addCommonOptions(*inner, command);
        auto asked = std::make_shared<Asked>();
        if (action.takesName)
            inner->add_option("NAME", asked->name, "Name of the class, in any case")->required();
        if (action.takesSettings) {
            inner->add_option("--pool", asked->pool, "Storage pool")->type_name("NAME");
            inner->add_option("--versions", asked->versions, "Versions kept of a piece")
                ->type_name("NUMBER|nolimit");
            inner->add_option("--days", asked->days, "Days a version is kept")
                ->type_name("NUMBER|forever");
            inner->add_option("--description", asked->description, "What the class is for")
                ->type_name("TEXT");
        }
        inner->footer(action.footer);
        inner->callback([&command, asked, name = std::string(action.name), work = action.work,
                         done = action.done] {
            command.verb = "class " + name;
            command.run = [&command, asked, work, done](Json &result) {
                return perform(command, *asked, work, done, result);
            };
        });
    }
}

} // namespace arca::tool
