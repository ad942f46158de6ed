// The verbs and options of both programs. Verbs are built with these and never with the library
// that reads the command line, whose headers cost every file that includes them 20 s of compiling.
// All of it is for the program's first thread. Calls that add a name that is taken, or ask for one
// that is not there, throw: that is a bug of the program.
#ifndef KEEL_TOOLS_COMMON_COMMAND_OPTIONS_H
#define KEEL_TOOLS_COMMON_COMMAND_OPTIONS_H

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

    /// Sets what --help calls the value, as FILE or yes|no. Empty: it shows none.
    Option valueName(const std::string &name) const;
    Option required() const;
    /// Shows the variable's present value as the default.
    Option showDefault() const;
    // What a command line breaks of these is wrong use.
    Option excludes(Option other) const;
    Option needs(Option other) const;
    /// Both ends are allowed.
    Option between(int least, int most) const;
    Option between(double least, double most) const;
    Option oneOf(std::vector<std::string> words) const;
    /// Takes 64K, 64kB, 64KiB and the like, in powers of 1,024; the variable gets bytes.
    Option inBytes() const;
    /// `valid` returns why it refuses the value, as a clause, or an empty text.
    Option check(std::function<std::string(const std::string &)> valid) const;

private:
    friend class Verb;
    CLI::Option *option_;
};

/// A verb, or the program itself: a handle as Option is. Names are as "--input,-i", or as "NAME"
/// for an operand. A variable is filled in when the command line is read, and left as it is when
/// the option is not given; it must live until then. An option that is given twice is wrong use,
/// unless its variable is a list. Numbers are decimal, whatever zeros they begin with, without an
/// exponent, and all of the value.
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
    /// `given` is called when the flag is given.
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

    /// Returns the option of that name, which was added before.
    [[nodiscard]] Option option(const std::string &name) const;
    /// Returns every option added so far except --help and `option`; operands are not among them.
    [[nodiscard]] std::vector<Option> otherOptions(Option option) const;

    /// `chosen` is called when the verb was chosen, with all variables filled in. What it throws
    /// passes through Program::read().
    void onChosen(std::function<void()> chosen) const;
    /// Makes a command line without one of this verb's verbs wrong use.
    void requireVerb() const;
    /// Sets the text below the options in --help. Lines that begin with "Example: " are examples.
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
