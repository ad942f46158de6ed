// OrcMessage: a numbered message of this library, formatted with its inserts; the object owns the
// text.
//
//     veloErrorMsg(OrcMessage(2539, "sbtbackup()", "ctx").text());
//
// Inserts must have exactly the types that the English message source names. The text is empty for
// a number without a message, without a message object (except numbers 3 and 2522), and without
// memory.
#ifndef KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_ORCMESSAGE_H
#define KEEL_AGENTS_ORACLE_COMMON_DIAGNOSTICS_ORCMESSAGE_H

class OrcMessage
{
public:
    enum Language { Localised, English };

    /// In the host's language.
    explicit OrcMessage(int number, ...);
    /// The caller ends the argument list.
    OrcMessage(Language language, int number, __builtin_va_list arguments);
    ~OrcMessage();
    OrcMessage(const OrcMessage &) = delete;
    OrcMessage &operator=(const OrcMessage &) = delete;

    /// Never null; valid as long as the object.
    [[nodiscard]] const char *text() const { return text_ == nullptr ? "" : text_; }
    [[nodiscard]] bool empty() const { return text_ == nullptr || text_[0] == '\0'; }

private:
    char *text_ = nullptr;
};

#endif
