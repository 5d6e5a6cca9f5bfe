#include "tool/answer.h"

#include <cstring>

#include "support/error.h"
#include "tool/safe-text.h"
#include "tool/streams.h"

namespace quintral {

namespace {

void truncate(const char *name, char *value, bool notes)
{
    if (value == nullptr || std::strlen(value) < longest_value)
        return;
    value[longest_value] = '\0';
    if (notes)
        show_note((std::string("The ") + name + " may have been truncated to 65535 bytes").c_str());
}

void print_if_given(const char *key, const char *value, const char *tag)
{
    if (value != nullptr)
        print_text((std::string(key) + ": " + safe_text(value) + "\n").c_str(), tag);
}

std::string json_or_null(const char *text)
{
    return text != nullptr ? json_string(text) : "null";
}

std::string json_newer(const WebUpdateReply *reply)
{
    if (reply == nullptr || reply->newer == WebNewerUnknown)
        return "null";
    return reply->newer == WebNewer ? "true" : "false";
}

} // namespace

void truncate_values(WebUpdateReply *reply, bool notes)
{
    truncate("version", reply->version, notes);
    truncate("web address", reply->url, notes);
    truncate("button caption", reply->button, notes);
    truncate("message", reply->message, notes);
}

void print_answer(const WebUpdateReply &reply)
{
    print_if_given("Version", reply.version, "version");
    print_if_given("URL", reply.url, "url");
    print_if_given("Button", reply.button, "button");
    std::string message = safe_text(reply.message);
    if (!message.empty() && message.back() != '\n')
        message += '\n';
    print_text(message.c_str(), "message");
}

std::string outcome_json(const RunOutcome &outcome, const RunTarget &target)
{
    const WebUpdateReply *reply = outcome.reply;
    const char *proxy = target.proxy.empty() ? nullptr : target.proxy.c_str();
    std::string text = "{\"status\":" + json_string(outcome.status);
    text += ",\"exit_status\":" + std::to_string(outcome.exit_status);
    text += ",\"newer\":" + json_newer(reply);
    text += ",\"version\":" + json_or_null(reply ? reply->version : nullptr);
    text += ",\"url\":" + json_or_null(reply ? reply->url : nullptr);
    text += ",\"button\":" + json_or_null(reply ? reply->button : nullptr);
    text += ",\"message\":" + json_or_null(reply ? reply->message : nullptr);
    text += ",\"error\":" + json_or_null(outcome.error);
    text += ",\"reason\":" + json_or_null(outcome.reason);
    text += ",\"http_status\":";
    text += outcome.http_status != 0 ? std::to_string(outcome.http_status) : "null";
    text += ",\"service\":" + json_string(target.service.c_str());
    text += ",\"proxy\":" + json_or_null(proxy);
    return text + "}\n";
}

} // namespace quintral
