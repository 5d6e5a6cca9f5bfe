// The utility's command line. A simple reader says which words are the values of which options: the
// record holds them, the secret ones are overwritten and all others stay. After an error nothing
// but names of options stays visible, and the secrets have no effect on what is reported.
//
// An input: the words after the program's name. A byte from 0x80 on becomes the name of an option.
#include "fuzz/fuzz.h"
#include "tool/command-line.h"
#include "web/update-check.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

constexpr std::size_t most_words = 24;
using Words = std::vector<std::string>;

std::string take_word(Input *input)
{
    std::string word;
    for (char c : take_text(input)) {
        const unsigned byte = static_cast<unsigned char>(c);
        if (byte < 0x80)
            word += c;
        else
            word += option_rows[byte % option_count].name;
    }
    return word;
}

// The simple reader

std::string name_of(const std::string &word)
{
    const std::size_t dashes = word.compare(0, 2, "--") == 0 ? 2 : 1;
    return word.substr(dashes, word.find('=') - dashes);
}

bool has_value(const std::string &word)
{
    return word.find('=') != std::string::npos;
}

// True if the next word may have been meant as the value.
bool lacks_value(const std::string &word)
{
    return word.find('=') >= word.size() - 1;
}

// The row whose name a word is, or the only one whose name begins with it, or null.
const OptionRow *row_of(const std::string &word)
{
    const bool is_option = word.size() > 1 && (word[0] == '-' || word[0] == '+');
    if (!is_option)
        return nullptr;
    const std::string name = name_of(word);
    const OptionRow *row = nullptr;
    int rows = 0;
    for (std::size_t i = 0; i < option_count; ++i) {
        const std::string candidate = option_rows[i].name;
        if (candidate == name)
            return &option_rows[i];
        if (candidate.compare(0, name.size(), name) == 0) {
            row = &option_rows[i];
            ++rows;
        }
    }
    return rows == 1 ? row : nullptr;
}

bool is_number_up_to(const std::string &text, int most)
{
    const std::size_t start = std::min(text.find_first_not_of('0'), text.size());
    const std::string digits = text.substr(start);
    return !digits.empty() && digits.size() <= 6 &&
           digits.find_first_not_of("0123456789") == std::string::npos &&
           std::atoi(digits.c_str()) <= most;
}

bool is_service(const std::string &text)
{
    const std::size_t colon = text.find(':');
    const std::string host = text.substr(0, colon);
    return !host.empty() && text.size() <= 261 && std::all_of(host.begin(), host.end(), [](char c) {
        return is_letter_or_digit(c) || c == '.' || c == '-';
    }) && (colon == std::string::npos || is_number_up_to(text.substr(colon + 1), 65535));
}

bool is_accepted(const std::string &option, const std::string &value)
{
    float version = 0;
    if (option == "product-version")
        return web_read_product_version(value.c_str(), &version) == 0;
    if (option == "proxy")
        return value.find("://") == std::string::npos;
    if (option == "max-time")
        return is_number_up_to(value, 86400);
    return option != "service" || is_service(value);
}

// The value of one option of a command line.
struct Value {
    const OptionRow *row;
    std::size_t word;
    std::size_t start; // of the value in the word
};

// What the simple reader finds.
struct Found {
    std::vector<Value> values;
    bool is_wrong = false;   // other than in the combination of options
    bool is_unsure = false;  // a word may be a number: the reader does not know what follows
    std::size_t unknown = 0; // the word that ends the reading if it is unknown or ambiguous
};

bool is_operand(const std::string &word)
{
    return word.empty() || word == "-" || (word[0] != '-' && word[0] != '+');
}

// True for a word that may be a negative number and so an operand. No name of an option is one.
bool may_be_number(const std::string &word)
{
    return word[0] == '-' && word.find_first_of("0123456789.iInN", 1) == 1;
}

// Reads the option at an index. Returns the index of its last word, or 0 for a usage error.
std::size_t read_option(const Words &words, std::size_t i, Found *found)
{
    const OptionRow *row = row_of(words[i]);
    if (row == nullptr && may_be_number(words[i]))
        found->is_unsure = true;
    else if (row == nullptr)
        found->unknown = i;
    if (row == nullptr || (row->argument == nullptr && has_value(words[i])))
        return 0;
    if (row->argument == nullptr)
        return i;
    const std::size_t start = has_value(words[i]) ? words[i].find('=') + 1 : 0;
    if (start == 0 && ++i == words.size())
        return 0;
    const std::string value = words[i].substr(start);
    found->values.push_back({row, i, start});
    return (start > 0 && value.empty()) || !is_accepted(row->name, value) ? 0 : i;
}

Found read_simply(const Words &words)
{
    Found found;
    for (std::size_t i = 1; i < words.size(); ++i) {
        if (words[i] == "--") {
            found.is_wrong = found.is_wrong || i + 1 < words.size();
            return found;
        }
        if (is_operand(words[i])) {
            found.is_wrong = true; // the reading goes on
            continue;
        }
        i = read_option(words, i, &found);
        if (i == 0) {
            found.is_wrong = true;
            return found;
        }
    }
    return found;
}

// Reading

// A command line that was read, in blocks of the exact size of its words.
struct Reading {
    std::deque<ExactBlock> blocks;
    std::vector<char *> arguments;
    ToolOptions options;
    UsageError error;
    int result;
    Words left; // every byte of the words, terminators excluded
};

void read_words(const Words &words, Reading *reading)
{
    for (const std::string &word : words)
        reading->arguments.push_back(reading->blocks.emplace_back(word).data);
    reading->arguments.push_back(nullptr);
    reading->result = read_options(static_cast<int>(words.size()), reading->arguments.data(),
                                   &reading->options, &reading->error);
    FUZZ_CHECK(reading->result == 0 || reading->result == -1);
    for (const ExactBlock &block : reading->blocks)
        reading->left.emplace_back(block.data, block.size - 1);
}

std::string overwritten_from(const std::string &word, std::size_t start)
{
    std::string left = word;
    std::fill(left.begin() + static_cast<std::ptrdiff_t>(start), left.end(), '\0');
    return left;
}

// Without an error in a word

void check_values(const Words &words, const std::vector<Value> &values, const Reading &reading)
{
    Words expected = words;
    const char *password = nullptr;
    for (const Value &value : values) {
        if (value.row->secret) {
            expected[value.word] = overwritten_from(words[value.word], value.start);
            password = words[value.word].c_str() + value.start;
        }
    }
    FUZZ_CHECK(reading.left == expected);
    FUZZ_CHECK((reading.options.proxy_password != nullptr) == (password != nullptr));
    if (password != nullptr)
        FUZZ_CHECK(std::string(password).substr(0, 255) == reading.options.proxy_password);
    for (auto value = values.rbegin(); value != values.rend(); ++value) {
        if (value->row->string == nullptr)
            continue;
        const auto is_later = [&](const Value &other) {
            return other.row == value->row && other.word > value->word;
        };
        if (std::none_of(values.begin(), values.end(), is_later))
            FUZZ_CHECK(words[value->word].substr(value->start) ==
                       reading.options.*(value->row->string));
    }
}

// After an error

// True if the word after this one may be a secret.
bool may_introduce_secret(const std::string &word)
{
    static const std::string secret = "proxy-pass";
    const std::size_t start = std::min(word.find_first_not_of("-+"), word.size());
    const std::string name = word.substr(start, word.find('=', start) - start);
    return start > 0 && !name.empty() && lacks_value(word) && name != "proxy" &&
           secret.compare(0, name.size(), name) == 0;
}

// The option of which a whole word was read as the value, or null.
const OptionRow *option_of(const Found &found, std::size_t word)
{
    const auto is_word = [&](const Value &value) { return value.word == word && value.start == 0; };
    const auto value = std::find_if(found.values.begin(), found.values.end(), is_word);
    return value != found.values.end() ? value->row : nullptr;
}

// A secret that was read introduces no other.
bool was_secret(const Found &found, std::size_t word)
{
    const OptionRow *row = option_of(found, word);
    return row != nullptr && row->secret;
}

bool was_other_value(const Found &found, std::size_t word)
{
    const OptionRow *row = option_of(found, word);
    return row != nullptr && !row->secret;
}

// Words that are not options, values after '=', and what may be a secret are overwritten; whatever
// stays is as it was. An unknown word may be the mistyped name of an option with a secret.
void check_nothing_is_visible(const Words &words, const Found &found, const Reading &reading)
{
    const std::size_t after_unknown = found.unknown + 1;
    if (found.unknown > 0 && lacks_value(words[found.unknown]) && after_unknown < words.size())
        FUZZ_CHECK(reading.left[after_unknown] == overwritten_from(words[after_unknown], 0));
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string &left = reading.left[i];
        const std::size_t shown = std::min(left.find('\0'), left.size());
        FUZZ_CHECK(left == overwritten_from(words[i], shown));
        const bool is_option = words[i][0] == '-' || words[i][0] == '+';
        const bool may_be_secret =
            may_introduce_secret(words[i - 1]) && !was_secret(found, i - 1) && !found.is_unsure;
        if (!is_option || may_be_secret)
            FUZZ_CHECK(shown == 0);
        FUZZ_CHECK(shown <= words[i].find('='));
    }
}

// Replaces the words that may be secrets, and the values of words that may introduce one. The value
// of another option stays, whatever it looks like: a message may say what is wrong with it.
Words with_other_secrets(Words words, const Found &found)
{
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string before = words[i].substr(0, words[i].find('='));
        const bool is_value = may_introduce_secret(words[i - 1]) && words[i][0] != '-' &&
                              words[i][0] != '+' && !words[i].empty();
        if (is_value)
            words[i] = "other";
        else if (before.size() + 1 < words[i].size() && may_introduce_secret(before) &&
                 !was_other_value(found, i))
            words[i] = before + "=other";
    }
    return words;
}

void check_secrets_have_no_effect(const Words &words, const Found &found, const Reading &reading)
{
    Reading other;
    read_words(with_other_secrets(words, found), &other);
    FUZZ_CHECK(other.result == reading.result);
    FUZZ_CHECK(other.error.message == reading.error.message);
    FUZZ_CHECK(other.error.word == reading.error.word);
    for (std::size_t i = 1; i < words.size(); ++i)
        FUZZ_CHECK(std::strcmp(other.left[i].c_str(), reading.left[i].c_str()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    unsetenv("POSIXLY_CORRECT");
    Input input = {bytes, size};
    Words words = {"prog"};
    while (input.left > 0 && words.size() < most_words)
        words.push_back(take_word(&input));
    const Found found = read_simply(words);
    Reading reading;
    read_words(words, &reading);
    FUZZ_CHECK(reading.result == 0 || reading.error.message.empty() == !reading.error.word.empty());
    if (!found.is_wrong) {
        check_values(words, found.values, reading);
        return 0;
    }
    FUZZ_CHECK(reading.result == -1);
    check_nothing_is_visible(words, found, reading);
    check_secrets_have_no_effect(words, found, reading);
    return 0;
}
