// The table of texts. Numbers once given are never used for anything else.
#include "client/api/messages.h"

#include "client/include/hoxapi.h"

#include <cstdio>
#include <cstdlib>

namespace arca::api
{

namespace
{

struct Message {
    std::int16_t code;
    char severity;
    const char *sentence;
};

constexpr Message kMessages[] = {
    {HOX_RC_RETRY_SESSION, 'W', "The repository is busy. Start the session again."},
    {HOX_RC_OK, 'I', "The operation completed successfully."},
    {HOX_RC_NO_MATCH, 'I', "No object matches the query."},
    {HOX_RC_NODE_NAME_TOO_LONG, 'E', "A node name has at most 64 characters."},
    {HOX_RC_NO_MEMORY, 'E', "There is not enough memory to complete the operation."},
    {104, 'S', "The storage client, or one of its operations, could not be loaded."},
    {107, 'S', "The storage client is too old for this application."},
    {HOX_RC_INVALID_BLOCK_ID, 'E', "This process has no entry in the table of the application."},
    {HOX_RC_FINISHED, 'I', "There is no more data."},
    {HOX_RC_FS_UNKNOWN, 'E',
     "The filespace was never registered by this node. Check the filespace name in the option "
     "file."},
    {HOX_RC_AUTH_FAILURE, 'E',
     "The node is not registered in the repository, or its password is wrong."},
    {HOX_RC_WILL_ABORT, 'E',
     "The transaction cannot be committed any more because an earlier step failed."},
    {HOX_RC_NO_PASS_FILE, 'E',
     "The kept password of the node is not there or cannot be read. Run arca init on this host, "
     "or restore the file of kept passwords."},
    {HOX_RC_NULL_ARGUMENT, 'E', "A required argument is null."},
    {HOX_RC_BAD_HANDLE, 'E', "The handle is not that of a running session."},
    {HOX_RC_BAD_CALL_SEQUENCE, 'E', "The operation is out of order; nothing was changed."},
    {HOX_RC_BAD_VERSION, 'E', "The version of a record is not known to this storage client."},
    {HOX_RC_BAD_ARGUMENT, 'E', "An argument is outside its range."},
    {HOX_RC_NOT_SUPPORTED, 'E', "This level of the storage client does not offer the operation."},
    {HOX_RC_NOT_SET_UP, 'E', "The storage client has not been set up in this process."},
    {HOX_RC_INTERNAL, 'S', "An internal fault of the storage client stopped the operation."},
    {HOX_RC_NO_CONTEXT, 'E', "There is no context for this process."},
    {HOX_RC_NO_MC_NAME, 'E',
     "A management class is named by an empty text. Name one in the option file."},
    {HOX_RC_BAD_OPTION_FILE, 'E', "The option file of the storage client cannot be used."},
    {HOX_RC_BAD_OPTION_STRING, 'E', "The option string of the session is wrong."},
    {HOX_RC_LOG_UNAVAILABLE, 'W', "The log takes no events now."},
    {HOX_RC_FS_REGISTERED, 'I', "The filespace is registered already."},
    {HOX_RC_MC_UNKNOWN, 'E', "The management class is not defined."},
    {HOX_RC_NO_REPOSITORY, 'E',
     "There is no repository at the place that the option file names. Make one with arca init."},
    {HOX_RC_REPOSITORY_IO, 'E', "Reading or writing the repository failed."},
    {HOX_RC_REPOSITORY_FULL, 'E',
     "There is no space left for the repository. Nothing that was stored is lost."},
    {HOX_RC_REPOSITORY_READ_ONLY, 'E', "The repository is on a file system that is read-only."},
    {HOX_RC_REPOSITORY_DAMAGED, 'S',
     "Stored bytes are not what was written; they were not delivered."},
    {HOX_RC_REPOSITORY_FORMAT, 'E',
     "The repository was made by a newer release. Use a storage client of that release."},
    {HOX_RC_ACCESS_DENIED, 'E',
     "The operating system refuses access to the repository to this user."},
    {HOX_RC_OBJECT_EXISTS, 'E', "An object of that name exists already."},
    {HOX_RC_OBJECT_UNKNOWN, 'E', "There is no such object."},
    {HOX_RC_ABORTED, 'W', "The transaction was given up by the application; nothing was stored."},
    {HOX_RC_STEP_FAILED, 'E',
     "An earlier step of the transaction failed or is missing; nothing was stored."},
    {HOX_RC_MORE_DATA, 'I', "There is more data."},
    {HOX_RC_CHECK_REASON, 'E', "The transaction was not committed; see the reason code."},
};

const Message *find(std::int16_t code)
{
    for (const Message &message : kMessages)
        if (message.code == code)
            return &message;
    return nullptr;
}

} // namespace

std::string messageIdentifier(std::int16_t code)
{
    // Four digits, whatever the code: the records have no room for more.
    const int number = std::abs(static_cast<int>(code)) % 10000;
    const Message *known = find(code);
    char identifier[16];
    std::snprintf(identifier, sizeof identifier, "RBS%04d%c", number,
                  known == nullptr ? 'E' : known->severity);
    return identifier;
}

std::string messageSentence(std::int16_t code)
{
    if (const Message *known = find(code))
        return known->sentence;
    return "The storage client has no text for the return code " + std::to_string(code) + ".";
}

} // namespace arca::api
