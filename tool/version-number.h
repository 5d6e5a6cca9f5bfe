// Versions as the update query sends them: decimal numbers, not lists of integers. 5.2, 5.20 and
// 5.200 are the same version, and 5.10 is older than 5.9.
#ifndef QUINTRAL_TOOL_VERSION_NUMBER_H
#define QUINTRAL_TOOL_VERSION_NUMBER_H

namespace quintral {

// True for runs of digits separated by single points: "5", "5.2", "5.2.1".
bool is_version_number(const char *text);

// Compares two versions of any length exactly: the integer parts, then the fractions as decimal
// fractions, then each part after a second point as an integer. A missing part is 0, so 5.2.1 is
// newer than 5.2.
// Returns a negative number, 0 or a positive number if the first is older, the same or newer.
// Requires: is_version_number holds for both.
int compare_versions(const char *first, const char *second);

// Reads a product version: digits, optionally a point and one to three digits. Returns 0 with the
// number in *version. Returns -1 with *version unchanged for any other string and for a number that
// a float does not represent exactly to three decimal places ("16777217" would be sent as
// 16777216.000).
int read_product_version(const char *text, float *version);

} // namespace quintral

#endif
