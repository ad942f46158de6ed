// See options.h.
#include "tools/common/command/options.h"

#include "tools/common/text.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <string_view>
#include <type_traits>

#include <CLI/CLI.hpp>

namespace tools
{

// --help would show a validator's description beside the name of the value, so each is empty.

Option Option::valueName(const std::string &name) const
{
    option_->type_name(name);
    return *this;
}

Option Option::required() const
{
    option_->required();
    return *this;
}

Option Option::showDefault() const
{
    option_->capture_default_str();
    return *this;
}

Option Option::excludes(Option other) const
{
    option_->excludes(other.option_);
    return *this;
}

Option Option::needs(Option other) const
{
    option_->needs(other.option_);
    return *this;
}

Option Option::between(int least, int most) const
{
    option_->check(CLI::Range(least, most).description(""));
    return *this;
}

Option Option::between(double least, double most) const
{
    option_->check(CLI::Range(least, most).description(""));
    return *this;
}

Option Option::oneOf(std::vector<std::string> words) const
{
    option_->check(CLI::IsMember(std::move(words)).description(""));
    return *this;
}

/// Puts the number in the place of the word, in whatever case that is; or says what is wrong.
static std::string takeNumberOf(const std::map<std::string, std::int64_t> &numbers,
                                std::string &value)
{
    std::string known;
    for (const auto &[word, number] : numbers) {
        if (lowered(value) == lowered(word)) {
            value = std::to_string(number);
            return {};
        }
        known += (known.empty() ? "" : ", ") + word;
    }
    return "'" + printable(value) + "' is none of: " + known;
}

/// Returns the number at the beginning of a text, and puts what follows it into `rest`. Nothing
/// when no number begins there, or it is too large. Decimal always: the library below would take
/// 010 for 8 and 0x10 for 16.
template <class Number>
static std::optional<Number> decimalIn(std::string_view text, std::string_view &rest)
{
    Number number{};
    const char *const end = text.data() + text.size();
    std::from_chars_result read{};
    if constexpr (std::is_floating_point_v<Number>)
        read = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    else
        read = std::from_chars(text.data(), end, number);
    rest = std::string_view(read.ptr, static_cast<std::size_t>(end - read.ptr));
    if constexpr (std::is_floating_point_v<Number>)
        if (!std::isfinite(number))
            return std::nullopt;
    return read.ec == std::errc() ? std::optional(number) : std::nullopt;
}

/// Makes the option one that takes decimal numbers and nothing else.
template <class Number> static Option decimal(CLI::Option *option)
{
    option->transform(CLI::Validator(
        [](std::string &value) -> std::string {
            std::string_view rest;
            const auto number = decimalIn<Number>(value, rest);
            if (!number || !rest.empty())
                return "'" + printable(value) + "' is no " +
                       (std::is_floating_point_v<Number> ? "decimal number"
                                                         : "whole decimal number, or too large");
            if constexpr (!std::is_floating_point_v<Number>)
                value = std::to_string(*number); // without zeros in front
            return {};
        },
        ""));
    return Option(option);
}

/// Puts the bytes in the place of a size, or says what is wrong.
static std::string takeBytes(std::string &value)
{
    constexpr std::string_view kUnits = "bkmgtpe"; // each 1,024 times the one before
    std::string_view rest;
    const auto number = decimalIn<std::uint64_t>(value, rest);
    const std::string unit = lowered(std::string(rest));
    const std::size_t power = unit.empty() ? 0 : kUnits.find(unit.front());
    const bool known =
        power != std::string_view::npos &&
        (unit.size() <= 1 || (power != 0 && (unit.substr(1) == "b" || unit.substr(1) == "ib")));
    if (!number || !known)
        return "'" + printable(value) + "' is no size as 8192, 64K or 2G";
    if (*number > (std::numeric_limits<std::uint64_t>::max() >> (10 * power)))
        return "'" + printable(value) + "' is too large";
    value = std::to_string(*number << (10 * power));
    return {};
}

Option Option::inBytes() const
{
    option_->transform(CLI::Validator(takeBytes, ""));
    return *this;
}

Option Option::check(std::function<std::string(const std::string &)> valid) const
{
    option_->check(CLI::Validator(
        [valid = std::move(valid)](std::string &value) { return valid(value); }, ""));
    return *this;
}

Verb Verb::addVerb(const std::string &name, const std::string &help) const
{
    return Verb(app_->add_subcommand(name, help));
}

std::string Verb::name() const
{
    return app_->get_name();
}

Option Verb::addOption(const std::string &names, std::string &value, const std::string &help) const
{
    return Option(app_->add_option(names, value, help));
}

Option Verb::addOption(const std::string &names, std::vector<std::string> &values,
                       const std::string &help) const
{
    CLI::Option *const option = app_->add_option(names, values, help);
    if (names.front() == '-')
        option->allow_extra_args(false); // or "[a,b]" would be taken for two
    return Option(option);
}

Option Verb::addOption(const std::string &names, std::vector<std::uint32_t> &values,
                       const std::string &help) const
{
    return decimal<std::uint32_t>(app_->add_option(names, values, help));
}

Option Verb::addOption(const std::string &names, std::optional<std::string> &value,
                       const std::string &help) const
{
    return Option(app_->add_option(names, value, help));
}

Option Verb::addOption(const std::string &names, std::optional<std::uint64_t> &value,
                       const std::string &help) const
{
    return decimal<std::uint64_t>(app_->add_option(names, value, help));
}

Option Verb::addOption(const std::string &names, int &value, const std::string &help) const
{
    return decimal<int>(app_->add_option(names, value, help));
}

Option Verb::addOption(const std::string &names, unsigned &value, const std::string &help) const
{
    return decimal<unsigned>(app_->add_option(names, value, help));
}

Option Verb::addOption(const std::string &names, std::uint64_t &value,
                       const std::string &help) const
{
    return decimal<std::uint64_t>(app_->add_option(names, value, help));
}

Option Verb::addOption(const std::string &names, double &value, const std::string &help) const
{
    return decimal<double>(app_->add_option(names, value, help));
}

Option Verb::addFlag(const std::string &names, bool &given, const std::string &help) const
{
    return Option(app_->add_flag(names, given, help));
}

Option Verb::addFlag(const std::string &names, std::function<void()> given,
                     const std::string &help) const
{
    return Option(app_->add_flag_callback(names, std::move(given), help));
}

Option Verb::addChoice(const std::string &names, std::function<void(std::int64_t)> chosen,
                       const std::string &help,
                       const std::vector<std::pair<std::string, std::int64_t>> &words) const
{
    const std::map<std::string, std::int64_t> numbers(words.begin(), words.end());
    CLI::Option *option = app_->add_option_function<std::int64_t>(
        names, [chosen = std::move(chosen)](const std::int64_t &number) { chosen(number); }, help);
    option->transform(
        CLI::Validator([numbers](std::string &value) { return takeNumberOf(numbers, value); }, ""));
    return Option(option);
}

Option Verb::option(const std::string &name) const
{
    return Option(app_->get_option(name));
}

std::vector<Option> Verb::otherOptions(Option option) const
{
    std::vector<Option> others;
    for (CLI::Option *one : app_->get_options())
        if (one != option.option_ && !one->get_lnames().empty() && one->get_name() != "--help")
            others.emplace_back(one);
    return others;
}

void Verb::onChosen(std::function<void()> chosen) const
{
    app_->callback(std::move(chosen));
}

void Verb::requireVerb() const
{
    app_->require_subcommand(1);
}

void Verb::footer(const std::string &text) const
{
    app_->footer(text);
}

} // namespace tools
