// Questions to a person: on the terminal of the process, whatever its standard streams are, or a
// line of standard input for those who script it. For programs; the library asks nobody anything.
//
// While a question is open, SIGINT, SIGTERM, SIGHUP and SIGQUIT put the terminal back first and
// then do what they did before; when the process lives on, the answer is MT_ASK_SIGNAL. SIGTSTP
// stops the process with the terminal as it was, and the question is asked again when it goes on.
// Signals that were ignored stay ignored. One question at a time; a second thread waits.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTPROMPT_H
#define KEEL_AGENTS_COMMON_MAINT_MTPROMPT_H

#include <cstddef>

enum mtAsk_t : int {
    MT_ASK_OK = 0,
    MT_ASK_NO_TERMINAL, // there is none, or it cannot be kept from echoing
    MT_ASK_END,         // the input ended, or the terminal went away, before an answer
    MT_ASK_SIGNAL,
    MT_ASK_LONG,    // longer than the buffer has room for
    MT_ASK_CONTROL, // holds characters that no key with a letter on it gives
    MT_ASK_ERROR    // reading failed: errno
};

enum class mtAskFrom { terminal, standardInput };

struct mtQuestion_t {
    const char *text = "";       // without the colon; not shown when standard input answers
    const char *usual = nullptr; // what an empty line means; shown, so never a secret
    bool secret = false;         // typed without echo
    mtAskFrom from = mtAskFrom::terminal;
};

/// The answer, one line without its end, terminated; nothing behind the line is taken from standard
/// input. An empty line is an answer. On any code but MT_ASK_OK the buffer is wiped.
mtAsk_t mtAsk(const mtQuestion_t &question, char *answer, std::size_t size);

/// Yes or no, `usual` for an empty line; asked again up to three times when the answer is neither,
/// which is then no. On any code but MT_ASK_OK `yes` is false.
mtAsk_t mtAskYesNo(const char *text, bool usual, mtAskFrom from, bool &yes);

/// The end of a sentence that begins with what was asked for; "" for MT_ASK_OK.
const char *mtAskText(mtAsk_t code);

#endif
