// What the fuzz targets share: the check, the reading of an input, and memory whose bounds are
// watched.
//
// A target is one LLVMFuzzerTestOneInput. It takes its input apart into the arguments of the code
// under test, calls it, and holds what comes out against the promises of the public header.
// libFuzzer drives it (fuzz-THING), and replay-main.cpp feeds it the committed inputs with any
// compiler (fuzz-THING-replay).
//
// The code under test takes terminated texts, so the texts of an input stand one behind the other
// with a NUL between two. Numbers and choices are single bytes that count modulo a small number:
// the characters '0', '1', ... then choose the first, the second, ... and an input can be written
// in an editor.
#ifndef QUINTRAL_FUZZ_FUZZ_H
#define QUINTRAL_FUZZ_FUZZ_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);

// Ends the process by abort when the condition is false, after saying which one and where.
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

// What is left of an input. The bytes belong to the caller of the target.
struct Input {
    const std::uint8_t *bytes;
    std::size_t left;
};

// Takes the next byte off, 0 behind the end.
inline unsigned take_byte(Input *input)
{
    if (input->left == 0)
        return 0;
    --input->left;
    return *input->bytes++;
}

// Takes a number of 16 bits off, the low byte first.
inline int take_int16(Input *input)
{
    const unsigned low = take_byte(input);
    return static_cast<std::int16_t>(take_byte(input) << 8 | low);
}

// Takes a number of 32 bits off, the low byte first.
inline std::int32_t take_int32(Input *input)
{
    std::uint32_t number = 0;
    for (int shift = 0; shift < 32; shift += 8)
        number |= static_cast<std::uint32_t>(take_byte(input)) << shift;
    return static_cast<std::int32_t>(number);
}

// Takes a float off, by its bits: any value, infinities and NaNs included.
inline float take_float(Input *input)
{
    const std::int32_t bits = take_int32(input);
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Takes `count` bytes off, or as many as there are.
inline std::string take_bytes(Input *input, std::size_t count)
{
    const std::size_t taken = count < input->left ? count : input->left;
    std::string bytes(reinterpret_cast<const char *>(input->bytes), taken);
    input->bytes += taken;
    input->left -= taken;
    return bytes;
}

// Takes the next text off, with the NUL behind it if there is one. The text holds no NUL.
inline std::string take_text(Input *input)
{
    std::size_t length = 0;
    while (length < input->left && input->bytes[length] != 0)
        ++length;
    std::string text = take_bytes(input, length);
    take_byte(input);
    return text;
}

// The length of the longest run of digits. The C library leaves numbers outside the range of scanf
// undefined, so texts with long ones cannot be compared with it.
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

// One kind of case of a target that has several.
using Case = void (*)(Input *input);

// Runs the cases of an input one behind another until it ends: a byte that chooses one of `count`
// kinds, counted from the character `first`, then what that case takes off. So one file holds all
// cases that belong together. Not more than 64 run, to bound the time that an input takes.
template <std::size_t count> void run_cases(Input *input, const Case (&kinds)[count], char first)
{
    constexpr unsigned choices = 32;
    static_assert(count <= choices);
    for (int cases = 0; cases < 64 && input->left > 0; ++cases) {
        const unsigned choice = (take_byte(input) - static_cast<unsigned>(first)) % choices;
        kinds[choice % count](input);
    }
}

// Memory with watched bounds

// A block of exactly `size` bytes, so that AddressSanitizer sees the first byte written or read
// outside. A build without it has guards around the block instead, looked at when the block's life
// ends, so that a byte written outside is seen by every replay.
struct ExactBlock {
    static constexpr std::size_t guard = QUINTRAL_FUZZ_ADDRESSES_ARE_WATCHED ? 0 : 64;
    static constexpr char guard_byte = '\x5A';
    static constexpr char fill_byte = '\x7E';

    char *block;
    char *data;
    std::size_t size;

    // All bytes are fill_byte at first.
    explicit ExactBlock(std::size_t block_size)
        : block(static_cast<char *>(std::malloc(block_size + 2 * guard))), data(block + guard),
          size(block_size)
    {
        FUZZ_CHECK(block != nullptr);
        std::memset(block, guard_byte, size + 2 * guard);
        std::memset(data, fill_byte, size);
    }

    // The text and its terminator.
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

// True when the block holds exactly this text and a terminator, whatever stands behind it.
inline bool holds_text(const ExactBlock &block, const std::string &text)
{
    return text.size() < block.size && std::memcmp(block.data, text.c_str(), text.size() + 1) == 0;
}

// True when nothing has been written into the block from `start` on.
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
