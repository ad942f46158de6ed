// A program on a terminal of its own, with a person before it.
#ifndef KEEL_TESTS_SUPPORT_TERMINAL_H
#define KEEL_TESTS_SUPPORT_TERMINAL_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace keel::test
{

class Terminal
{
public:
    explicit Terminal(std::vector<std::string> argv);
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    /// Waits for the text to be shown after the last answer, then types.
    void answer(const std::string &text, const std::string &typed);
    /// Waits for the text, then takes the terminal away.
    void hangUp(const std::string &text);
    [[nodiscard]] bool echoes() const;
    /// Reads on until the program ends; its exit status, or 128 + signal.
    [[nodiscard]] int finish();

    std::string shown; ///< all that appeared, what was typed with echo too

private:
    bool readOn();

    int terminal_ = -1;
    pid_t child_ = -1;
    std::size_t answered_ = 0;
};

} // namespace keel::test

#endif
