#include "tool/proxy-choice.h"

#include "tool/safe-text.h"

namespace quintral {

namespace {

std::string host_of(const std::string &service)
{
    return service.substr(0, service.find(':'));
}

std::string address_of(const ProxySettings &settings)
{
    if (settings.host[0] == '\0')
        return "";
    return std::string(settings.host) + ":" +
           std::to_string(static_cast<std::uint16_t>(settings.port));
}

// The system's proxy as host:port, or an empty string.
std::string system_address()
{
    ProxySettings settings = {};
    system_http_proxy(settings.host, sizeof settings.host, &settings.port);
    return address_of(settings);
}

void add_lost_system_proxy(const char *why, ProxyChoice *choice)
{
    const std::string address = system_address();
    if (!address.empty())
        choice->lost.push_back({std::string(system_proxy_name()) + " (" + address + ")", why});
}

// Credentials are sent only to the proxy of -proxy, and only both together.
void find_ignored_credentials(const ToolOptions &options, ProxyChoice *choice)
{
    const char *password = options.password_file != nullptr ? "-password-file" : "-proxy-pass";
    const bool has_user = options.proxy_user != nullptr;
    const bool has_password = options.proxy_password != nullptr;
    if (options.proxy == nullptr) {
        if (has_user)
            choice->ignored.push_back({"-proxy-user", "it needs -proxy"});
        if (has_password)
            choice->ignored.push_back({password, "it needs -proxy"});
        return;
    }
    const bool sends_user = choice->settings.user[0] != '\0';
    const bool sends_password = choice->settings.password[0] != '\0';
    if (has_user && !sends_password)
        choice->ignored.push_back({"-proxy-user", "there is no password"});
    if (has_password && !sends_user)
        choice->ignored.push_back({password, "there is no user name"});
}

} // namespace

int choose_proxy(const ToolOptions &options, const std::string &service, ProxyChoice *choice,
                 std::string *error)
{
    *choice = {};
    choice->host = host_of(service);
    const bool bypassed =
        options.proxy == nullptr && system_proxy_is_bypassed(choice->host.c_str());
    if (!bypassed && settle_proxy(&choice->settings, options.proxy, options.proxy_user,
                                  options.proxy_password) != 0) {
        *error = "-proxy takes host:port with a port that is not 0";
        return -1;
    }
    const bool direct = choice->settings.host[0] == '\0';
    if (options.proxy != nullptr) {
        choice->source = direct ? ProxySource::Direct : ProxySource::Option;
        add_lost_system_proxy("-proxy comes first", choice);
    } else {
        choice->source = direct ? ProxySource::None : ProxySource::System;
        if (bypassed)
            add_lost_system_proxy("no_proxy lists the service's host", choice);
        if (!choice->lost.empty())
            choice->source = ProxySource::Exception;
        find_ignored_system_settings(&choice->ignored);
    }
    find_ignored_credentials(options, choice);
    return 0;
}

RunTarget run_target(const std::string &service, const ProxyChoice &choice)
{
    const char *origin = choice.source == ProxySource::Option ? "-proxy" : system_proxy_name();
    return {service, address_of(choice.settings), origin};
}

std::string describe_proxy(const ProxyChoice &choice)
{
    switch (choice.source) {
    case ProxySource::None:
        return "none (no setting names one)";
    case ProxySource::Option:
        return address_of(choice.settings) + " (from -proxy)";
    case ProxySource::Direct:
        return "none (-proxy forces a direct connection)";
    case ProxySource::System:
        return address_of(choice.settings) + " (from " + system_proxy_name() + ")";
    case ProxySource::Exception:
        break;
    }
    return "none (no_proxy lists " + choice.host + ")";
}

std::vector<std::string> ignored_setting_notes(const ProxyChoice &choice)
{
    std::vector<std::string> notes;
    for (const IgnoredSetting &ignored : choice.ignored)
        notes.push_back(ignored.setting + " is ignored: " + ignored.why);
    return notes;
}

std::string explain_proxy(const ProxyChoice &choice)
{
    std::string text = "Proxy: " + describe_proxy(choice) + "\n";
    const bool sends = choice.settings.user[0] != '\0' && choice.settings.password[0] != '\0';
    text += "Credentials: ";
    text += sends ? std::string("user ") + choice.settings.user + " and a password" : "none";
    text += "\n";
    for (const IgnoredSetting &lost : choice.lost)
        text += "Not used: " + lost.setting + ", because " + lost.why + "\n";
    for (const IgnoredSetting &ignored : choice.ignored)
        text += "Ignored: " + ignored.setting + ", because " + ignored.why + "\n";
    return safe_text(text.c_str());
}

} // namespace quintral
