// The JSON object that the utility prints.
#ifndef QUINTRAL_TESTS_TOOL_JSON_LINE_H
#define QUINTRAL_TESTS_TOOL_JSON_LINE_H

#include <array>
#include <string>

namespace quintral::tests::tool {

// The object with these members, which are given as JSON except the status.
inline std::string json_line(const std::string &status, int exit_status, const std::string &newer,
                             const std::array<std::string, 4> &values, const std::string &error)
{
    return "{\"status\":\"" + status + "\",\"exit_status\":" + std::to_string(exit_status) +
           ",\"newer\":" + newer + ",\"version\":" + values[0] + ",\"url\":" + values[1] +
           ",\"button\":" + values[2] + ",\"message\":" + values[3] + ",\"error\":" + error + "}\n";
}

// The object of a run that failed, with the error as in JSON.
inline std::string unanswered_json(const std::string &status, int exit_status,
                                   const std::string &error)
{
    return json_line(status, exit_status, "null", {"null", "null", "null", "null"},
                     "\"" + error + "\"");
}

} // namespace quintral::tests::tool

#endif
