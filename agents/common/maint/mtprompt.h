// Questions to a person: on the terminal of the process, whatever its standard streams are, or
// answered by a line of standard input, for scripts. For programs; libobk.so itself never asks.
//
// While a question is open:
// 1. SIGINT, SIGTERM, SIGHUP and SIGQUIT first restore the terminal and the former handlers, and
//    are then raised again. When the process survives that, the call returns MT_ASK_SIGNAL.
// 2. SIGTSTP stops the process with the terminal restored; its question is asked again when the
//    process continues. A line of standard input is read on where it was.
// 3. Signals that were ignored stay ignored.
// 4. A second thread that asks waits for its turn without limit.
// The handlers are the process's: a signal that arrives in another thread is noted here too.
#ifndef KEEL_AGENTS_COMMON_MAINT_MTPROMPT_H
#define KEEL_AGENTS_COMMON_MAINT_MTPROMPT_H

#include <cstddef>

enum mtAsk_t : int {
    MT_ASK_OK = 0,
    MT_ASK_NO_TERMINAL, // the process has none, or its echo cannot be switched off
    MT_ASK_END,         // the input ended, or the terminal was closed, before an answer
    MT_ASK_SIGNAL,      // a signal interrupted the question, and the process survived it
    MT_ASK_LONG,        // the answer is longer than the buffer has room for; a size of 0
    MT_ASK_CONTROL,     // the answer holds ASCII control characters, a tab too
    MT_ASK_ERROR        // reading failed: errno
};

enum class mtAskFrom { terminal, standardInput };

struct mtQuestion_t {
    const char *text = "";       // without the colon; not shown when standard input answers
    const char *usual = nullptr; // the answer for an empty line; shown, so never a secret
    bool secret = false;         // without echo on the terminal; standard input is left as it is
    mtAskFrom from = mtAskFrom::terminal;
};

/// Asks and writes the answer, one line without its end (CR LF too), terminated, to `answer` (size
/// bytes). An empty line is an answer (or stands for `usual`), and so is a last line without an
/// end. Nothing behind the line is taken from standard input. On any code but MT_ASK_OK the buffer
/// is wiped, but where `usual` has no room (MT_ASK_LONG) it just becomes "". An over-long answer is
/// read to its end, but at most 65,537 characters of it.
mtAsk_t mtAsk(const mtQuestion_t &question, char *answer, std::size_t size);

/// Asks for yes or no ("y", "yes", "n", "no" in any case), with `usual` for an empty line. Any
/// other answer, MT_ASK_LONG and MT_ASK_CONTROL included, is asked for again; the third one counts
/// as no, whatever `usual` is. On any code but MT_ASK_OK `yes` is false.
mtAsk_t mtAskYesNo(const char *text, bool usual, mtAskFrom from, bool &yes);

/// Returns a constant that ends a sentence about the question ("nothing was given"); "" for
/// MT_ASK_OK.
const char *mtAskText(mtAsk_t code);

#endif
