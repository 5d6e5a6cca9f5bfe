// Running the utility with -record.
#ifndef QUINTRAL_TESTS_TOOL_RECORDED_RUN_H
#define QUINTRAL_TESTS_TOOL_RECORDED_RUN_H

#include <string>
#include <vector>

#include <sys/types.h>

#include "tests/harness/temp-folder.h"
#include "tests/tool/query.h"
#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {

// "key: value", or nothing for an empty value.
inline std::string record_line(const std::string &key, const std::string &value)
{
    return value.empty() ? "" : key + ": " + value + "\n";
}

inline std::string record_block(const std::string &key, const std::string &bytes)
{
    return key + ": " + std::to_string(bytes.size()) + "\n" + bytes + "\n";
}

// The start of the record of a run with the default version.
inline std::string record_start(const std::string &service)
{
    return "Quintral record 1\n" + record_line("version", QUINTRAL_VERSION) +
           record_line("service", service);
}

// The block of the request that a run with the default values sends.
inline std::string request_block(const std::string &service)
{
    return record_block("request", request_of({service, default_values()}));
}

// Header and body as the client stores them: the last line feed of the header is not kept.
inline std::string reply_blocks(const std::string &reply)
{
    const std::size_t end = reply.find("\r\n\r\n") + 3;
    return record_block("header", reply.substr(0, end)) +
           record_block("body", reply.substr(end + 1));
}

struct RecordedRun {
    Exchange exchange;
    std::string record;               // bytes of the file
    std::vector<std::string> entries; // of the folder, which held nothing else
    mode_t mode = 0;
};

// Collects what a run left in its folder.
inline void collect_record(const TempFolder &folder, RecordedRun *run)
{
    run->entries = entries_below(folder.path());
    run->record = file_content(folder.path("record"));
    if (!run->entries.empty())
        run->mode = permissions_of(folder.path(run->entries[0]));
}

inline Strings recording(const TempFolder &folder, const Strings &arguments)
{
    return joined({"-record", folder.path("record")}, arguments);
}

// Runs the utility against a service that follows the script.
inline RecordedRun record_run(const TempFolder &folder, const PeerScript &script,
                              const Strings &arguments = {}, const ChildOptions &options = {})
{
    RecordedRun run;
    run.exchange = ask(script, recording(folder, arguments), options);
    collect_record(folder, &run);
    return run;
}

} // namespace quintral::tests::tool

#endif
