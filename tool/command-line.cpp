#include "tool/command-line.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "cmdline/long-options.h"
#include "support/ascii.h"
#include "tool/streams.h"

namespace quintral {

namespace {

constexpr int default_max_time = 60;

// The parser's result for a row is its index plus this, clear of the parser's own results, which
// are characters.
constexpr std::int32_t first_result = 0x200;

// Preset in option_code so that an unknown word, which the parser skips silently, can be
// recognised.
constexpr int unknown_word = 0x100;

std::vector<LongOption> make_parser_table()
{
    std::vector<LongOption> table;
    for (std::size_t i = 0; i < option_count; ++i) {
        const OptionRow &row = option_rows[i];
        const std::int32_t takes = row.argument != nullptr ? RequiredArgument : NoArgument;
        table.push_back({row.name, takes, nullptr, first_result + static_cast<std::int32_t>(i)});
    }
    table.push_back({nullptr, NoArgument, nullptr, 0});
    return table;
}

// One reading of a command line.
struct Reading {
    int argument_count;
    char **arguments;
    std::vector<LongOption> table;
    std::vector<char *> given; // the elements in the order in which they were typed
    char *doubtful;            // the word after an error that may be a password, or null
};

int next_option(const Reading &reading)
{
    option_code = unknown_word;
    return parse_long_only_options(reading.argument_count, reading.arguments, nullptr,
                                   reading.table.data(), nullptr);
}

const OptionRow &row_of(int result)
{
    return option_rows[result - first_result];
}

void overwrite(char *text)
{
    std::memset(text, 0, std::strlen(text));
}

// An element as a message may show it: a value after '=' could be a password.
std::string without_value(const char *element)
{
    return std::string(element, ascii_length_before(element, "="));
}

bool has_value(const char *element)
{
    return std::strchr(element, '=') != nullptr;
}

bool ends_with_equals_sign(const char *element)
{
    const std::size_t length = std::strlen(element);
    return length > 0 && element[length - 1] == '=';
}

// True if the next element may have been meant as the value.
bool lacks_value(const char *element)
{
    const char *equals_sign = std::strchr(element, '=');
    return equals_sign == nullptr || equals_sign[1] == '\0';
}

// The number of letters to insert, delete, replace or exchange with a neighbour to turn one word
// into another (the optimal string alignment distance).
std::size_t distance_between(const std::string &a, const std::string &b)
{
    std::vector<std::vector<std::size_t>> d(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                d[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = d[i - 1][j - 1] + (a[i - 1] != b[j - 1] ? 1 : 0);
            d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                d[i][j] = std::min(d[i][j], d[i - 2][j - 2] + 1);
        }
    }
    return d[a.size()][b.size()];
}

// The option whose name is close to a word: at most two changes, and fewer than half its letters.
// Null if there is none.
const char *nearest_name(const std::string &word)
{
    constexpr std::size_t longest_word = 40; // much longer than every name
    const char *nearest = nullptr;
    std::size_t least = 3;
    for (std::size_t i = 0; i < option_count && word.size() <= longest_word; ++i) {
        const std::size_t distance = distance_between(word, option_rows[i].name);
        if (distance < least && distance * 2 < word.size()) {
            nearest = option_rows[i].name;
            least = distance;
        }
    }
    return nearest;
}

std::string unknown_option(const char *element)
{
    const std::string word = without_value(element);
    const std::string message = "Unknown option " + word;
    const std::size_t start = word.find_first_not_of("-+");
    const char *name = start != std::string::npos ? nearest_name(word.substr(start)) : nullptr;
    return name != nullptr ? message + "; did you mean -" + name + "?" : message;
}

std::string empty_value(const char *element)
{
    const std::string word = without_value(element);
    return word + "= has no value; for an empty one write " + word + " ''";
}

// An error that the parser stopped at: an ambiguous word, which is still in its place, or a missing
// argument, which is already consumed.
void take_parser_error(Reading *reading, int result, UsageError *error)
{
    const char *element = reading->arguments[result == ':' ? option_index - 1 : option_index];
    if (result == ':' && ends_with_equals_sign(element)) {
        error->message = empty_value(element);
        return;
    }
    error->program = reading->arguments[0];
    error->word = without_value(element);
    if (result == '?' && lacks_value(element))
        reading->doubtful = reading->arguments[option_index + 1];
}

// Checks what the parser allows and the utility does not. Returns 0, or -1 with the message. After
// an empty value the parser has taken the next element for it; that element is then read again.
int check_value(Reading *reading, const OptionRow &row, UsageError *error)
{
    const bool separate =
        row.argument != nullptr && option_argument == reading->arguments[option_index - 1];
    const char *element = reading->arguments[option_index - (separate ? 2 : 1)];
    if (row.argument == nullptr && has_value(element)) {
        error->message = std::string("-") + row.name + " takes no value";
        return -1;
    }
    if (separate && ends_with_equals_sign(element)) {
        error->message = empty_value(element);
        reading->doubtful = row.secret ? option_argument : nullptr;
        --option_index;
        return -1;
    }
    return 0;
}

// Fills the row's member. Returns 0, or -1 with the message.
int apply(const OptionRow &row, ToolOptions *options, UsageError *error)
{
    const char *message = nullptr;
    if (row.read != nullptr)
        message = row.read(options, option_argument);
    else if (row.string != nullptr)
        options->*row.string = option_argument;
    else
        options->*row.given = true;
    if (row.secret)
        overwrite(option_argument);
    error->message = message != nullptr ? message : "";
    return message == nullptr ? 0 : -1;
}

// Returns the element that was typed after this one, or null. In the vector it may be elsewhere:
// the parser moves a word that it has consumed before the operands that it has skipped.
char *typed_after(const Reading &reading, const char *element)
{
    const auto place = std::find(reading.given.begin(), reading.given.end(), element);
    const auto end = reading.given.end();
    return place != end && place + 1 != end ? place[1] : nullptr;
}

// A word that is not an option: already consumed if it had one dash, still in its place if it had
// two. The next element may be a password that it was to introduce.
void take_unknown_word(Reading *reading, UsageError *error)
{
    const int index = option_position == 1 ? option_index - 1 : option_index;
    const char *element = reading->arguments[index];
    error->message = unknown_option(element);
    if (lacks_value(element))
        reading->doubtful = typed_after(*reading, element);
}

// Reads options up to the first error. Returns 0 or -1.
int read_all(Reading *reading, ToolOptions *options, UsageError *error)
{
    for (int result = next_option(*reading); result != -1; result = next_option(*reading)) {
        if (result == '?' || result == ':') {
            take_parser_error(reading, result, error);
            return -1;
        }
        if (result == unknown_word) {
            take_unknown_word(reading, error);
            return -1;
        }
        const OptionRow &row = row_of(result);
        if (check_value(reading, row, error) != 0 || apply(row, options, error) != 0)
            return -1;
    }
    if (option_index >= reading->argument_count)
        return 0;
    error->message = "Unexpected argument; an option starts with a dash";
    return -1;
}

// True if the name of an option that takes a secret begins with the element's word. The full name
// of another option does not count.
bool may_introduce_secret(const char *element)
{
    const std::size_t dashes = ascii_length_of(element, "-+");
    const std::string word(element + dashes, ascii_length_before(element + dashes, "="));
    bool may = false;
    for (std::size_t i = 0; i < option_count && !word.empty() && dashes > 0; ++i) {
        const OptionRow &row = option_rows[i];
        if (word == row.name)
            return row.secret;
        may = may || (row.secret && std::string_view(row.name).substr(0, word.size()) == word);
    }
    return may;
}

// After a usage error only the names of options stay visible: with a mistyped name, any other word
// could be a password. A password may begin with a dash, too.
void overwrite_values(const Reading &reading)
{
    bool may_be_secret = false;
    for (std::size_t i = 1; i < reading.given.size(); ++i) {
        char *element = reading.given[i];
        const bool is_secret = may_be_secret;
        may_be_secret = lacks_value(element) && may_introduce_secret(element);
        const bool is_option = *element == '-' || *element == '+';
        overwrite(is_option && !is_secret ? element + ascii_length_before(element, "=") : element);
    }
    if (reading.doubtful != nullptr)
        overwrite(reading.doubtful);
}

// The parser's message for "--=x" without the value. The parser itself cannot print it: without a
// '=' it reads "-" as an operand and "--" as the end of the options. Every name begins with the
// empty one.
std::string ambiguous_dashes(const UsageError &error)
{
    return error.program + ": option `" + error.word + "' is ambiguous (could be `--" +
           option_rows[0].name + "' or `--" + option_rows[1].name + "')\n";
}

// Returns what is wrong with the options together, or null.
const char *wrong_combination(const ToolOptions &o)
{
    if (o.help || o.show_version)
        return nullptr;
    if (o.proxy_password != nullptr && o.password_file != nullptr)
        return "-proxy-pass and -password-file exclude each other";
    if ((o.show_request ? 1 : 0) + (o.explain_proxy ? 1 : 0) + (o.parse != nullptr ? 1 : 0) > 1)
        return "-show-request, -explain-proxy and -parse exclude each other";
    if (o.record != nullptr && (o.show_request || o.explain_proxy || o.parse != nullptr))
        return "-record needs a run that sends the request";
    const bool names_product = o.product != nullptr || o.product_line != nullptr;
    if (names_product && o.product_version == nullptr && !o.explain_proxy && o.parse == nullptr)
        return "-product and -productline need -product-version: the version of this utility says "
               "nothing about another product";
    return nullptr;
}

} // namespace

int read_options(int argument_count, char **arguments, ToolOptions *options, UsageError *error)
{
    Reading reading = {argument_count, arguments, make_parser_table(),
                       std::vector<char *>(arguments, arguments + argument_count), nullptr};
    *options = {};
    options->max_time = default_max_time;
    *error = {};
    option_index = 0;
    option_errors = 0; // the utility reports errors itself, after overwriting the secrets
    if (read_all(&reading, options, error) != 0) {
        overwrite_values(reading);
        return -1;
    }
    const char *message = wrong_combination(*options);
    error->message = message != nullptr ? message : "";
    return message == nullptr ? 0 : -1;
}

void show_usage_error(const UsageError &error)
{
    if (!error.message.empty()) {
        show_failure(error.message.c_str());
        return;
    }
    if (error.word == "-" || error.word == "--") {
        show_usage_text(ambiguous_dashes(error));
        return;
    }
    // The parser prints its message once more, for a command line of this word alone.
    std::string program = error.program;
    std::string word = error.word;
    char *arguments[] = {program.data(), word.data(), nullptr};
    option_index = 0;
    option_errors = 1;
    next_option({2, arguments, make_parser_table(), {}, nullptr});
}

} // namespace quintral
