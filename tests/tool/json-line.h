// The JSON object that the utility prints.
#ifndef QUINTRAL_TESTS_TOOL_JSON_LINE_H
#define QUINTRAL_TESTS_TOOL_JSON_LINE_H

#include <array>
#include <string>

namespace quintral::tests::tool {

// The last four members: why a run failed, and whom it asked.
struct JsonEnd {
    std::string reason;     // empty for null
    int http_status;        // 0 for null
    std::string service;    // host[:port]
    std::string proxy = {}; // host:port, empty for null
};

inline std::string string_or_null(const std::string &text)
{
    return text.empty() ? "null" : "\"" + text + "\"";
}

// The object with these members. `newer`, the values and the error are given as JSON.
inline std::string json_line(const std::string &status, int exit_status, const std::string &newer,
                             const std::array<std::string, 4> &values, const std::string &error,
                             const JsonEnd &end)
{
    const std::string http_status = end.http_status != 0 ? std::to_string(end.http_status) : "null";
    return "{\"status\":\"" + status + "\",\"exit_status\":" + std::to_string(exit_status) +
           ",\"newer\":" + newer + ",\"version\":" + values[0] + ",\"url\":" + values[1] +
           ",\"button\":" + values[2] + ",\"message\":" + values[3] + ",\"error\":" + error +
           ",\"reason\":" + string_or_null(end.reason) + ",\"http_status\":" + http_status +
           ",\"service\":\"" + end.service + "\",\"proxy\":" + string_or_null(end.proxy) + "}\n";
}

// The object of a run that failed, with the error as in JSON.
inline std::string unanswered_json(const std::string &status, int exit_status,
                                   const std::string &error, const JsonEnd &end)
{
    return json_line(status, exit_status, "null", {"null", "null", "null", "null"},
                     "\"" + error + "\"", end);
}

} // namespace quintral::tests::tool

#endif
