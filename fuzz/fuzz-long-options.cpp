// The option parser, called until it reaches the end of a fuzzed argument vector, with fuzzed
// option lists. The vector remains a permutation of itself, the parse only advances, every result
// is one that the lists allow, only whole messages are printed, and everything is as with the
// simplest form of the parser.
//
// An input: a byte of flags ('@' for none, see Flags), the string of short options, a byte with the
// number of table entries, for each entry a byte with its kind ('0' to '2', or '3' to '5' with a
// flag) and its name, then the elements of the vector.
#include "cmdline/long-options.h"
#include "fuzz/fuzz.h"
#include "tests/cmdline/simple-long-options.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <string>
#include <vector>

namespace {

using namespace quintral;
using namespace quintral::fuzz;

enum Flags : unsigned {
    LongOnly = 1,
    NoShortOptions = 2,
    NoTable = 4,
    Messages = 8,
    NullEndsVector = 16, // a null pointer ends it before its count does
    PosixlyCorrect = 32
};

constexpr std::size_t most_arguments = 64;
constexpr int untouched = -77;
constexpr std::int32_t first_value = 1000; // not a character, so results can be distinguished

// The option lists and the vector of one parse, in blocks of their exact size, with a copy of the
// vector's original strings and pointers.
struct Parse {
    unsigned flags = 0;
    std::string short_text;
    std::deque<ExactBlock> blocks; // the pointers below point into these
    const char *short_options = nullptr;
    std::vector<LongOption> table; // including the entry that ends it
    std::int32_t stored = untouched;
    std::vector<std::string> texts;
    std::vector<char *> pointers;
    std::vector<char *> simple_vector; // the vector of the simplest form
};

void read_lists(Input *input, Parse *parse)
{
    parse->flags = take_byte(input);
    parse->short_text = take_text(input);
    if ((parse->flags & NoShortOptions) == 0)
        parse->short_options = parse->blocks.emplace_back(parse->short_text).data;
    const unsigned entries = take_byte(input) % 8;
    for (unsigned i = 0; i < entries; ++i) {
        const unsigned kind = take_byte(input) % 6;
        const char *name = parse->blocks.emplace_back(take_text(input)).data;
        parse->table.push_back({name, static_cast<std::int32_t>(kind % 3),
                                kind < 3 ? nullptr : &parse->stored,
                                first_value + static_cast<std::int32_t>(i)});
    }
    parse->table.push_back({nullptr, NoArgument, nullptr, 0});
}

void read_vector(Input *input, Parse *parse)
{
    do {
        parse->texts.push_back(take_text(input));
        parse->pointers.push_back(parse->blocks.emplace_back(parse->texts.back()).data);
    } while (input->left > 0 && parse->texts.size() < most_arguments);
}

void reset_parser(const Parse &parse)
{
    option_index = 0;
    option_position = 0;
    option_argument = nullptr;
    option_errors = (parse.flags & Messages) != 0 ? 1 : 0;
    option_code = '?';
    if ((parse.flags & PosixlyCorrect) != 0)
        setenv("POSIXLY_CORRECT", "1", 1);
    else
        unsetenv("POSIXLY_CORRECT");
}

// Collects standard error in memory until finish is called. It replaces the stream, not the
// descriptor, so that the report of a sanitizer is still printed.
struct CapturedErrors {
    char *text = nullptr;
    std::size_t length = 0;
    std::FILE *stream = open_memstream(&text, &length);
    std::FILE *previous = stderr;

    CapturedErrors()
    {
        FUZZ_CHECK(stream != nullptr);
        stderr = stream;
    }
    CapturedErrors(const CapturedErrors &) = delete;
    CapturedErrors &operator=(const CapturedErrors &) = delete;
    ~CapturedErrors()
    {
        std::free(text);
    }

    std::string finish()
    {
        stderr = previous;
        std::fclose(stream);
        return std::string(text, length);
    }
};

int call_parser(const Parse &parse, char **vector, int count, int *long_index)
{
    const LongOption *table = (parse.flags & NoTable) != 0 ? nullptr : parse.table.data();
    if ((parse.flags & LongOnly) != 0)
        return parse_long_only_options(count, vector, parse.short_options, table, long_index);
    return parse_options(count, vector, parse.short_options, table, long_index, 0);
}

void check_message(const Parse &parse, int result, const std::string &message)
{
    if (message.empty())
        return;
    const std::string start = parse.texts[0] + ": ";
    FUZZ_CHECK((parse.flags & Messages) != 0);
    FUZZ_CHECK(result == '?' || result == ':');
    FUZZ_CHECK(message.compare(0, start.size(), start) == 0);
    FUZZ_CHECK(message.back() == '\n');
}

void check_long_match(const Parse &parse, int result, int long_index)
{
    FUZZ_CHECK(long_index >= 0 && static_cast<std::size_t>(long_index) + 1 < parse.table.size());
    const LongOption &entry = parse.table[static_cast<std::size_t>(long_index)];
    FUZZ_CHECK(result == (entry.flag != nullptr ? 0 : entry.value));
    FUZZ_CHECK(parse.stored == (entry.flag != nullptr ? entry.value : untouched));
    if (entry.has_argument == RequiredArgument)
        FUZZ_CHECK(option_argument != nullptr);
    if (entry.has_argument == NoArgument)
        FUZZ_CHECK(option_argument == nullptr);
}

void check_other_result(const Parse &parse, int result)
{
    const bool in_order = parse.short_options != nullptr && parse.short_text[0] == '-';
    const bool has_ordering = parse.short_text[0] == '-' || parse.short_text[0] == '+';
    const bool is_error = result == -1 || result == '?' || result == ':';
    const bool is_operand = result == 1 && in_order;
    const bool is_listed =
        parse.short_options != nullptr && result > 0 && result < 256 &&
        parse.short_text.find(static_cast<char>(result), has_ordering ? 1 : 0) != std::string::npos;
    FUZZ_CHECK(is_error || is_operand || is_listed);
    FUZZ_CHECK(parse.stored == untouched);
}

void check_argument(const Parse &parse)
{
    if (option_argument == nullptr)
        return;
    bool inside = false;
    for (std::size_t i = 0; i < parse.texts.size(); ++i) {
        for (std::size_t at = 0; at <= parse.texts[i].size(); ++at)
            inside = inside || parse.pointers[i] + at == option_argument;
    }
    FUZZ_CHECK(inside);
}

// A parse that does not permute leaves the vector unchanged.
void check_vector(const Parse &parse, char **vector)
{
    const std::size_t count = parse.texts.size();
    for (std::size_t i = 0; i < count; ++i)
        FUZZ_CHECK(parse.texts[i] == parse.pointers[i]);
    if ((parse.flags & NullEndsVector) != 0)
        FUZZ_CHECK(vector[count] == nullptr);
    const char first = parse.short_options != nullptr ? parse.short_text[0] : '\0';
    const bool permutes = first != '-' && first != '+' && (parse.flags & PosixlyCorrect) == 0;
    if (permutes)
        FUZZ_CHECK(std::is_permutation(vector, vector + count, parse.pointers.begin()));
    else
        FUZZ_CHECK(std::equal(vector, vector + count, parse.pointers.begin()));
}

// What a call gave and left.
struct Effects {
    int result;
    int long_index;
    std::int32_t stored;
    int index;
    int position;
    const char *argument;
    int code;
    std::string message;
};

bool operator==(const Effects &one, const Effects &other)
{
    return one.result == other.result && one.long_index == other.long_index &&
           one.stored == other.stored && one.index == other.index &&
           one.position == other.position && one.argument == other.argument &&
           one.code == other.code && one.message == other.message;
}

// The same call of the simplest form, from the same state.
Effects simple_call(Parse *parse, int count)
{
    simple::option_index = option_index;
    simple::option_position = option_position;
    simple::option_argument = option_argument;
    simple::option_errors = option_errors;
    simple::option_code = option_code;
    int long_index = untouched;
    parse->stored = untouched;
    CapturedErrors errors;
    const int result =
        simple::parse_options(count, parse->simple_vector.data(), parse->short_options,
                              (parse->flags & NoTable) != 0 ? nullptr : parse->table.data(),
                              &long_index, (parse->flags & LongOnly) != 0 ? 1 : 0);
    return {result,
            long_index,
            parse->stored,
            simple::option_index,
            simple::option_position,
            simple::option_argument,
            simple::option_code,
            errors.finish()};
}

// Makes one call and checks its effects. Returns its result.
int make_call(Parse *parse, char **vector, int count)
{
    const Effects expected = simple_call(parse, count);
    int long_index = untouched;
    parse->stored = untouched;
    CapturedErrors errors;
    const int result = call_parser(*parse, vector, count, &long_index);
    const std::string message = errors.finish();
    FUZZ_CHECK((expected == Effects{result, long_index, parse->stored, option_index,
                                    option_position, option_argument, option_code, message}));
    FUZZ_CHECK(std::equal(parse->simple_vector.begin(), parse->simple_vector.end(), vector));
    check_message(*parse, result, message);
    if (long_index != untouched)
        check_long_match(*parse, result, long_index);
    else
        check_other_result(*parse, result);
    check_argument(*parse);
    return result;
}

std::size_t longest_text(const Parse &parse)
{
    std::size_t longest = 0;
    for (const std::string &text : parse.texts)
        longest = std::max(longest, text.size());
    return longest;
}

// Calls the parser until the end. A call that changes neither index nor position would do the same
// again, so this function skips the element, as a program must. Any other call advances, to a later
// position in the element or to a later element. So there are at most as many calls that advance as
// positions in the vector, and as many that do not.
void parse_to_end(Parse *parse, char **vector, int count)
{
    const int elements = static_cast<int>(parse->texts.size());
    const std::size_t positions = parse->texts.size() * (longest_text(*parse) + 2);
    std::size_t calls = 0;
    for (;;) {
        const int index = option_index;
        const int position = option_position;
        const int result = make_call(parse, vector, count);
        FUZZ_CHECK(++calls <= 2 * positions);
        FUZZ_CHECK(option_index >= 0 && option_index <= elements);
        FUZZ_CHECK(option_position >= 0 &&
                   static_cast<std::size_t>(option_position) <= longest_text(*parse) + 1);
        if (result == -1)
            return;
        FUZZ_CHECK(option_index > index || (option_index == index && option_position >= position));
        if (option_index != index || option_position != position)
            continue;
        if (index >= elements || index == 0)
            return; // neither option list was given
        ++option_index;
        option_position = 1;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size)
{
    Input input = {bytes, size};
    Parse parse;
    read_lists(&input, &parse);
    read_vector(&input, &parse);
    const bool null_ends = (parse.flags & NullEndsVector) != 0;
    const std::size_t count = parse.texts.size();
    const ExactBlock block((count + (null_ends ? 1 : 0)) * sizeof(char *));
    char **vector = reinterpret_cast<char **>(block.data);
    std::copy(parse.pointers.begin(), parse.pointers.end(), vector);
    if (null_ends)
        vector[count] = nullptr;
    parse.simple_vector.assign(vector, vector + count + (null_ends ? 1 : 0));

    reset_parser(parse);
    parse_to_end(&parse, vector, static_cast<int>(count) + (null_ends ? 2 : 0));
    check_vector(parse, vector);
    if (parse.short_options != nullptr || (parse.flags & NoTable) == 0)
        FUZZ_CHECK(option_index >= 1);
    return 0;
}
