// The string transforms beside the C library, absl and simple loops.
#include "bench/cases.h"

#include "support/c-utils/transforms.h"
#include "tests/support/reference-transforms.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <absl/strings/ascii.h>

namespace quintral {

namespace {

constexpr std::size_t sizes[] = {8, 64, 1024, 16384, 1048576};

// Text as people write it, in which the patterns below do not occur.
std::string prose(std::size_t size)
{
    static const std::string paragraph =
        "A later release of the program draws faster, and it opens the files of every earlier one. "
        "Choose About in the Help menu to see which release is installed. The service on the web "
        "answers with the number of the latest release, its address and a short message. Nothing "
        "is sent unless someone asks for it. ";
    return repeat_to(paragraph, size);
}

// Searches

using Find = const char *(*)(const char *text, const char *pattern);

const char *c_library_find(const char *text, const char *pattern)
{
    return strcasestr(text, pattern);
}

constexpr std::size_t longest_compared = 1025; // by the simple loop, whose cost is a product

void add_search(BenchCases *cases, const std::string &routine, const std::string &text,
                const std::string &pattern)
{
    const struct {
        const char *side;
        Find find;
    } sides[] = {
        {"ours", find_ignoring_case},
        {"reference", reference::find_ignoring_case},
        {"strcasestr", c_library_find},
    };
    for (const auto &row : sides) {
        const Find find = row.find;
        if (find == reference::find_ignoring_case && pattern.size() > longest_compared)
            continue;
        add_repeated(cases, routine, row.side, text.size(),
                     [=] { bench_keep(find(text.c_str(), pattern.c_str())); });
    }
}

void add_searches(BenchCases *cases)
{
    for (const std::size_t size : sizes) {
        const std::string text = prose(size - 4);
        add_search(cases, "find_ignoring_case/prose", text + "KIWI", "kiwi");
        add_search(cases, "find_ignoring_case/prose-rare-start", text + "Zone", "zONE");
        add_search(cases, "find_ignoring_case/prose-common-start", text + "Eons", "EONS");
        add_search(cases, "find_ignoring_case/prose-digit-start", text + "5.2B", "5.2b");
        add_search(cases, "find_ignoring_case/absent-letter", std::string(size, '-'), "kiwi");
    }
    // Growth with the length: a simple loop compares half the text at every position.
    for (std::size_t size = 256; size <= 65536; size *= 2) {
        const std::string text(size, 'a');
        add_search(cases, "find_ignoring_case/growth", text, std::string(size / 2, 'A') + 'b');
        add_search(cases, "find_ignoring_case/growth-start", text,
                   'b' + std::string(size / 2, 'A'));
        add_search(cases, "find_ignoring_case/growth-middle", text,
                   std::string(size / 4, 'A') + 'b' + std::string(size / 4, 'A'));
        add_search(cases, "find_ignoring_case/growth-second", text,
                   "Ab" + std::string(size / 2, 'A'));
    }
}

// Copies

template <typename Result>
void add_copy(BenchCases *cases, const std::string &routine, const char *side,
              Result (*copy)(const char *source, char *destination), const std::string &text)
{
    const auto destination = std::make_shared<std::string>(text);
    add_repeated(cases, routine, side, text.size(), [=] {
        copy(text.c_str(), destination->data());
        bench_keep(*destination->data());
    });
}

// absl's functions change a string in place, as ours may. A string that has been changed once
// costs the same as the first one: no branch depends on the case.
void add_copy_peer(BenchCases *cases, const std::string &routine, void (*change)(std::string *),
                   const std::string &text)
{
    const auto changed = std::make_shared<std::string>(text);
    add_repeated(cases, routine, "absl", text.size(), [=] {
        change(changed.get());
        bench_keep(*changed->data());
    });
}

void add_copies(BenchCases *cases)
{
    for (const std::size_t size : sizes) {
        const std::string text = prose(size);
        add_copy(cases, "copy_lower_case", "ours", copy_lower_case, text);
        add_copy(cases, "copy_lower_case", "reference", reference::copy_lower_case, text);
        add_copy_peer(cases, "copy_lower_case", absl::AsciiStrToLower, text);
        add_copy(cases, "copy_upper_case", "ours", copy_upper_case, text);
        add_copy(cases, "copy_upper_case", "reference", reference::copy_upper_case, text);
        add_copy_peer(cases, "copy_upper_case", absl::AsciiStrToUpper, text);
    }
}

// Numbers

using Parse = int (*)(const char *text, float *result);

int c_library_parse(const char *text, float *result)
{
    char *end = nullptr;
    *result = std::strtof(text, &end);
    return end != text;
}

void add_number(BenchCases *cases, const std::string &routine, const std::string &text)
{
    const struct {
        const char *side;
        Parse parse;
    } sides[] = {
        {"ours", parse_float},
        {"reference", reference::parse_float},
        {"strtof", c_library_parse},
    };
    for (const auto &row : sides) {
        const Parse parse = row.parse;
        add_repeated(cases, routine, row.side, text.size(), [=] {
            float number = 0;
            parse(text.c_str(), &number);
            bench_keep(number);
        });
    }
}

void add_numbers(BenchCases *cases)
{
    add_number(cases, "parse_float/integer", "51");
    add_number(cases, "parse_float/fraction", "5.2");
    add_number(cases, "parse_float/long-fraction", "3.14159265");
    add_number(cases, "parse_float/exponent", "1.5e3");
    add_number(cases, "parse_float/negative-exponent", "6.25e-17");
    for (const std::size_t size : sizes) {
        add_number(cases, "parse_float/digits", "0." + std::string(size - 2, '3'));
        add_number(cases, "parse_float/zeros-and-exponent", std::string(size - 4, '0') + "5e12");
    }
}

} // namespace

void add_transforms_cases(BenchCases *cases)
{
    add_searches(cases);
    add_copies(cases);
    add_numbers(cases);
}

} // namespace quintral
