// Base64: the test vectors of RFC 4648, the whole alphabet, every byte, and the length formula at
// the limits of its range.
#include "web/base64.h"

#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace quintral {
namespace {

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encodes into a destination of exactly the required size and returns all of it. The source is a
// copy of exactly its size, so that a memory checker reports a read past its end.
std::string encode_exactly(const std::string &source)
{
    const std::vector<char> copy(source.begin(), source.end());
    const int n = static_cast<int>(source.size());
    std::string destination(static_cast<std::size_t>(base64_encoded_length(n)) + 1, '#');
    base64_encode(copy.data(), n, destination.data());
    return destination;
}

std::string with_terminator(const std::string &text)
{
    return text + '\0';
}

std::string shown(const std::string &bytes)
{
    std::string text;
    for (const char c : bytes)
        text += std::to_string(static_cast<unsigned char>(c)) + ' ';
    return text;
}

struct EncodeRow {
    std::string source;
    const char *expected;
};

TEST(Base64, EncodesAndTerminates)
{
    const EncodeRow rows[] = {
        // RFC 4648, section 10
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        // credentials as the web client sends them
        {"user:password", "dXNlcjpwYXNzd29yZA=="},
        {"Aladdin:open sesame", "QWxhZGRpbjpvcGVuIHNlc2FtZQ=="},
        {":", "Og=="},
        // NUL is an ordinary byte
        {std::string(1, '\0'), "AA=="},
        {std::string(2, '\0'), "AAA="},
        {std::string(3, '\0'), "AAAA"},
        {std::string("a\0b", 3), "YQBi"},
        // bytes with the top bit set
        {"\x80", "gA=="},
        {"\xff", "/w=="},
        {"\xff\xff", "//8="},
        {"\xff\xff\xff", "////"},
        {"\xfb\xef\xbe", "++++"},
        {"a\xe4\xf6", "YeT2"},
        {"\x80\x01\x7f\x81", "gAF/gQ=="},
    };
    for (const EncodeRow &row : rows)
        EXPECT_EQ(encode_exactly(row.source), with_terminator(row.expected))
            << "bytes " << shown(row.source);
}

TEST(Base64, EncodesTheNumbers0To63AsTheAlphabet)
{
    std::string source;
    for (int i = 0; i < 64; i += 4) {
        const int bits = i << 18 | (i + 1) << 12 | (i + 2) << 6 | (i + 3);
        source += static_cast<char>(bits >> 16);
        source += static_cast<char>(bits >> 8 & 0xff);
        source += static_cast<char>(bits & 0xff);
    }
    EXPECT_EQ(encode_exactly(source), with_terminator(alphabet));
}

TEST(Base64, EncodesEachSingleByteAsTwoCharactersAndPadding)
{
    for (int byte = 0; byte < 256; ++byte) {
        const std::string source(1, static_cast<char>(byte));
        std::string expected;
        expected += alphabet[static_cast<std::size_t>(byte / 4)];
        expected += alphabet[static_cast<std::size_t>(byte % 4 * 16)];
        EXPECT_EQ(encode_exactly(source), with_terminator(expected + "==")) << "byte " << byte;
    }
}

TEST(Base64, ReadsExactlyNBytes)
{
    char destination[9] = "########";
    base64_encode("foobar", 4, destination);
    EXPECT_STREQ(destination, "Zm9vYg==");
}

TEST(Base64, WritesNothingAfterItsTerminator)
{
    char destination[] = "##########";
    base64_encode("fo", 2, destination);
    EXPECT_EQ(std::string(destination, 10), std::string("Zm8=\0#####", 10));
}

TEST(Base64, WritesAnEmptyStringForNBelow1WithoutReading)
{
    for (const int n : {0, -1, -2, -3, std::numeric_limits<int>::min()}) {
        char destination[] = "####";
        base64_encode(nullptr, n, destination);
        EXPECT_EQ(std::string(destination, 4), std::string("\0###", 4)) << "n " << n;
    }
}

// The definition, six bits at a time: slow, and simple enough to be right.
std::string encode_simply(const std::string &source)
{
    std::string text;
    unsigned bits = 0;
    int bit_count = 0;
    for (const char c : source) {
        bits = bits << 8 | static_cast<unsigned char>(c);
        for (bit_count += 8; bit_count >= 6; bit_count -= 6)
            text += alphabet[bits >> (bit_count - 6) & 63];
    }
    if (bit_count > 0)
        text += alphabet[bits << (6 - bit_count) & 63];
    text.append((4 - text.size() % 4) % 4, '=');
    return text;
}

TEST(Base64, GivesWhatTheDefinitionGivesForEachLength)
{
    std::mt19937 random(20260722);
    for (std::size_t length = 0; length < 600; ++length) {
        std::string source;
        while (source.size() < length)
            source += static_cast<char>(random() & 0xff);
        EXPECT_EQ(encode_exactly(source), with_terminator(encode_simply(source)))
            << "bytes " << shown(source);
    }
}

// At each place of the groups.
TEST(Base64, GivesWhatTheDefinitionGivesForEachPairOfBytes)
{
    std::string source;
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            source += static_cast<char>(first);
            source += static_cast<char>(second);
        }
    }
    for (std::size_t start = 0; start < 6; ++start) {
        const std::string part = source.substr(start);
        EXPECT_TRUE(encode_exactly(part) == with_terminator(encode_simply(part))) << start;
    }
}

struct LengthRow {
    int n;
    int expected;
};

TEST(Base64, LengthFollowsTheFormulaForEveryInt)
{
    const LengthRow rows[] = {
        {0, 0},
        {1, 4},
        {2, 4},
        {3, 4},
        {4, 8},
        {5, 8},
        {6, 8},
        {7, 12},
        {511, 684},
        {1000, 1336},
        // below 0 the division rounds towards 0
        {-1, 0},
        {-2, 0},
        {-3, 0},
        {-4, 0},
        {-5, -4},
        {-7, -4},
        {-8, -8},
        // the longest length that fits in an int, and lengths that overflow
        {1610612733, 2147483644},
        {1610612734, std::numeric_limits<int>::min()},
        {std::numeric_limits<int>::max(), -1431655764},
        {std::numeric_limits<int>::min(), 1431655768},
    };
    for (const LengthRow &row : rows)
        EXPECT_EQ(base64_encoded_length(row.n), row.expected) << "n " << row.n;
}

TEST(Base64, LengthMatchesTheEncoding)
{
    for (int n = 0; n < 200; ++n) {
        std::string destination(1000, '#');
        base64_encode(std::string(200, 'x').c_str(), n, destination.data());
        EXPECT_EQ(static_cast<int>(std::string(destination.c_str()).size()),
                  base64_encoded_length(n))
            << "n " << n;
    }
}

} // namespace
} // namespace quintral
