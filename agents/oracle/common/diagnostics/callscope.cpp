// Writes the Enter and Exit lines of a routine to the traces that are on.
#include "agents/oracle/common/diagnostics/callscope.h"

#include <cstdarg>
#include <cstdio>

namespace
{

void toAgent(const char *file, unsigned line, const char *text, const char *name)
{
    KEELCTraceStatement statement;
    statement.initStatement(file, line);
    if (name == nullptr) {
        statement.write("%s", text);
    } else {
        statement.write(" %s: %s", name, text);
    }
}

void toDatabase(const char *file, unsigned line, const char *text, const char *name)
{
    rmanTrcClass->trPrintHdr(file, line);
    if (name == nullptr) {
        rmanTrcClass->trPrintBdy("%s", text);
    } else {
        rmanTrcClass->trPrintBdy(" %s: %s", name, text);
    }
}

} // namespace

TraceScope::TraceScope(const char *name, const char *file, unsigned line, const char *databaseEnter)
    : name_(name), file_(file), line_(line), database_(databaseEnter != nullptr)
{
    if (trTest(TR_ORCLEVEL1)) {
        toAgent(file_, line_, "Enter\n", name_);
    }
    if (database_ && rmanTraceOn(RMANTR_FLOW)) {
        toDatabase(file_, line_, databaseEnter, name_);
    }
}

TraceScope::~TraceScope()
{
    leave();
}

void TraceScope::leave()
{
    if (left_) {
        return;
    }
    left_ = true;
    const trClass level = failed() ? TR_ORCLEVEL0 : TR_ORCLEVEL1;
    const rmantrclass cls = failed()                   ? RMANTR_ERROR
                            : kind_ == Exit::EndOfFile ? RMANTR_DETAIL
                                                       : RMANTR_FLOW;
    const char *text = worded_ ? exit_ : "Exit - OK\n\n";
    const char *name = worded_ ? nullptr : name_;
    if (trTest(level)) {
        toAgent(file_, line_, text, name);
    }
    if (database_ && rmanTraceOn(cls)) {
        toDatabase(file_, line_, text, name);
    }
}

bool TraceScope::traced() const
{
    return trTest(TR_ORCLEVEL0) || trTest(TR_ORCLEVEL1) || (database_ && rmanTraceOn(RMANTR_ERROR));
}

void TraceScope::setExit(Exit kind, const char *file, unsigned line, const char *format, ...)
{
    if (left_) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(exit_, sizeof exit_, format, arguments);
    va_end(arguments);
    file_ = file;
    line_ = line;
    kind_ = kind;
    worded_ = true;
}
