// Base64 as RFC 4648, section 4, defines it: the standard alphabet, padded with '=', no line
// breaks. The web client sends a proxy's Basic credentials with it.
//
//     std::vector<char> text(base64_encoded_length(n) + 1);
//     base64_encode(source, n, text.data());
#ifndef QUINTRAL_WEB_BASE64_H
#define QUINTRAL_WEB_BASE64_H

#pragma GCC visibility push(default) // exported from a shared library
namespace quintral {

// Returns the length in characters of n encoded bytes, terminator not counted: (n + 2) / 3 * 4,
// with division truncated toward 0. The formula holds for a negative n too: 0 for -1 to -4,
// negative below. Above 1610612733 bytes the length overflows int and the result is meaningless.
int base64_encoded_length(int n);

// Encodes n bytes of any value into the destination and terminates it. For n below 1 the source is
// not read and the destination is an empty string.
// Requires: source holds n bytes; destination is at least base64_encoded_length(n) + 1 bytes long,
// and at least 1; n is at most 1610612733; the two do not overlap.
void base64_encode(const char *source, int n, char *destination);

} // namespace quintral
#pragma GCC visibility pop

#endif
