// Recording a run in a file, and reading such a file, for -record and -parse.
//
// A record is a text of "key: value" lines and of counted blocks, so that a person can read it too:
//
//     Quintral record 1
//     version: 5.1
//     service: update.quintral.example
//     proxy: cache:3128                   (absent for a direct connection)
//     proxy-origin: -proxy                (the same: the setting that names it)
//     note: HTTP_PROXY is ignored: ...    (one line for each note shown before the exchange)
//     status: answered                    (status, exit status and so on are those of the run)
//     exit-status: 0
//     interrupted: yes                    (only if a signal or the time limit ended the exchange)
//     http-status: 200                    (absent if none was read)
//     reason: lookup                      (absent without a failure)
//     error: Can't find web server ...    (the same)
//     request: 512                        (bytes; credentials are masked)
//     <the bytes>
//     header: 60                          (absent if none was received)
//     <the bytes>
//     body: 100                           (the same)
//     <the bytes>
//
// Each block is followed by a line feed. Backslashes and bytes that are not printable ASCII are
// "\xHH" in values, HH in upper case.
#ifndef QUINTRAL_TOOL_RECORD_H
#define QUINTRAL_TOOL_RECORD_H

#include <string>
#include <vector>

#include "tool/answer.h"

namespace quintral {

// What a file holds. Strings are empty if the file does not have them.
struct Record {
    bool is_bare_reply; // not a record: header and body of a reply saved by another program
    std::string version;
    std::string service;
    std::string proxy;
    std::string proxy_origin;
    std::vector<std::string> notes;
    std::string status;
    int exit_status; // -1 in a bare reply
    bool interrupted;
    int http_status;
    std::string reason;
    std::string error;
    bool has_header;
    bool has_body;
    std::string header; // all of a bare reply
    std::string body;
};

// What a run puts into its record.
struct RecordContent {
    const RunOutcome &outcome;
    const RunTarget &target;
    std::string version;
    std::vector<std::string> notes;
    bool interrupted;
    std::string request; // its credentials are masked
    const WebUpdateReply &reply;
};

// A file being recorded: its path and the temporary file beside it.
struct RecordFile {
    std::string path;
    std::string temporary_path;
    int descriptor; // -1 if none is open
};

// Creates the temporary file, mode 0600. Returns 0, or -1 with the reason in *error. discard_record
// removes it from here on, so *file must stay where it is until then. A path at which there is
// anything but a regular file is refused: the final rename would replace a device or a link.
int create_record(const char *path, RecordFile *file, std::string *error);

// Writes the record and renames the temporary file to its path. Returns 0, or -1 with the reason in
// *error; the temporary file is removed then. Closes the descriptor.
int finish_record(RecordFile *file, const std::string &text, std::string *error);

// Removes the temporary file of a record that was not finished; does nothing if there is none.
// Async-signal-safe, for a process that terminates.
void discard_record();

// Returns the text of a record.
std::string record_text(const RecordContent &content);

// Reads a file, "-" for standard input. A file that begins with "Quintral record" is a record, any
// other a bare reply. A record that no run can have written is damaged. Returns 0, or -1 with the
// reason in *error.
int read_record(const char *path, Record *record, std::string *error);

// Returns the failure with that name (see web_update_failure_name); WebNoFailure if there is none.
WebUpdateFailure failure_named(const std::string &name);

// Replaces the credentials of a request by "***".
std::string mask_credentials(const std::string &request);

} // namespace quintral

#endif
