// Finds the words of a command line that were hardly meant as the library below would read them:
// a variable of a script that was never set must not swallow the option behind it, nor turn a flag
// into its opposite. One thread.
#ifndef KEEL_TOOLS_COMMON_COMMAND_DOUBTFUL_WORDS_H
#define KEEL_TOOLS_COMMON_COMMAND_DOUBTFUL_WORDS_H

namespace CLI
{
class App;
} // namespace CLI

namespace tools
{

/// Throws a CLI::ParseError for the first of these words, before anything is read into a variable:
///
///   1. --flag= and -f=, with anything or nothing behind the `=`: a flag takes no value;
///   2. --option= and -o=, with nothing behind the `=`: the library would take the next word;
///      -o=VALUE: the library would take the `=` for a part of the value;
///   3. --option WORD where WORD begins with --, or with - and a letter that is an option of the
///      verb. A value that looks so is joined: --option=WORD;
///   4. [WORD] where several names may be given: the library would take it apart at its commas;
///   5. ++ in the place of an operand: the library would end the verb there, and drop the word.
///
/// `-` alone is a value. Behind `--` every word is an operand.
void refuseDoubtfulWords(const CLI::App &program, int argc, const char *const *argv);

} // namespace tools

#endif
