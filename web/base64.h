// Base64 as RFC 4648, section 4, defines it: the standard alphabet, padded with '=', no line
// breaks. The web client sends a proxy's Basic credentials with it.
//
//     std::vector<char> text(base64_encoded_length(n) + 1);
//     base64_encode(source, n, text.data());
#ifndef QUINTRAL_WEB_BASE64_H
#define QUINTRAL_WEB_BASE64_H

namespace quintral {

// Returns the length in characters of n encoded bytes, terminator not counted: (n + 2) / 3 * 4, the
// division cutting towards 0. A negative n gives that formula's result too: 0 down to -4, negative
// below. Above 1610612733 bytes the length has no place in an int and the result means nothing.
int base64_encoded_length(int n);

// Encodes n bytes of any value. The destination holds the encoding and a terminator; an empty text
// for n below 1, where the source is not read.
// Requires: source holds n bytes; destination holds base64_encoded_length(n) + 1 bytes, at least 1;
// n is at most 1610612733; the two do not overlap.
void base64_encode(const char *source, int n, char *destination);

} // namespace quintral

#endif
