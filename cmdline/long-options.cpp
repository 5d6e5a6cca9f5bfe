// The option parser, in the order of one call: the ordering, the operands before the option, the
// long option, the short option, the argument, the elements consumed.
//
// Nothing here copies strings, so elements of any length are safe; the only limit is that a
// position within an element is an int. Every index is checked by vector_ends before use, every
// position by at_end.
#include "cmdline/long-options.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <locale.h>
#if __has_include(<xlocale.h>)
#include <xlocale.h>
#endif

namespace quintral {

int option_index = 0;
int option_position = 0;
char *option_argument = nullptr;
int option_errors = 1;
int option_code = '?';

namespace {

enum class Ordering { Permute, RequireOrder, ReturnInOrder };

// The arguments of a call, with the ordering's character removed from short_options.
struct Call {
    int argument_count;
    char **arguments;
    const char *short_options;
    const LongOption *long_options;
    bool long_only;
    char ordering; // the character, or NUL for none
};

// The element in which the last call stopped, so that a cluster is measured once and not again for
// each of its characters.
struct Measured {
    const char *element; // null for none
    std::size_t length;
    int position; // option_position after that call
};

Measured measured = {nullptr, 0, 0};

// The operands that a permuting call skipped to reach its option.
struct SkippedOperands {
    int start;
    int count;
};

// The option that a call has recognised; none while `found` is false.
struct Option {
    bool found;
    const LongOption *entry; // null for a short option
    int entry_index;
    std::int32_t has_argument;
    char *attached; // the text after the name in its element, including any '='
    int elements;   // 2 if the argument is the next element
};

bool vector_ends(int argument_count, char **arguments)
{
    return argument_count <= option_index || arguments[option_index] == nullptr;
}

// Forgets the length unless the parse goes on in the middle of a word, where the last call stopped.
// A position that the program has set is thus checked against a new measurement.
void begin_measured(const char *element)
{
    if (measured.element != element || measured.position != option_position || option_position <= 1)
        measured.element = nullptr;
}

// True if option_position is not that of a character of the element. A negative position becomes a
// huge one here, and so is past the end too.
bool at_end(const char *element)
{
    if (measured.element == nullptr) {
        measured.element = element;
        measured.length = std::strlen(element);
    }
    return static_cast<std::size_t>(option_position) >= measured.length;
}

int return_error(int code)
{
    option_code = code;
    return code;
}

// Removes the ordering's character from the start of the list. Returns NUL if there is none.
char take_ordering(const char **short_options)
{
    const char first = *short_options == nullptr ? '\0' : **short_options;
    if (first != '+' && first != '-')
        return '\0';
    ++*short_options;
    return first;
}

Ordering choose_ordering(const Call &call)
{
    if (call.ordering == '-')
        return Ordering::ReturnInOrder;
    if (call.ordering == '+' || std::getenv("POSIXLY_CORRECT") != nullptr)
        return Ordering::RequireOrder;
    return Ordering::Permute;
}

// ASCII only, and true for no other character than the letter in either case.
bool is_letter(char c, char lower_case)
{
    return c == lower_case || c == lower_case - 'a' + 'A';
}

// False if no number in any locale begins like the text, which begins with a dash. Nearly all
// options are excluded here; the scan of the others takes much longer.
bool may_be_number(const char *text)
{
    const char first = text[1];
    if (is_letter(first, 'i'))
        return is_letter(text[2], 'n') && is_letter(text[3], 'f');
    if (is_letter(first, 'n'))
        return is_letter(text[2], 'a') && is_letter(text[3], 'n');
    const bool letter = (first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z');
    return !letter && first != '-';
}

// Returns true if the whole string is a number, optionally followed by white space: the first
// conversion succeeds and the second finds nothing left. The scan runs in the "C" locale, so that
// -0.5 is a number in a locale with a decimal comma too. If that locale is not available, uselocale
// of null changes nothing, and the program's locale applies.
bool reads_as_number(const char *text)
{
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", locale_t{});
    const locale_t locale_before = uselocale(c_locale);
    float number = 0;
    char rest[2] = "";
    const int conversions = std::sscanf(text, "%f%1s", &number, rest);
    uselocale(locale_before);
    return conversions == 1;
}

bool is_operand(const char *element, bool long_only)
{
    if (element[0] != '-')
        return !(long_only && element[0] == '+');
    return element[1] == '\0' || (may_be_number(element) && reads_as_number(element));
}

bool begins_with_two_dashes(const char *element)
{
    return element[0] == '-' && element[1] == '-';
}

bool is_end_of_options(const char *element)
{
    return begins_with_two_dashes(element) && element[2] == '\0';
}

// Moves the operands from `start` up to option_index after the `elements` that follow them; both
// groups keep their order.
void move_operands_back(char **arguments, int start, int elements)
{
    std::rotate(arguments + start, arguments + option_index, arguments + option_index + elements);
    option_index = start + elements;
}

// Skips operands, up to the next option. Returns true if there is none: then the parse is over and
// option_index is that of the first operand.
bool permute_ends_parse(const Call &call, SkippedOperands *skipped)
{
    skipped->start = option_index;
    while (!vector_ends(call.argument_count, call.arguments) &&
           is_operand(call.arguments[option_index], call.long_only))
        ++option_index;
    skipped->count = option_index - skipped->start;
    if (vector_ends(call.argument_count, call.arguments)) {
        option_index = skipped->start;
        return true;
    }
    if (!is_end_of_options(call.arguments[option_index]))
        return false;
    move_operands_back(call.arguments, skipped->start, 1);
    return true;
}

int return_operand(char *element)
{
    option_argument = element;
    ++option_index;
    option_code = 1;
    return 1;
}

// Handles operands at the start of a word. Returns true if that ends the call, with the call's
// result in *result.
bool operand_ends_call(const Call &call, SkippedOperands *skipped, int *result)
{
    *result = -1;
    char *element = call.arguments[option_index];
    const bool operand = is_operand(element, call.long_only);
    if (!operand && !is_end_of_options(element))
        return false; // an option in every ordering
    const Ordering ordering = choose_ordering(call);
    if (ordering == Ordering::Permute)
        return permute_ends_parse(call, skipped);
    if (operand && ordering == Ordering::ReturnInOrder)
        *result = return_operand(element);
    return operand;
}

// The element is not empty at the start of a word: an empty one is an operand.
bool may_be_long_option(const Call &call, const char *element)
{
    return call.long_options != nullptr && option_position == 1 &&
           (begins_with_two_dashes(element) || call.long_only);
}

void report_ambiguous(const Call &call, const char *first_name, const char *second_name)
{
    if (option_errors == 0)
        return;
    std::fprintf(stderr, "%s: option `%s' is ambiguous (could be `--%s' or `--%s')\n",
                 call.arguments[0], call.arguments[option_index], first_name, second_name);
}

// The typed name may be empty; then every name begins with it.
bool begins_with(const char *name, const char *typed, std::size_t length)
{
    std::size_t same = 0;
    while (same < length && name[same] == typed[same])
        ++same;
    return same == length;
}

// Searches the table for the typed name of `length` bytes. Returns false, with the error reported,
// if two names begin with it before one equals it. The order of these tests is deliberate, and
// tables are ordered accordingly.
bool find_entry(const Call &call, const char *typed, std::size_t length, const LongOption **match)
{
    *match = nullptr;
    for (const LongOption *entry = call.long_options; entry->name != nullptr; ++entry) {
        if (!begins_with(entry->name, typed, length))
            continue;
        if (entry->name[length] == '\0') {
            *match = entry;
            return true;
        }
        if (*match != nullptr) {
            report_ambiguous(call, (*match)->name, entry->name);
            return false;
        }
        *match = entry;
    }
    return true;
}

// Looks up the element as a long option. Returns false for an ambiguous one. If nothing matches,
// option_position stays after the dashes, where the short options of the word begin.
bool find_long_option(const Call &call, char *element, Option *option)
{
    option_position = begins_with_two_dashes(element) ? 2 : 1;
    char *typed = element + option_position;
    const char *sign = std::strchr(typed, '=');
    const std::size_t length =
        sign != nullptr ? static_cast<std::size_t>(sign - typed) : std::strlen(typed);
    const LongOption *entry = nullptr;
    if (!find_entry(call, typed, length, &entry))
        return false;
    if (entry == nullptr)
        return true;
    option->found = true;
    option->entry = entry;
    option->entry_index = static_cast<int>(entry - call.long_options);
    option->has_argument = entry->has_argument;
    option->attached = typed + length;
    return true;
}

std::int32_t short_option_kind(const char *listed)
{
    if (listed[1] != ':')
        return NoArgument;
    return listed[2] == ':' ? OptionalArgument : RequiredArgument;
}

// Returns the option character as an int that is never -1, which would end the caller's loop.
int character_code(char c)
{
    return static_cast<unsigned char>(c);
}

// Looks up the character at option_position. Returns false if it is not listed, or at the end of
// the element, where strchr would find the terminator.
bool find_short_option(const Call &call, char *element, Option *option)
{
    if (at_end(element))
        return false;
    char *typed = element + option_position;
    const char *listed = std::strchr(call.short_options, *typed);
    if (listed == nullptr)
        return false;
    option->found = true;
    option->has_argument = short_option_kind(listed);
    option->attached = typed + 1;
    option_code = character_code(*typed);
    return true;
}

void report_invalid(const Call &call, const char *element)
{
    if (option_errors == 0)
        return;
    if (at_end(element))
        std::fprintf(stderr, "%s: invalid option -- `-'\n", call.arguments[0]);
    else
        std::fprintf(stderr, "%s: invalid option -- `-%c'\n", call.arguments[0],
                     element[option_position]);
}

// Skips an unknown character, and its element if that was the last character. Operands before the
// element stay there: a program stops at an error.
int reject_short_option(const Call &call, const char *element)
{
    report_invalid(call, element);
    if (!at_end(element))
        ++option_position;
    if (at_end(element)) {
        ++option_index;
        option_position = 1;
    }
    return return_error('?');
}

char *without_equals_sign(char *attached)
{
    return *attached == '=' ? attached + 1 : attached;
}

bool take_required_argument(const Call &call, Option *option)
{
    char *argument = without_equals_sign(option->attached);
    if (*argument == '\0') {
        const int next = option_index + 1;
        if (call.argument_count <= next || call.arguments[next] == nullptr)
            return false;
        argument = call.arguments[next];
        option->elements = 2;
    }
    option_argument = argument;
    option_position = 1;
    return true;
}

// An absent argument deliberately leaves option_position unchanged, although this keeps the parse
// on "--name" and on the end of a cluster: callers depend on the position.
void take_optional_argument(const Option &option)
{
    char *argument = without_equals_sign(option.attached);
    if (*argument == '\0') {
        option_argument = nullptr;
        return;
    }
    option_argument = argument;
    option_position = 1;
}

// A value attached to a long option is ignored; after a short option the cluster continues.
void take_no_argument(const Option &option)
{
    option_argument = nullptr;
    const bool cluster_continues = option.entry == nullptr && *option.attached != '\0';
    option_position = cluster_continues ? option_position + 1 : 1;
}

// Returns false if a required argument is missing.
bool take_argument(const Call &call, Option *option)
{
    if (option->has_argument == RequiredArgument)
        return take_required_argument(call, option);
    if (option->has_argument == OptionalArgument)
        take_optional_argument(*option);
    else
        take_no_argument(*option);
    return true;
}

void report_missing_argument(const Call &call, const Option &option)
{
    if (option_errors == 0)
        return;
    std::fprintf(stderr, "%s: argument required for option `", call.arguments[0]);
    if (option.entry != nullptr)
        std::fprintf(stderr, "--%s'\n", option.entry->name);
    else
        std::fprintf(stderr, "-%c'\n", option_code);
}

int reject_missing_argument(const Call &call, const Option &option)
{
    report_missing_argument(call, option);
    ++option_index;
    return return_error(':');
}

// Skips the option's elements when its word is finished, and only then moves the skipped operands:
// those before a cluster of several calls stay before it.
void consume_elements(const Call &call, const SkippedOperands &skipped, int elements)
{
    if (option_position != 1)
        return;
    if (skipped.count > 0)
        move_operands_back(call.arguments, skipped.start, elements);
    else
        option_index += elements;
}

int option_result(const Option &option, int *long_index)
{
    if (option.entry == nullptr)
        return option_code;
    if (long_index != nullptr)
        *long_index = option.entry_index;
    if (option.entry->flag == nullptr)
        return option.entry->value;
    *option.entry->flag = option.entry->value;
    return 0;
}

// Recognises the option at option_index and option_position.
int parse_element(const Call &call, char *element, const SkippedOperands &skipped, int *long_index)
{
    Option option = {false, nullptr, 0, NoArgument, nullptr, 1};
    if (may_be_long_option(call, element) && !find_long_option(call, element, &option))
        return return_error('?');
    const bool try_short = !option.found && call.short_options != nullptr;
    if (try_short && !find_short_option(call, element, &option))
        return reject_short_option(call, element);
    if (option.found && !take_argument(call, &option))
        return reject_missing_argument(call, option);
    consume_elements(call, skipped, option.elements);
    return option_result(option, long_index);
}

int parse_one_option(const Call &call, const SkippedOperands &skipped, int *long_index)
{
    char *element = call.arguments[option_index];
    begin_measured(element);
    const int result = parse_element(call, element, skipped, long_index);
    measured.position = option_position;
    return result;
}

} // namespace

int parse_options(int argument_count, char **arguments, const char *short_options,
                  const LongOption *long_options, int *long_index, int long_only)
{
    if (argument_count == 0 || arguments == nullptr ||
        (short_options == nullptr && long_options == nullptr))
        return return_error('?');
    if (vector_ends(argument_count, arguments))
        return -1;
    // At the start of a parse this is the program's name. A "--" immediately after it is
    // deliberately not examined here: the permuting ordering finds it, the other two read it as an
    // option.
    if (is_end_of_options(arguments[option_index])) {
        ++option_index;
        return -1;
    }
    if (option_index == 0) {
        option_index = 1;
        option_position = 1;
        measured.element = nullptr; // the strings may be new ones at the same addresses
        if (vector_ends(argument_count, arguments))
            return -1;
    }
    const char ordering = take_ordering(&short_options);
    const Call call = {argument_count, arguments,      short_options,
                       long_options,   long_only != 0, ordering};
    SkippedOperands skipped = {0, 0};
    int result = 0;
    if (option_position == 1 && operand_ends_call(call, &skipped, &result))
        return result;
    return parse_one_option(call, skipped, long_index);
}

int parse_long_only_options(int argument_count, char **arguments, const char *short_options,
                            const LongOption *long_options, int *long_index)
{
    return parse_options(argument_count, arguments, short_options, long_options, long_index, 1);
}

} // namespace quintral
