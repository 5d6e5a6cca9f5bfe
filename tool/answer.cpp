#include "tool/answer.h"

#include <cstring>

#include "support/error.h"
#include "tool/safe-text.h"
#include "tool/streams.h"
#include "tool/version-number.h"

namespace quintral {

namespace {

void note_if_full(const char *name, const char *value)
{
    if (std::strlen(value) == answer_capacity - 1)
        show_note((std::string("The ") + name + " may have been truncated to 65535 bytes").c_str());
}

void drop_last_carriage_return(char *text)
{
    const std::size_t length = std::strlen(text);
    if (length > 0 && text[length - 1] == '\r')
        text[length - 1] = '\0';
}

void trim_spaces(char *text)
{
    const std::size_t start = std::strspn(text, " \t");
    std::size_t length = std::strlen(text + start);
    std::memmove(text, text + start, length + 1);
    while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t'))
        text[--length] = '\0';
}

void drop_carriage_returns_of_lines(char *text)
{
    char *end = text;
    for (const char *c = text; *c != '\0'; ++c) {
        if (*c == '\r' && (c[1] == '\n' || c[1] == '\0'))
            continue;
        *end++ = *c;
    }
    *end = '\0';
}

void print_if_given(const char *key, const char *value, const char *tag)
{
    if (*value != '\0')
        print_text((std::string(key) + ": " + safe_text(value) + "\n").c_str(), tag);
}

std::string json_or_null(const char *text)
{
    return text != nullptr ? json_string(text) : "null";
}

std::string json_newer(Newer newer)
{
    if (newer == Newer::Unknown)
        return "null";
    return newer == Newer::Yes ? "true" : "false";
}

} // namespace

void note_truncated_values(const UpdateAnswer &answer)
{
    note_if_full("version", answer.version);
    note_if_full("web address", answer.address);
    note_if_full("button caption", answer.button);
    note_if_full("message", answer.message);
}

void clean_answer(UpdateAnswer *answer)
{
    drop_last_carriage_return(answer->version);
    trim_spaces(answer->version);
    drop_last_carriage_return(answer->address);
    drop_last_carriage_return(answer->button);
    drop_carriage_returns_of_lines(answer->message);
}

Newer compare_answer(const UpdateAnswer &answer, const char *product_version)
{
    if (!is_version_number(answer.version))
        return Newer::Unknown;
    return compare_versions(answer.version, product_version) > 0 ? Newer::Yes : Newer::No;
}

void print_answer(const UpdateAnswer &answer)
{
    print_if_given("Version", answer.version, "version");
    print_if_given("URL", answer.address, "url");
    print_if_given("Button", answer.button, "button");
    std::string message = safe_text(answer.message);
    if (!message.empty() && message.back() != '\n')
        message += '\n';
    print_text(message.c_str(), "message");
}

std::string outcome_json(const RunOutcome &outcome)
{
    const UpdateAnswer *answer = outcome.answer;
    std::string text = "{\"status\":" + json_string(outcome.status);
    text += ",\"exit_status\":" + std::to_string(outcome.exit_status);
    text += ",\"newer\":" + json_newer(outcome.newer);
    text += ",\"version\":" + json_or_null(answer ? null_if_empty(answer->version) : nullptr);
    text += ",\"url\":" + json_or_null(answer ? null_if_empty(answer->address) : nullptr);
    text += ",\"button\":" + json_or_null(answer ? null_if_empty(answer->button) : nullptr);
    text += ",\"message\":" + json_or_null(answer ? answer->message : nullptr);
    text += ",\"error\":" + json_or_null(outcome.error);
    return text + "}\n";
}

} // namespace quintral
