// The command-line parser: short options in clusters, long options with abbreviation, and operands.
//
// One call returns one option; words that are not options are operands, and parsing moves them
// after the options. Besides the usual "--name", the parser has a long-only mode in which "-name"
// and "+name" are long options too. In every mode, a negative number is an operand. The parser
// works only from the two lists of options that it is given; it copies nothing and allocates
// nothing.
//
// Calling sequence: call with the same vector and lists until the result is -1, or until the first
// '?' or ':', after which a program should print its usage and stop (some errors do not advance,
// see "Errors and options that do not advance the parse"). The operands are then the elements from
// option_index to the end.
//
//     static std::int32_t quiet = 0;
//     static const LongOption table[] = {
//         {"output", RequiredArgument, nullptr, 'o'},
//         {"quiet", NoArgument, &quiet, 1},
//         {nullptr, NoArgument, nullptr, 0},
//     };
//     const char *output = nullptr;
//     for (;;) {
//         const int result = parse_options(argc, argv, "o:q", table, nullptr, 0);
//         if (result == -1)
//             break;
//         if (result == 'o')
//             output = option_argument;
//         else if (result == 'q')
//             quiet = 1;
//         else if (result != 0)
//             return usage();
//     }
//     for (int i = option_index; i < argc; ++i)
//         use(argv[i]);
//
// For the command "prog in.txt -q --out=out.txt -5", this leaves quiet 1, output "out.txt" and the
// vector "prog -q --out=out.txt in.txt -5" with option_index 3: two operands.
//
// Elements of the vector
//
// An element is an operand if it does not begin with '-', is exactly "-", or is as a whole a number
// that the C library's scanf reads with "%f" (-5, -0.25, -1e3, -inf; white space may follow). The
// decimal point is '.' in every locale. In long-only mode an element that begins with '+' is an
// option, including "+" and "+5". "--" ends the options.
//
// The short-option string lists the option characters; a character followed by ':' takes a required
// argument, one followed by "::" an optional one. A required argument is attached or is the next
// element, whatever that begins with; an optional one must be attached. One '=' before an attached
// argument is dropped: "-ofile", "-o=file" and "-o file" are the same. A long option's argument is
// attached with '=' ("--output=file"); one attached to a long option that takes none is silently
// ignored.
//
// Each call chooses the ordering of options and operands again:
//
//     short_options begins with '-'    in order: each operand is returned as result 1
//     short_options begins with '+'    the first operand ends the parse
//     POSIXLY_CORRECT is present       the same, whatever its value; a leading '-' takes precedence
//     otherwise                        permute: operands are moved after the options
//
// The leading '+' or '-' itself is not an option character.
//
// Abbreviation
//
// The table is searched in order. A name equal to the typed one is taken at once; the second name
// that merely begins with it makes the option ambiguous, also at once. An exact match is therefore
// found after at most one longer name; with "abc", "abd", "ab" in this order, "--ab" is always
// ambiguous. Programs list the shorter of related names first. An empty name ("--=x", or "+" in
// long-only mode) abbreviates every entry.
//
// A "--word" that matches no entry is read as short options from its third character; a "-word" or
// "+word" in long-only mode, from its second.
//
// Errors and options that do not advance the parse
//
// All of these are deliberate; existing programs depend on the exact positions.
// - The parse does not advance past an ambiguous option: option_index stays on it. After "-word",
//   each further call reports it again; after "--word", the next calls read its short options.
// - Without a short-option string, it does not advance past an unknown "--word" either, since
//   option_position is then 2; it does advance past an unknown "-word" in long-only mode. Both are
//   silent.
// - An absent optional argument leaves option_position unchanged. So, if "level" and 'l' take an
//   optional argument, every further call returns "--level" and the 'l' at the end of "-ql" again;
//   the parse advances past "-l" alone, and past "-level" in long-only mode, as usual. A program
//   with such an option must advance past it itself: if it is returned with option_argument null
//   and option_position not 1, add 1 to option_index and set option_position to 1.
// - After a missing required argument the parse advances, but option_position is left unchanged.
//
// Clusters and operands
//
// An option whose word is finished in one call is moved before the operands skipped to reach it.
// Operands before a cluster that takes several calls stay in place, and so do operands before a
// word that ends with an error: after "prog a -xy", option_index is 3 and "a" is still before the
// cluster. A program that needs such operands uses the in-order ordering.
//
// A "--" immediately after the program name is examined too late by the first call to end the
// options in the two orderings that do not permute: it is read as a long option with an empty name,
// then as the short option '-'.
//
// State
//
// The state is the five variables below and the remembered length of the current element, so one
// parse runs at a time, on one thread. Setting option_index to 0 starts again, with the same or
// another vector. No other variable needs to be reset, except that a program without a short-option
// string sets option_code to '?' if an earlier parse may have changed it.
#ifndef QUINTRAL_CMDLINE_LONG_OPTIONS_H
#define QUINTRAL_CMDLINE_LONG_OPTIONS_H

#include <cstdint>

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Whether a long option takes an argument.
enum : std::int32_t { NoArgument, RequiredArgument, OptionalArgument };

// One entry of the long-option table, which belongs to the caller and is only read.
struct LongOption {
    const char *name;          // terminated, without dashes; null ends the table
    std::int32_t has_argument; // NoArgument, RequiredArgument or OptionalArgument
    std::int32_t *flag;        // where a match stores `value`; null to return it instead
    std::int32_t value;
};

// Index of the element to examine next; after -1, of the first operand. Initially 0, which begins a
// parse. If the caller sets it to 1 instead, option_position is still 0, and the first element is
// then read as short options from its very first character.
extern int option_index;

// Position within the current element, in bytes. Initially 0; 1 means at the start of a word. A
// position past the end of the element is safe: the element counts as an unknown option.
extern int option_position;

// The argument of the option just returned, or the operand returned in order; null if the option
// had none. Points into the argument vector; the caller must not free it. Initially null; errors,
// an unknown word and -1 leave it unchanged.
extern char *option_argument;

// Non-zero, as initially, to print the messages on standard error; the caller may set it to 0.
extern int option_errors;

// The short-option character, 1 for an operand, or '?' or ':', from the last call that produced one
// of them. Initially '?'. A long match and -1 leave it unchanged.
extern int option_code;

// Finds the next option of an argument vector.
//
// argument_count and arguments are those of main: element 0 is the program's name, which is used in
// the messages and not parsed (but a program named "--" gets -1 from its first call). short_options
// or long_options may be null, but not both. long_index may be null. A long_only other than 0 turns
// on long-only mode.
//
// Returns
//     -1                  no more options: option_index is the index of the first operand, or the
//                         number of elements if there is none
//     a short option      its character, as unsigned char; option_argument is its argument or null
//     a long option       0, with the entry's value stored through its flag, or the value itself if
//                         the entry has no flag; option_argument is its argument or null, and
//                         *long_index is the index of its entry
//     1                   in order only: option_argument is an operand
//     '?'                 an unknown short option, an ambiguous abbreviation, an element that ends
//                         where an option character is expected, or a bad call (no vector, no list)
//     ':'                 a required argument is missing
//     option_code         its current value, if there is no short-option string and no entry of the
//                         table matches: '?' unless something changed it
// *long_index and flags are written for a long match only.
//
// If option_errors is non-zero, an error has already been reported in one line on standard error
// (an unknown word without a short-option string and a bad call print nothing):
//     prog: option `--na=1' is ambiguous (could be `--name' or `--nature')
//     prog: invalid option -- `-q'
//     prog: argument required for option `--output'
//     prog: argument required for option `-o'
//
// The permuting ordering moves elements of the vector, never their bytes; a caller that needs the
// original order keeps a copy of the pointers.
//
//     int which = 0;
//     while ((result = parse_options(argc, argv, "+v", table, &which, 0)) != -1)
//         ...
//
// Requires: arguments has argument_count elements, each terminated, of which a null one ends the
// vector early; option_index is not negative and no element before it is null; each has_argument is
// one of the three; the strings of the vector and the two lists do not change until the parse is
// over or, with option_index 0, begins again.
int parse_options(int argument_count, char **arguments, const char *short_options,
                  const LongOption *long_options, int *long_index, int long_only);

// Finds the next option in long-only mode: parse_options with long_only 1, with the same outputs,
// results, messages and requirements.
//
//     while ((result = parse_long_only_options(argc, argv, nullptr, table, nullptr)) != -1)
//         ...
//
// A program without short options, as here, should stop at '?' and ':': see "Errors and options
// that do not advance the parse" above.
int parse_long_only_options(int argument_count, char **arguments, const char *short_options,
                            const LongOption *long_options, int *long_index);

} // namespace quintral
#pragma GCC visibility pop

#endif
