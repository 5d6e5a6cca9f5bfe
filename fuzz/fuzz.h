// What the fuzz targets share: the check, reading an input, string helpers, and memory with watched
// bounds.
//
// A target is one LLVMFuzzerTestOneInput. It splits its input into the arguments of the code under
// test, calls that code, and checks the results against the contract in the public header.
// libFuzzer drives the target (fuzz-THING). Without libFuzzer, replay-main.cpp feeds it the
// committed inputs (fuzz-THING-replay).
//
// In an input, each string ends at a NUL or at the end of the input, and each choice is one byte:
// the characters from '0' on (or from 'A' on) choose the first, the second, and so on. An input can
// thus be written in an editor.
#ifndef QUINTRAL_FUZZ_FUZZ_H
#define QUINTRAL_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);

// If the condition is false, reports it with its file and line and aborts.
#define FUZZ_CHECK(condition)                                                                      \
    ((condition) ? static_cast<void>(0) : ::quintral::fuzz::fail(#condition, __FILE__, __LINE__))

#if defined(__SANITIZE_ADDRESS__)
#define QUINTRAL_FUZZ_ADDRESSES_ARE_WATCHED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QUINTRAL_FUZZ_ADDRESSES_ARE_WATCHED 1
#endif
#endif
#ifndef QUINTRAL_FUZZ_ADDRESSES_ARE_WATCHED
#define QUINTRAL_FUZZ_ADDRESSES_ARE_WATCHED 0
#endif

namespace quintral::fuzz {

[[noreturn]] inline void fail(const char *condition, const char *file, int line)
{
    std::fprintf(stderr, "%s:%d: fuzz check failed: %s\n", file, line, condition);
    std::abort();
}

// Reading an input

// The rest of an input. The bytes belong to the caller of the target.
struct Input {
    const std::uint8_t *bytes;
    std::size_t left;
};

// The functions below remove what they return from the front of the input. At its end, each missing
// byte is 0 and each missing string is empty.

// Takes the next byte.
inline unsigned take_byte(Input *input)
{
    if (input->left == 0)
        return 0;
    --input->left;
    return *input->bytes++;
}

// Takes a 16-bit number, low byte first.
inline int take_int16(Input *input)
{
    const unsigned low = take_byte(input);
    return static_cast<std::int16_t>(take_byte(input) << 8 | low);
}

// Takes a 32-bit number, low byte first.
inline std::int32_t take_int32(Input *input)
{
    std::uint32_t number = 0;
    for (int shift = 0; shift < 32; shift += 8)
        number |= static_cast<std::uint32_t>(take_byte(input)) << shift;
    return static_cast<std::int32_t>(number);
}

// Takes the 32 bits of a float: any value, including infinities and NaNs.
inline float take_float(Input *input)
{
    const std::int32_t bits = take_int32(input);
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Takes `count` bytes, or as many as there are.
inline std::string take_bytes(Input *input, std::size_t count)
{
    const std::size_t taken = count < input->left ? count : input->left;
    std::string bytes(reinterpret_cast<const char *>(input->bytes), taken);
    input->bytes += taken;
    input->left -= taken;
    return bytes;
}

// Takes the next string and the NUL that ends it, if there is one.
inline std::string take_text(Input *input)
{
    std::size_t length = 0;
    while (length < input->left && input->bytes[length] != 0)
        ++length;
    std::string text = take_bytes(input, length);
    take_byte(input);
    return text;
}

// One kind of case in a target that has several.
using Case = void (*)(Input *input);

// Runs the cases of an input in order, to its end. Each is a byte that chooses one of `count`
// kinds, counted from the character `first`, then whatever that kind takes. One file can thus
// contain all cases that belong together. At most 64 cases run, which limits the time for an input.
template <std::size_t count> void run_cases(Input *input, const Case (&kinds)[count], char first)
{
    constexpr unsigned choices = 32;
    static_assert(count <= choices);
    for (int cases = 0; cases < 64 && input->left > 0; ++cases) {
        const unsigned choice = (take_byte(input) - static_cast<unsigned>(first)) % choices;
        kinds[choice % count](input);
    }
}

// String helpers, independent of the code under test. Letters, digits and white space are ASCII's.

inline constexpr char white_space[] = " \t\n\v\f\r";

inline bool is_letter_or_digit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

inline char upper_case(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
}

inline std::string upper_case(std::string text)
{
    for (char &c : text)
        c = upper_case(c);
    return text;
}

inline std::string lower_case(std::string text)
{
    for (char &c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
}

// Replaces each escape by its byte. An escape is `mark` and two of the 16 hex digits `digits`.
inline std::string without_escapes(const std::string &escaped, const std::string &mark,
                                   const std::string &digits)
{
    std::string bytes;
    for (std::size_t at = 0; at < escaped.size(); ++at) {
        if (escaped.compare(at, mark.size(), mark) != 0) {
            bytes += escaped[at];
            continue;
        }
        FUZZ_CHECK(escaped.size() - at >= mark.size() + 2);
        const std::size_t high = digits.find(escaped[at + mark.size()]);
        const std::size_t low = digits.find(escaped[at + mark.size() + 1]);
        FUZZ_CHECK(high != std::string::npos && low != std::string::npos);
        bytes += static_cast<char>(high * 16 + low);
        at += mark.size() + 1;
    }
    return bytes;
}

// The length of the longest run of digits. A number that does not fit its type is undefined
// behaviour in scanf, so a string with a long run cannot be compared with it.
inline std::size_t longest_digit_run(const std::string &text)
{
    std::size_t longest = 0;
    std::size_t run = 0;
    for (char c : text) {
        run = c >= '0' && c <= '9' ? run + 1 : 0;
        longest = run > longest ? run : longest;
    }
    return longest;
}

// Memory with watched bounds

// A block of exactly `size` bytes, so that AddressSanitizer reports the first byte read or written
// outside it. A build without AddressSanitizer puts guards around the block and checks them in the
// destructor, so that every replay reports a byte written outside.
struct ExactBlock {
    static constexpr std::size_t guard = QUINTRAL_FUZZ_ADDRESSES_ARE_WATCHED ? 0 : 64;
    static constexpr char guard_byte = '\x5A';
    static constexpr char fill_byte = '\x7E';

    char *block;
    char *data;
    std::size_t size;

    // Every byte starts as fill_byte.
    explicit ExactBlock(std::size_t block_size)
        : block(static_cast<char *>(std::malloc(block_size + 2 * guard))), data(block + guard),
          size(block_size)
    {
        FUZZ_CHECK(block != nullptr);
        std::memset(block, guard_byte, size + 2 * guard);
        std::memset(data, fill_byte, size);
    }

    // Holds the text and its terminator.
    explicit ExactBlock(const std::string &text) : ExactBlock(text.size() + 1)
    {
        std::memcpy(data, text.c_str(), text.size() + 1);
    }

    ExactBlock(const ExactBlock &) = delete;
    ExactBlock &operator=(const ExactBlock &) = delete;

    ~ExactBlock()
    {
        for (std::size_t i = 0; i < guard; ++i) {
            FUZZ_CHECK(block[i] == guard_byte);
            FUZZ_CHECK(data[size + i] == guard_byte);
        }
        std::free(block);
    }
};

// True if the block starts with exactly this text and its terminator.
inline bool holds_text(const ExactBlock &block, const std::string &text)
{
    return text.size() < block.size && std::memcmp(block.data, text.c_str(), text.size() + 1) == 0;
}

// True if no byte of the block from `start` on has been written.
inline bool is_untouched_from(const ExactBlock &block, std::size_t start)
{
    for (std::size_t i = start; i < block.size; ++i) {
        if (block.data[i] != ExactBlock::fill_byte)
            return false;
    }
    return true;
}

} // namespace quintral::fuzz

#endif
