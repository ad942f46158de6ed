// The verbs and options of both programs. Verbs are built with these and never with the library
// that reads the command line, whose headers cost every file that includes them 20 s of compiling.
// All are of the program's first thread.
#ifndef KEEL_TOOLS_COMMON_OPTIONS_H
#define KEEL_TOOLS_COMMON_OPTIONS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace tools
{

/// An option, a flag or an operand of a verb: a handle, to be copied freely, that is good as long
/// as the Program lives. Each call changes the option and returns it.
class Option
{
public:
    explicit Option(CLI::Option *option) : option_(option) {}

    /// What --help calls the value, as FILE or yes|no. Empty: it shows none.
    Option valueName(const std::string &name) const;
    Option required() const;
    /// The variable's value is shown as the default.
    Option showDefault() const;
    Option excludes(Option other) const;
    Option needs(Option other) const;
    Option between(int least, int most) const;
    Option between(double least, double most) const;
    Option oneOf(std::vector<std::string> words) const;
    /// Takes 64K and the like; the variable gets bytes.
    Option inBytes() const;
    /// `valid` returns why the value is refused, as a clause; empty: it is not.
    Option check(std::function<std::string(const std::string &)> valid) const;

private:
    friend class Verb;
    CLI::Option *option_;
};

/// A verb, or the program itself: a handle as Option is. Names are as "--input,-i", or as "NAME"
/// for an operand. Variables are filled in when the command line is read, and live until then.
class Verb
{
public:
    explicit Verb(CLI::App *app) : app_(app) {}

    Verb addVerb(const std::string &name, const std::string &help) const;
    [[nodiscard]] std::string name() const;

    Option addOption(const std::string &names, std::string &value, const std::string &help) const;
    Option addOption(const std::string &names, std::vector<std::string> &values,
                     const std::string &help) const;
    Option addOption(const std::string &names, std::vector<std::uint32_t> &values,
                     const std::string &help) const;
    Option addOption(const std::string &names, std::optional<std::string> &value,
                     const std::string &help) const;
    Option addOption(const std::string &names, std::optional<std::uint64_t> &value,
                     const std::string &help) const;
    Option addOption(const std::string &names, int &value, const std::string &help) const;
    Option addOption(const std::string &names, unsigned &value, const std::string &help) const;
    Option addOption(const std::string &names, std::uint64_t &value, const std::string &help) const;
    Option addOption(const std::string &names, double &value, const std::string &help) const;
    Option addFlag(const std::string &names, bool &given, const std::string &help) const;
    /// `given` is called when the flag is.
    Option addFlag(const std::string &names, std::function<void()> given,
                   const std::string &help) const;

    /// An option whose value is one of a few words, in any case.
    template <class Value, std::size_t kCount>
    Option addChoice(const std::string &names, Value &value, const std::string &help,
                     const std::pair<const char *, Value> (&words)[kCount]) const
    {
        std::vector<std::pair<std::string, std::int64_t>> numbers;
        for (const auto &[word, meant] : words)
            numbers.emplace_back(word, static_cast<std::int64_t>(meant));
        return addChoice(
            names, [&value](std::int64_t number) { value = static_cast<Value>(number); }, help,
            numbers);
    }

    /// The option of that name, which was added before.
    [[nodiscard]] Option option(const std::string &name) const;
    /// Every option added so far but --help and `option` itself; operands are none.
    [[nodiscard]] std::vector<Option> otherOptions(Option option) const;

    /// Is called when the verb was chosen, with all variables filled in.
    void onChosen(std::function<void()> chosen) const;
    void requireVerb() const;
    /// Below the options in --help. Lines that begin with "Example: " are examples.
    void footer(const std::string &text) const;

protected:
    CLI::App *app_;

private:
    Option addChoice(const std::string &names, std::function<void(std::int64_t)> chosen,
                     const std::string &help,
                     const std::vector<std::pair<std::string, std::int64_t>> &words) const;
};

} // namespace tools

#endif
