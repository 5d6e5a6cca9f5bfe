#include "tool/query.h"

#include <sys/utsname.h>

#include "platform/platform.h"
#include "web/version-update.h"

namespace quintral {

namespace {

constexpr std::size_t version_index = 2;

const char given[] = "command line";
const char built_in[] = "default";
const char detected[] = "detected";

QueryValue own_value(const char *name, const char *typed, const char *fallback)
{
    return {name, typed != nullptr ? typed : fallback, typed != nullptr ? given : built_in};
}

QueryValue system_value(const char *name, const char *typed, std::string (*detect)())
{
    if (typed != nullptr)
        return {name, typed, given};
    return {name, detect(), detected};
}

std::string detect_os()
{
    char name[16];
    platform_os_name(name);
    return name;
}

std::string detect_os_version()
{
    char version[256];
    return platform_os_version(version, sizeof version);
}

std::string leave_empty()
{
    return "";
}

std::string detect_processor()
{
    utsname system = {}; // so the processor is empty should uname fail
    uname(&system);
    return system.machine;
}

} // namespace

void fill_query(const ToolOptions &o, ToolQuery *query)
{
    // Asked for only if it is needed: recent macOS logs a warning for the call.
    const bool is_used = !o.explain_proxy && o.parse == nullptr;
    const auto os_version = is_used ? detect_os_version : leave_empty;
    query->values = {
        own_value("product", o.product, "Quintral"),
        own_value("productline", o.product_line, "Quintral"),
        own_value("version", o.product_version, QUINTRAL_VERSION),
        own_value("version_name", o.version_name, QUINTRAL_VERSION_NAME),
        system_value("os", o.os, detect_os),
        system_value("os_version", o.os_version, os_version),
        own_value("machine_id", o.machine_id, ""),
        system_value("processor_arch", o.processor_arch, detect_processor),
    };
    query->service = o.service != nullptr ? o.service : web_service_host;
}

const char *own_version(const ToolQuery &query)
{
    return query.values[version_index].value.c_str();
}

void set_own_version(ToolQuery *query, const std::string &version)
{
    query->values[version_index].value = version;
}

std::string describe_value(const QueryValue &value)
{
    return std::string(value.name) + ": " + value.value + " (" + value.origin + ")";
}

WebUpdateQuery update_query(const ToolQuery &query, const ProxySettings *proxy)
{
    const auto value = [&query](std::size_t index) { return query.values[index].value.c_str(); };
    return {value(0), value(1), value(2),
            value(3), value(4), value(5),
            value(6), value(7), query.service.c_str(),
            proxy};
}

} // namespace quintral
