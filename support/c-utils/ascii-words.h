// Eight bytes of a string at a time. Nothing here depends on byte order or alignment. Private to
// this folder.
#ifndef QUINTRAL_SUPPORT_C_UTILS_ASCII_WORDS_H
#define QUINTRAL_SUPPORT_C_UTILS_ASCII_WORDS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace quintral {

// Eight bytes, and their number.
using Word = std::uint64_t;
constexpr std::size_t word_size = sizeof(Word);

// The bit in which the two forms of a letter differ.
constexpr char case_bit = 'a' ^ 'A';

// Returns the word of eight equal bytes.
constexpr Word repeated_byte(unsigned byte)
{
    return 0x0101010101010101U * static_cast<Word>(byte);
}

// Returns the eight bytes at a position.
inline Word load_word(const char *text)
{
    Word word = 0;
    std::memcpy(&word, text, word_size);
    return word;
}

// Writes eight bytes.
inline void store_word(char *text, Word word)
{
    std::memcpy(text, &word, word_size);
}

// True if one of the bytes is 0.
constexpr bool has_zero_byte(Word word)
{
    return ((word - repeated_byte(1)) & ~word & repeated_byte(0x80)) != 0;
}

// Returns the word with the case bit of every byte from first to last toggled. For 'A' to 'Z' this
// gives lower case, for 'a' to 'z' upper case. Both bounds are below 0x80, and a byte from 0x80 on
// is never changed.
constexpr Word toggled_case(Word word, char first, char last)
{
    // The top bit of a byte of a sum is set if the byte, without its own top bit, is at least
    // `first`, or above `last`. No sum carries into the next byte.
    const Word low_bits = word & repeated_byte(0x7F);
    const Word from_first = low_bits + repeated_byte(0x80U - static_cast<unsigned>(first));
    const Word above_last = low_bits + repeated_byte(0x7FU - static_cast<unsigned>(last));
    const Word in_range = from_first & ~above_last & ~word & repeated_byte(0x80);
    return word ^ in_range >> 2; // 0x80 >> 2 is the case bit, 0x20
}

} // namespace quintral

#endif
