// Mac Roman, the system encoding of a Mac that is set up for a western language. Every byte is a
// character in it; of Unicode it has only these 256.
#ifndef QUINTRAL_TESTS_MACOS_FRAMEWORKS_MAC_ROMAN_H
#define QUINTRAL_TESTS_MACOS_FRAMEWORKS_MAC_ROMAN_H

#include <string>

namespace quintral::tests {

// The same text in UTF-8.
std::string utf8_from_mac_roman(const std::string &bytes);

// Writes a text in UTF-8 as Mac Roman. False, with *bytes undefined, if it has a character that
// Mac Roman lacks.
bool mac_roman_from_utf8(const std::string &text, std::string *bytes);

} // namespace quintral::tests

#endif
