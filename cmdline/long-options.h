// The command-line parser: short options in clusters, long options with abbreviation, and operands.
//
// One call returns one option; the words that are no options are the operands, and they stand
// behind the options when the parse is over. Beside the usual "--name" the parser has a long-only
// mode in which "-name" and "+name" are long options too, and in every mode a negative number is an
// operand. It knows nothing about the program's options but the two lists it is given, copies
// nothing and allocates nothing.
//
// Calling sequence: call with the same vector and lists until the result is -1, or until the first
// '?' or ':', which is where a program should print its usage and stop (some errors do not move on,
// see "What does not move on"). Then the operands are the elements from option_index to the end.
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
// Typed "prog in.txt -q --out=out.txt -5", this leaves quiet 1, output "out.txt" and the vector
// "prog -q --out=out.txt in.txt -5" with option_index 3: two operands.
//
// Elements of the vector
//
// An element is an operand when it does not begin with '-', or is exactly "-", or reads whole as a
// number the way the C library's scanf reads "%f" (-5, -0.25, -1e3, -inf; white space may follow).
// The decimal point is '.' whatever locale the host program has set. In long-only mode an element
// that begins with '+' is an option, "+" alone and "+5" included. "--" ends the options.
//
// The short-option string lists the option characters; one followed by ':' takes a required
// argument, one followed by "::" an optional one. A required argument may be attached or the next
// element, whatever that begins with; an optional one must be attached. An attached argument may
// have one '=' in front, which is dropped: "-ofile", "-o=file" and "-o file" are the same. A long
// option's argument is attached with '=' ("--output=file"); one attached to a long option that
// takes none is ignored in silence.
//
// The ordering of options and operands is chosen anew by each call:
//
//     short_options begins with '-'    in order: each operand is returned as result 1
//     short_options begins with '+'    the first operand ends the parse
//     POSIXLY_CORRECT is present       the same, whatever its value; but '-' in front is stronger
//     otherwise                        permute: operands are moved behind the options
//
// The leading '+' or '-' is no option character itself.
//
// Abbreviation
//
// The table is walked in its order. A name equal to the typed one is taken at once; the second name
// that merely begins with it makes the word ambiguous, at once too. So an exact name is found
// behind one longer relative but never behind two: with "abc", "abd", "ab" in this order nobody can
// type "--ab". Programs put the shorter of related names first. An empty name ("--=x", or "+" in
// long-only mode) abbreviates every entry.
//
// A "--word" that no entry matches is read as short options from its third character, a "-word" or
// "+word" of long-only mode from its second.
//
// What does not move on
//
// All of these are deliberate; existing programs count on the exact positions.
// - An ambiguous word is not passed over: option_index stays on it. After "-word" each further call
//   reports it again; after "--word" the next calls read its short options.
// - With no short-option string an unknown "--word" is not passed over either, since
//   option_position is 2 by then; an unknown "-word" of long-only mode is. Both are silent.
// - An optional argument that is absent leaves option_position alone. So, with "level" and 'l'
//   taking an optional argument, "--level" and the 'l' at the end of "-ql" are returned again by
//   every further call; "-l" alone, and "-level" in long-only mode, are passed over as usual. A
//   program that offers such an option passes over it itself: when it was returned with
//   option_argument null and option_position not 1, add 1 to option_index and set option_position
//   to 1.
// - A missing required argument moves on, but leaves option_position as it was.
//
// Clusters and operands
//
// An option whose word is finished in one call is moved in front of the operands skipped to reach
// it. Operands in front of a cluster that takes several calls stay where they are, and so do those
// in front of a word that ends in an error: after "prog a -xy" option_index is 3 and "a" stands
// before it. A program that wants such operands uses the in-order ordering.
//
// A "--" right behind the program name is looked at in the first call too late to end the options
// in the two orderings that do not permute: there it is read as a long option with an empty name,
// then as the short option '-'.
//
// State
//
// The state is in the five variables below, one parse at a time, from one thread. Setting
// option_index to 0 starts again, with the same or another vector; no other variable needs to be
// reset, except that a program without a short-option string sets option_code to '?' if an earlier
// parse may have left something else there.
#ifndef QUINTRAL_CMDLINE_LONG_OPTIONS_H
#define QUINTRAL_CMDLINE_LONG_OPTIONS_H

#include <cstdint>

namespace quintral {

// What a long option takes.
enum : std::int32_t { NoArgument, RequiredArgument, OptionalArgument };

// One entry of the long-option table. The table belongs to the caller and is only read.
struct LongOption {
    const char *name;          // without its dashes, terminated; null ends the table
    std::int32_t has_argument; // NoArgument, RequiredArgument or OptionalArgument
    std::int32_t *flag;        // where a match stores `value`, or null to have it returned
    std::int32_t value;
};

// Index of the element to examine next; after -1, of the first operand. Starts as 0, which begins a
// parse. A caller that sets it to 1 by hand has option_position 0 left from the start, and the
// first element is then read as short options from its very first character.
extern int option_index;

// Position within the current element, in bytes. Starts as 0; 1 means at the start of a word. One
// that lies behind the end of its element is no danger: the element counts as an unknown option.
extern int option_position;

// The argument of the option just returned, or the operand returned in order; null where an option
// had none. Points into the argument vector and is not the caller's to free. Starts as null;
// errors, an unknown word and -1 leave it as it was.
extern char *option_argument;

// Non-zero, as at the start, to have the messages printed on standard error; the caller may set it
// to 0.
extern int option_errors;

// The short-option character, 1 for an operand, or the '?' or ':' of the last call that produced
// one of them. Starts as '?'. A long match and -1 leave it as it was.
extern int option_code;

// Finds the next option of an argument vector.
//
// argument_count and arguments are main's: element 0 is the program's name, used in the messages
// and not parsed (but a program named "--" gets -1 from its first call). short_options or
// long_options may be null, but not both. long_index may be null. A long_only other than 0 turns
// the long-only mode on.
//
// Returns
//     -1                  no more options: option_index is the first operand, the number of
//                         elements if there is none
//     a short option      its character, as unsigned char; option_argument is its argument or null
//     a long option       0 with the entry's value stored through its flag, or the value itself
//                         when the entry has no flag; option_argument is its argument or null, and
//                         *long_index the index of its entry
//     1                   in order only: option_argument is an operand
//     '?'                 an unknown short option, an ambiguous abbreviation, an element that ends
//                         where an option character should stand, or a bad call (no vector, no
//                         list)
//     ':'                 a required argument is missing
//     option_code         as it stands, when there is no short-option string and no entry of the
//                         table matches: '?' unless something set it otherwise
// *long_index and flags are written for a long match only.
//
// An error has already been reported, one line on standard error, when option_errors is non-zero
// (an unknown word without a short-option string and a bad call print nothing):
//     prog: option `--na=1' is ambiguous (could be `--name' or `--nature')
//     prog: invalid option -- `-q'
//     prog: argument required for option `--output'
//     prog: argument required for option `-o'
//
// In the permuting ordering the elements of the vector are moved, never their bytes; a caller that
// needs the order as typed keeps a copy of the pointers.
//
//     int which = 0;
//     while ((result = parse_options(argc, argv, "+v", table, &which, 0)) != -1)
//         ...
//
// Requires: arguments holds argument_count elements, each terminated, of which a null one ends the
// vector early; option_index is not negative and no element in front of it is null; each
// has_argument is one of the three; the texts of the vector and the two lists stay as they are
// until the parse is over.
int parse_options(int argument_count, char **arguments, const char *short_options,
                  const LongOption *long_options, int *long_index, int long_only);

// Finds the next option in long-only mode: parse_options with long_only 1, with the same outputs,
// results, messages and requirements.
//
//     while ((result = parse_long_only_options(argc, argv, nullptr, table, nullptr)) != -1)
//         ...
//
// A program that lists no short options, as here, should take '?' and ':' for the end: see "What
// does not move on" above.
int parse_long_only_options(int argument_count, char **arguments, const char *short_options,
                            const LongOption *long_options, int *long_index);

} // namespace quintral

#endif
