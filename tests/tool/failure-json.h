// The JSON object that the utility prints when no answer was received.
#ifndef QUINTRAL_TESTS_TOOL_FAILURE_JSON_H
#define QUINTRAL_TESTS_TOOL_FAILURE_JSON_H

#include <string>

namespace quintral::tests::tool {

// What the object says. The error is given as in JSON.
struct FailureJson {
    std::string status;
    int exit_status;
    std::string error;
    std::string reason;
    int http_status; // 0 for null
    std::string service;
    std::string proxy = {}; // empty for null
};

inline std::string failure_json(const FailureJson &failure)
{
    const std::string http_status =
        failure.http_status != 0 ? std::to_string(failure.http_status) : "null";
    const std::string proxy = failure.proxy.empty() ? "null" : "\"" + failure.proxy + "\"";
    return "{\"status\":\"" + failure.status +
           "\",\"exit_status\":" + std::to_string(failure.exit_status) +
           R"(,"newer":null,"version":null,"url":null,"button":null,"message":null,"error":")" +
           failure.error + R"(","reason":")" + failure.reason + R"(","http_status":)" +
           http_status + R"(,"service":")" + failure.service + R"(","proxy":)" + proxy + "}\n";
}

} // namespace quintral::tests::tool

#endif
