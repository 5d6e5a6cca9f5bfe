// The query of a run: the eight values with their defaults, and where each came from.
#ifndef QUINTRAL_TOOL_QUERY_H
#define QUINTRAL_TOOL_QUERY_H

#include <array>
#include <string>

#include "tool/options.h"
#include "web/update-check.h"

namespace quintral {

// One value of the query, in the order of the request's fields.
struct QueryValue {
    const char *name; // of the field: "product", "productline", ...
    std::string value;
    const char *origin; // "command line", "default" or "detected"
};

// The number of values.
constexpr std::size_t query_value_count = 8;

// The values in the order of the request's fields, and whom to ask.
struct ToolQuery {
    std::array<QueryValue, query_value_count> values;
    std::string service; // host[:port]
};

// Fills *query from the options and the defaults: the utility's own product, version and names, an
// empty machine identifier, the operating system and the processor as the system reports them. The
// system is asked only for values that were not given, and for its version only if the run sends or
// shows it. Sets the service to -service or the one set at build time.
void fill_query(const ToolOptions &options, ToolQuery *query);

// The version that the query sends, as typed.
const char *own_version(const ToolQuery &query);
void set_own_version(ToolQuery *query, const std::string &version);

// Returns a line about a value: "product: Quintral Shapes (command line)".
std::string describe_value(const QueryValue &value);

// Returns the query for web_check_for_update. It points into *query and *proxy.
WebUpdateQuery update_query(const ToolQuery &query, const ProxySettings *proxy);

} // namespace quintral

#endif
