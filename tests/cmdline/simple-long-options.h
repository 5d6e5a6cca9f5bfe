// parse_options in its first and simplest form, with its own copy of the five variables. The tests,
// a fuzz target and the benchmarks compare the library's with it: every result, message, variable
// and order of the vector is the same.
#ifndef QUINTRAL_TESTS_CMDLINE_SIMPLE_LONG_OPTIONS_H
#define QUINTRAL_TESTS_CMDLINE_SIMPLE_LONG_OPTIONS_H

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

namespace quintral::simple {

inline int option_index = 0;
inline int option_position = 0;
inline char *option_argument = nullptr;
inline int option_errors = 1;
inline int option_code = '?';

enum class Ordering { Permute, RequireOrder, ReturnInOrder };

// The arguments of a call, with the ordering's character removed from short_options.
struct Call {
    int argument_count;
    char **arguments;
    const char *short_options;
    const LongOption *long_options;
    bool long_only;
    Ordering ordering;
};

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

inline bool vector_ends(int argument_count, char **arguments)
{
    return argument_count <= option_index || arguments[option_index] == nullptr;
}

// A negative position becomes a huge one here, and so is past the end too.
inline bool ends_at(const char *element, int position)
{
    return static_cast<std::size_t>(position) >= std::strlen(element);
}

inline int return_error(int code)
{
    option_code = code;
    return code;
}

inline Ordering choose_ordering(const char **short_options)
{
    const char first = *short_options == nullptr ? '\0' : **short_options;
    if (first == '+' || first == '-')
        ++*short_options;
    if (first == '-')
        return Ordering::ReturnInOrder;
    if (first == '+' || std::getenv("POSIXLY_CORRECT") != nullptr)
        return Ordering::RequireOrder;
    return Ordering::Permute;
}

// Returns true if the whole string is a number, optionally followed by white space: the first
// conversion succeeds and the second finds nothing left. The scan runs in the "C" locale, so that
// -0.5 is a number in a locale with a decimal comma too. If that locale is not available, uselocale
// of null changes nothing, and the program's locale applies.
inline bool reads_as_number(const char *text)
{
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", locale_t{});
    const locale_t locale_before = uselocale(c_locale);
    float number = 0;
    char rest[2] = "";
    const int conversions = std::sscanf(text, "%f%1s", &number, rest);
    uselocale(locale_before);
    return conversions == 1;
}

inline bool is_operand(const char *element, bool long_only)
{
    if (element[0] != '-')
        return !(long_only && element[0] == '+');
    return element[1] == '\0' || reads_as_number(element);
}

inline bool is_end_of_options(const char *element)
{
    return std::strcmp(element, "--") == 0;
}

// Moves the operands from `start` up to option_index after the `elements` that follow them; both
// groups keep their order.
inline void move_operands_back(char **arguments, int start, int elements)
{
    std::rotate(arguments + start, arguments + option_index, arguments + option_index + elements);
    option_index = start + elements;
}

// Skips operands, up to the next option. Returns true if there is none: then the parse is over and
// option_index is that of the first operand.
inline bool permute_ends_parse(const Call &call, SkippedOperands *skipped)
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

inline int return_operand(char *element)
{
    option_argument = element;
    ++option_index;
    option_code = 1;
    return 1;
}

// Handles operands at the start of a word. Returns true if that ends the call, with the call's
// result in *result.
inline bool operand_ends_call(const Call &call, SkippedOperands *skipped, int *result)
{
    *result = -1;
    if (call.ordering == Ordering::Permute)
        return permute_ends_parse(call, skipped);
    char *element = call.arguments[option_index];
    if (!is_operand(element, call.long_only))
        return false;
    if (call.ordering == Ordering::ReturnInOrder)
        *result = return_operand(element);
    return true;
}

inline bool begins_with_two_dashes(const char *element)
{
    return element[0] == '-' && element[1] == '-';
}

// The element is not empty at the start of a word: an empty one is an operand.
inline bool may_be_long_option(const Call &call, const char *element)
{
    return call.long_options != nullptr && option_position == 1 &&
           (begins_with_two_dashes(element) || call.long_only);
}

inline void report_ambiguous(const Call &call, const char *first_name, const char *second_name)
{
    if (option_errors == 0)
        return;
    std::fprintf(stderr, "%s: option `%s' is ambiguous (could be `--%s' or `--%s')\n",
                 call.arguments[0], call.arguments[option_index], first_name, second_name);
}

// Searches the table for the typed name of `length` bytes. Returns false, with the error reported,
// if two names begin with it before one equals it. The order of these tests is deliberate, and
// tables are ordered accordingly.
inline bool find_entry(const Call &call, const char *typed, std::size_t length,
                       const LongOption **match)
{
    *match = nullptr;
    for (const LongOption *entry = call.long_options; entry->name != nullptr; ++entry) {
        if (std::strncmp(entry->name, typed, length) != 0)
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
inline bool find_long_option(const Call &call, char *element, Option *option)
{
    option_position = begins_with_two_dashes(element) ? 2 : 1;
    char *typed = element + option_position;
    const std::size_t length = std::strcspn(typed, "=");
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

inline std::int32_t short_option_kind(const char *listed)
{
    if (listed[1] != ':')
        return NoArgument;
    return listed[2] == ':' ? OptionalArgument : RequiredArgument;
}

// Returns the option character as an int that is never -1, which would end the caller's loop.
inline int character_code(char c)
{
    return static_cast<unsigned char>(c);
}

// Looks up the character at option_position. Returns false if it is not listed, or at the end of
// the element, where strchr would find the terminator.
inline bool find_short_option(const Call &call, char *element, Option *option)
{
    if (ends_at(element, option_position))
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

inline void report_invalid(const Call &call, const char *element)
{
    if (option_errors == 0)
        return;
    if (ends_at(element, option_position))
        std::fprintf(stderr, "%s: invalid option -- `-'\n", call.arguments[0]);
    else
        std::fprintf(stderr, "%s: invalid option -- `-%c'\n", call.arguments[0],
                     element[option_position]);
}

// Skips an unknown character, and its element if that was the last character. Operands before the
// element stay there: a program stops at an error.
inline int reject_short_option(const Call &call, const char *element)
{
    report_invalid(call, element);
    if (!ends_at(element, option_position))
        ++option_position;
    if (ends_at(element, option_position)) {
        ++option_index;
        option_position = 1;
    }
    return return_error('?');
}

inline char *without_equals_sign(char *attached)
{
    return *attached == '=' ? attached + 1 : attached;
}

inline bool take_required_argument(const Call &call, Option *option)
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
inline void take_optional_argument(const Option &option)
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
inline void take_no_argument(const Option &option)
{
    option_argument = nullptr;
    const bool cluster_continues = option.entry == nullptr && *option.attached != '\0';
    option_position = cluster_continues ? option_position + 1 : 1;
}

// Returns false if a required argument is missing.
inline bool take_argument(const Call &call, Option *option)
{
    if (option->has_argument == RequiredArgument)
        return take_required_argument(call, option);
    if (option->has_argument == OptionalArgument)
        take_optional_argument(*option);
    else
        take_no_argument(*option);
    return true;
}

inline void report_missing_argument(const Call &call, const Option &option)
{
    if (option_errors == 0)
        return;
    std::fprintf(stderr, "%s: argument required for option `", call.arguments[0]);
    if (option.entry != nullptr)
        std::fprintf(stderr, "--%s'\n", option.entry->name);
    else
        std::fprintf(stderr, "-%c'\n", option_code);
}

inline int reject_missing_argument(const Call &call, const Option &option)
{
    report_missing_argument(call, option);
    ++option_index;
    return return_error(':');
}

// Skips the option's elements when its word is finished, and only then moves the skipped operands:
// those before a cluster of several calls stay before it.
inline void consume_elements(const Call &call, const SkippedOperands &skipped, int elements)
{
    if (option_position != 1)
        return;
    if (skipped.count > 0)
        move_operands_back(call.arguments, skipped.start, elements);
    else
        option_index += elements;
}

inline int option_result(const Option &option, int *long_index)
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
inline int parse_one_option(const Call &call, const SkippedOperands &skipped, int *long_index)
{
    char *element = call.arguments[option_index];
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

inline int parse_options(int argument_count, char **arguments, const char *short_options,
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
        if (vector_ends(argument_count, arguments))
            return -1;
    }
    const Ordering ordering = choose_ordering(&short_options);
    const Call call = {argument_count, arguments,      short_options,
                       long_options,   long_only != 0, ordering};
    SkippedOperands skipped = {0, 0};
    int result = 0;
    if (option_position == 1 && operand_ends_call(call, &skipped, &result))
        return result;
    return parse_one_option(call, skipped, long_index);
}

} // namespace quintral::simple

#endif
