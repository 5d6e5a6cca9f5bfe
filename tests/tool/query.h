// The request that the service, or a proxy, must receive.
#ifndef QUINTRAL_TESTS_TOOL_QUERY_H
#define QUINTRAL_TESTS_TOOL_QUERY_H

#include "platform/platform.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "tests/tool/tool-run.h"

namespace quintral::tests::tool {

// The fields of the form, in their order.
enum Field { Product, ProductLine, Version, VersionName, Os, OsVersion, MachineId, ProcessorArch };

struct Query {
    std::string address; // of the service, as in the URL
    Strings values;      // one for each field
    std::string credentials = {};
};

// Escapes everything but letters and digits.
inline std::string escaped(const std::string &text)
{
    std::string result;
    for (char c : text) {
        char escape[4] = {c, '\0'};
        if (std::strchr("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz", c) ==
            nullptr)
            std::snprintf(escape, sizeof escape, "%%%02x",
                          static_cast<unsigned>(static_cast<unsigned char>(c)));
        result += escape;
    }
    return result;
}

inline std::string form_of(const Strings &values)
{
    static const char *const names[] = {
        "product", "productline",  "version",      "version%5fname",
        "os",      "os%5fversion", "machine%5fid", "processor%5farch"};
    std::string form;
    for (std::size_t i = 0; i < values.size(); ++i)
        form += (i > 0 ? "&" : "") + std::string(names[i]) + "=" + escaped(values[i]);
    return form;
}

// The host of the service in upper case, without the port.
inline std::string host_line(const std::string &address)
{
    std::string host = address.substr(0, address.find(':'));
    for (char &c : host)
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return "Host: " + host + "\r\n";
}

inline std::string request_of(const Query &query)
{
    const std::string form = form_of(query.values);
    std::string request = "POST http://" + query.address + "/version-update.php HTTP/1.0\r\n";
    request += "Accept: image/gif, image/x-xbitmap, image/jpeg, image/pjpeg, */*\r\n"
               "Accept-Language: en-us\r\n"
               "User-Agent: Velmora_Auto1\r\n"
               "Referer: " QUINTRAL_WEB_DOMAIN "\r\n"
               "Content-Type: application/x-www-form-urlencoded\r\n"
               "Content-Length: ";
    request += std::to_string(form.size()) + "\r\n" + host_line(query.address);
    if (!query.credentials.empty())
        request += "Authorization: Basic " + query.credentials + "\r\n";
    return request + "\r\n" + form;
}

// The values that the utility sends without any options.
inline Strings default_values()
{
    utsname system = {};
    EXPECT_EQ(uname(&system), 0);
    char os_name[9];
    char os_version[sizeof system.release];
    platform_os_name(os_name);
    platform_os_version(os_version, sizeof os_version);
    char version[32];
    std::snprintf(version, sizeof version, "%.3f", std::strtod(QUINTRAL_VERSION, nullptr));
    return {"Quintral", "Quintral", version, QUINTRAL_VERSION_NAME,
            os_name,    os_version, "",      system.machine};
}

// The end of a request with the default processor.
inline std::string request_end()
{
    return "processor%5farch=" + escaped(default_values()[ProcessorArch]);
}

} // namespace quintral::tests::tool

#endif
