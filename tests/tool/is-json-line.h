// The check of the JSON object that the utility prints.
#ifndef QUINTRAL_TESTS_TOOL_IS_JSON_LINE_H
#define QUINTRAL_TESTS_TOOL_IS_JSON_LINE_H

#include <algorithm>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace quintral::tests::tool {

// True for one line that is a JSON object with the twelve keys in order, each with a plain value.
inline bool is_json_line(const std::string &line)
{
    using Json = nlohmann::json;
    static const std::vector<std::string> expected = {"status", "exit_status", "newer",   "version",
                                                      "url",    "button",      "message", "error",
                                                      "reason", "http_status", "service", "proxy"};
    std::vector<std::string> keys; // as the line has them; the parsed object sorts and merges them
    const auto note_key = [&keys](int, Json::parse_event_t event, const Json &key) {
        if (event == Json::parse_event_t::key)
            keys.push_back(key);
        return true;
    };
    const Json object = Json::parse(line, note_key, false);
    return line.find('\n') == line.size() - 1 && object.is_object() && keys == expected &&
           std::all_of(object.begin(), object.end(),
                       [](const Json &v) { return v.is_primitive(); });
}

} // namespace quintral::tests::tool

#endif
