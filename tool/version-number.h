// Versions as the update query sends them: decimal numbers, not lists of counters. 5.2, 5.20 and
// 5.200 are one version, and 5.10 is older than 5.9.
#ifndef QUINTRAL_TOOL_VERSION_NUMBER_H
#define QUINTRAL_TOOL_VERSION_NUMBER_H

namespace quintral {

// True for one or more runs of digits with a point between each two: "5", "5.2", "5.2.1".
bool is_version_number(const char *text);

// Compares two versions exactly, whatever their length: the whole parts as numbers, then the
// fractions as decimal fractions, then each further part behind a second point as a whole number, a
// missing one being 0, so that 5.2.1 is newer than 5.2.
// Returns a negative number, 0 or a positive number, as the first is older, the same or newer.
// Requires: is_version_number holds for both.
int compare_versions(const char *first, const char *second);

// Reads a product version: digits, optionally a point and one to three digits. Returns 0 with the
// number in *version, or -1 with it untouched for any other text and for a number that single
// precision cannot send as itself ("16777217" would go out as 16777216.000).
int read_product_version(const char *text, float *version);

} // namespace quintral

#endif
