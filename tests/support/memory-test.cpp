// Checked memory and strings: sizes, growth, the exact bytes of each result, and each operation
// without memory.
#include "support/c-utils.h"

#include "tests/harness/test-main.h"
#include "tests/support/reference-memory.h"

#include <clocale>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>

#include <sys/resource.h>

#include <gtest/gtest.h>

// Options of AddressSanitizer. By default it ends the process at a request that it refuses.
extern "C" const char *__asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=32";
}

namespace quintral {
namespace {

constexpr std::size_t highest_size = std::numeric_limits<std::size_t>::max();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

// A wide character that no test locale can convert to bytes, so that formatting it fails.
const wchar_t unprintable[] = {static_cast<wchar_t>(0x7ffffff0), 0};

// A size that the system refuses while a ScarceMemory lives.
constexpr std::size_t too_much = std::size_t{70} << 20;

// For the length of a scope, this process gets no block of the size too_much. It still gets smaller
// ones, which the test and a memory checker need: the limit on the address space goes down in steps
// until a block of half that size is refused. That half is above the 32 MiB up to which glibc keeps
// freed blocks. AddressSanitizer refuses too_much itself (see above) and could not work under the
// limit.
class ScarceMemory {
public:
    ScarceMemory()
    {
        getrlimit(RLIMIT_AS, &old_limit_);
        rlimit limit = old_limit_;
        constexpr rlim_t step = 16 << 20;
        for (rlim_t size = 128 * step; size > 0 && is_given(too_much / 2); size -= step) {
            limit.rlim_cur = size;
            setrlimit(RLIMIT_AS, &limit);
        }
    }

    ~ScarceMemory()
    {
        setrlimit(RLIMIT_AS, &old_limit_);
    }

    ScarceMemory(const ScarceMemory &) = delete;
    ScarceMemory &operator=(const ScarceMemory &) = delete;

    static bool is_given(std::size_t size)
    {
        void *volatile block = std::malloc(size);
        std::free(block);
        return block != nullptr;
    }

private:
    rlimit old_limit_;
};

// Fills the part of the stack that the next call will use for its local variables.
__attribute__((noinline)) void dirty_the_stack()
{
    volatile char area[32768];
    for (volatile char &byte : area)
        byte = 'S';
}

QUINTRAL_PRINTF(1, 2) char *forward_to_vprintf(const char *format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    char *text = alloc_vprintf(format, arguments);
    va_end(arguments);
    return text;
}

// Returns the string in a new block and releases the block.
std::string taken(char *text)
{
    const std::string copy = text;
    checked_free(text);
    return copy;
}

// checked_malloc, checked_realloc, checked_free

TEST(CheckedMalloc, ReturnsABlockOfTheGivenSize)
{
    for (const std::size_t size : {1u, 2u, 4096u, 1000000u}) {
        void *block = checked_malloc(size);
        ASSERT_NE(block, nullptr) << "size " << size;
        std::memset(block, 'x', size);
        checked_free(block);
    }
}

TEST(CheckedMalloc, ReturnsNullForASizeOf0)
{
    EXPECT_EQ(checked_malloc(0), nullptr);
}

TEST(CheckedMalloc, ThrowsWhenMemoryRunsOut)
{
    const ScarceMemory scarce;
    if (ScarceMemory::is_given(too_much))
        GTEST_SKIP() << "this system does not refuse memory";
    for (const std::size_t size : {too_much, highest_size / 2})
        EXPECT_THROW(checked_malloc(size), std::bad_alloc) << "size " << size;
}

TEST(CheckedFree, DoesNothingForNull)
{
    checked_free(nullptr);
    checked_free(checked_malloc(0));
}

TEST(CheckedRealloc, AllocatesForNullWhateverTheOldSize)
{
    for (const std::size_t old_size : {std::size_t{0}, std::size_t{7}, highest_size}) {
        void *block = checked_realloc(nullptr, old_size, 100);
        ASSERT_NE(block, nullptr) << "old size " << old_size;
        std::memset(block, 'x', 100);
        checked_free(block);
    }
}

TEST(CheckedRealloc, KeepsTheContentWhateverTheOldSize)
{
    for (const std::size_t old_size : {std::size_t{0}, std::size_t{6}, highest_size}) {
        char *block = static_cast<char *>(checked_malloc(6));
        std::memcpy(block, "hello", 6);
        block = static_cast<char *>(checked_realloc(block, old_size, 100000));
        EXPECT_STREQ(block, "hello") << "old size " << old_size;
        std::memset(block, 'y', 100000);
        block = static_cast<char *>(checked_realloc(block, old_size, 2));
        EXPECT_EQ(std::string(block, 2), "yy") << "old size " << old_size;
        checked_free(block);
    }
}

TEST(CheckedRealloc, ThrowsWhenMemoryRunsOutAndLeavesTheBlockToTheCaller)
{
    const ScarceMemory scarce;
    if (ScarceMemory::is_given(too_much))
        GTEST_SKIP() << "this system does not refuse memory";
    for (const std::size_t size : {too_much, highest_size / 2}) {
        char *block = static_cast<char *>(checked_malloc(6));
        std::memcpy(block, "hello", 6);
        EXPECT_THROW(checked_realloc(block, 6, size), std::bad_alloc) << "size " << size;
        EXPECT_STREQ(block, "hello") << "size " << size;
        checked_free(block);
        EXPECT_THROW(checked_realloc(nullptr, 0, size), std::bad_alloc) << "size " << size;
    }
}

TEST(CheckedRealloc, ANewSizeOf0ThrowsExactlyIfTheSystemReturnsNull)
{
    for (const bool from_null : {true, false}) {
        // Volatile, because an optimiser may compute the result itself.
        void *volatile system_block = from_null ? nullptr : std::malloc(8);
        system_block = std::realloc(system_block, 0);
        const bool system_gives_null = system_block == nullptr;
        std::free(system_block);

        void *block = from_null ? nullptr : checked_malloc(8);
        bool thrown = false;
        try {
            block = checked_realloc(block, 8, 0);
            EXPECT_NE(block, nullptr) << "from null: " << from_null;
            checked_free(block);
        } catch (const std::bad_alloc &) {
            thrown = true;
        }
        EXPECT_EQ(thrown, system_gives_null) << "from null: " << from_null;
    }
}

// copy_string_with_room

struct ExtraRow {
    const char *text;
    std::size_t extra;
};

TEST(CopyStringWithRoom, CopiesAndLeavesSpaceForExtraBytes)
{
    const ExtraRow rows[] = {{"", 0},    {"", 5},       {"abc", 0},
                             {"abc", 1}, {"abc", 5000}, {"\xe4\xff", 2}};
    for (const ExtraRow &row : rows) {
        char *copy = copy_string_with_room(row.text, row.extra);
        EXPECT_STREQ(copy, row.text);
        EXPECT_NE(copy, row.text);
        const std::string appended(row.extra, 'x');
        std::memcpy(copy + std::strlen(copy), appended.c_str(), row.extra + 1);
        EXPECT_EQ(taken(copy), row.text + appended) << "extra " << row.extra;
    }
}

TEST(CopyStringWithRoom, ThrowsWhenTheSizeCannotBeExpressed)
{
    const ExtraRow rows[] = {
        {"abc", highest_size - 3}, // would be 0
        {"abc", highest_size - 2}, // would be 1
        {"abc", highest_size},     // would be 3
        {"", highest_size},        // would be 0
    };
    for (const ExtraRow &row : rows)
        EXPECT_THROW(copy_string_with_room(row.text, row.extra), std::bad_alloc)
            << "text " << row.text << ", extra " << row.extra;
}

TEST(CopyStringWithRoom, ThrowsWhenMemoryRunsOut)
{
    const ScarceMemory scarce;
    if (ScarceMemory::is_given(too_much))
        GTEST_SKIP() << "this system does not refuse memory";
    for (const std::size_t extra : {too_much, highest_size / 2 - 4})
        EXPECT_THROW(copy_string_with_room("abc", extra), std::bad_alloc) << "extra " << extra;
}

// alloc_printf, alloc_vprintf

TEST(AllocPrintf, ReturnsExactlyTheFormattedText)
{
    EXPECT_EQ(taken(alloc_printf("%s", "")), "");
    EXPECT_EQ(taken(alloc_printf("plain")), "plain");
    EXPECT_EQ(taken(alloc_printf("%d%%, %s: %c", -42, "a\xe4z", 'q')), "-42%, a\xe4z: q");
    EXPECT_EQ(taken(forward_to_vprintf("%d, %s and %.2f", 7, "text", 1.5)), "7, text and 1.50");
    EXPECT_EQ(taken(forward_to_vprintf("%s", "")), "");
}

TEST(AllocPrintf, ReturnsATextOfAnyLength)
{
    for (const std::size_t length : {1u, 4094u, 4095u, 4096u, 1000000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(taken(alloc_printf("%s", text.c_str())), text) << "length " << length;
        EXPECT_EQ(taken(forward_to_vprintf("%s", text.c_str())), text) << "length " << length;
    }
}

// Lengths around that of the local area in which short texts are formatted.
TEST(AllocPrintf, AgreesWithMeasuringFirstForEveryLength)
{
    for (std::size_t length = 0; length <= 4200; length += length < 40 || length > 4060 ? 1 : 97) {
        const std::string text(length, 'y');
        EXPECT_EQ(taken(alloc_printf("%s%d", text.c_str(), 7)),
                  taken(reference::alloc_printf("%s%d", text.c_str(), 7)))
            << "length " << length;
    }
}

TEST(AllocPrintf, ReturnsAnEmptyTextIfFormattingFails)
{
    EXPECT_EQ(taken(alloc_printf("%ls", unprintable)), "");
    EXPECT_EQ(taken(alloc_printf("before %ls", unprintable)), "");
    EXPECT_EQ(taken(forward_to_vprintf("before %ls after", unprintable)), "");
}

TEST(AllocPrintf, ThrowsWhenMemoryRunsOut)
{
    const std::string text(too_much / 4, 'x');
    const char *part = text.c_str();
    const ScarceMemory scarce;
    if (ScarceMemory::is_given(too_much))
        GTEST_SKIP() << "this system does not refuse memory";
    EXPECT_THROW(alloc_printf("%s%s%s%s", part, part, part, part), std::bad_alloc);
    EXPECT_THROW(forward_to_vprintf("%s%s%s%s", part, part, part, part), std::bad_alloc);
}

// StringBuffer

TEST(StringBuffer, FieldsComeInTheOrderDataCapacityLength)
{
    char text[] = "x";
    const StringBuffer buffer = {text, 2, 1};
    EXPECT_EQ(buffer.data, text);
    EXPECT_EQ(buffer.capacity, 2);
    EXPECT_EQ(buffer.length, 1);
}

TEST(StringBuffer, InitSetsAllFieldsToZeroAndReleasesNothing)
{
    char text[] = "text";
    StringBuffer buffer = {text, 5, 4};
    string_buffer_init(&buffer);
    EXPECT_EQ(buffer.data, nullptr);
    EXPECT_EQ(buffer.capacity, 0);
    EXPECT_EQ(buffer.length, 0);
    EXPECT_EQ(string_buffer_text(&buffer), nullptr);
}

TEST(StringBuffer, FreeEmptiesAndMayBeRepeatedAndFollowedByAppends)
{
    StringBuffer buffer = {};
    string_buffer_free(&buffer);
    string_buffer_printf(&buffer, "abc");
    for (int i = 0; i < 2; ++i) {
        string_buffer_free(&buffer);
        EXPECT_EQ(buffer.data, nullptr);
        EXPECT_EQ(buffer.capacity, 0);
        EXPECT_EQ(buffer.length, 0);
    }
    EXPECT_EQ(string_buffer_printf(&buffer, "again"), 5);
    EXPECT_STREQ(string_buffer_text(&buffer), "again");
    string_buffer_free(&buffer);
}

TEST(StringBuffer, GrowsAnEmptyBufferTo131ForAbcAndNotForDe)
{
    StringBuffer buffer = {};
    EXPECT_EQ(string_buffer_printf(&buffer, "%s", "abc"), 3);
    EXPECT_EQ(buffer.capacity, 131);
    EXPECT_EQ(buffer.length, 3);
    EXPECT_EQ(string_buffer_printf(&buffer, "%c%c", 'd', 'e'), 5);
    EXPECT_EQ(buffer.capacity, 131);
    EXPECT_EQ(buffer.length, 5);
    EXPECT_STREQ(string_buffer_text(&buffer), "abcde");
    EXPECT_EQ(string_buffer_text(&buffer), buffer.data);
    string_buffer_free(&buffer);
}

struct GrowthRow {
    const char *rule;
    std::size_t first;
    std::size_t second;
    std::int32_t first_capacity;
    std::int32_t second_capacity;
};

TEST(StringBuffer, GrowsToTheNewLengthAnd128OnlyWhenTheTextAnd2BytesDoNotFit)
{
    const GrowthRow rows[] = {
        {"an empty append grows too", 0, 0, 128, 128},
        {"2 bytes stay free", 0, 126, 128, 128},
        {"1 free byte is not enough", 0, 127, 128, 255},
        {"the same after a text", 3, 126, 131, 131},
        {"the same after a text", 3, 127, 131, 258},
        {"the new length and 128, never the double", 1000, 500, 1128, 1628},
        {"an empty append fits in 2 free bytes", 126, 0, 254, 254},
        {"the longest append", 4094, 4094, 4222, 8316},
    };
    for (const GrowthRow &row : rows) {
        StringBuffer buffer = {};
        const auto first = static_cast<std::int32_t>(row.first);
        const auto second = static_cast<std::int32_t>(row.second);
        EXPECT_EQ(string_buffer_printf(&buffer, "%s", std::string(row.first, 'x').c_str()), first);
        EXPECT_EQ(buffer.capacity, row.first_capacity) << row.rule;
        const std::string more(row.second, 'y');
        EXPECT_EQ(string_buffer_printf(&buffer, "%s", more.c_str()), first + second) << row.rule;
        EXPECT_EQ(buffer.capacity, row.second_capacity) << row.rule;
        EXPECT_EQ(buffer.length, first + second) << row.rule;
        EXPECT_EQ(string_buffer_text(&buffer), std::string(row.first, 'x') + more) << row.rule;
        string_buffer_free(&buffer);
    }
}

TEST(StringBuffer, ARunOfShortAppendsGrowsByTheRuleAndStaysTerminated)
{
    // The capacity changes at these lengths and at no others up to 400.
    const std::int32_t growths[][2] = {{1, 129}, {128, 256}, {255, 383}, {382, 510}};
    StringBuffer buffer = {};
    std::int32_t expected = 0;
    for (std::int32_t length = 1; length <= 400; ++length) {
        for (const auto &growth : growths)
            expected = growth[0] == length ? growth[1] : expected;
        ASSERT_EQ(string_buffer_printf(&buffer, "x"), length);
        ASSERT_EQ(buffer.capacity, expected) << "length " << length;
        ASSERT_EQ(buffer.data[length], '\0') << "length " << length;
    }
    EXPECT_EQ(string_buffer_text(&buffer), std::string(400, 'x'));
    string_buffer_free(&buffer);
}

TEST(StringBuffer, AnEmptyAppendToAnEmptyBufferMakesAnEmptyText)
{
    StringBuffer buffer = {};
    EXPECT_EQ(string_buffer_printf(&buffer, "%s", ""), 0);
    ASSERT_NE(string_buffer_text(&buffer), nullptr);
    EXPECT_STREQ(string_buffer_text(&buffer), "");
    string_buffer_free(&buffer);
}

TEST(StringBuffer, AppendsItsOwnText)
{
    StringBuffer buffer = {};
    string_buffer_printf(&buffer, "%s", std::string(100, 'x').c_str());
    EXPECT_EQ(string_buffer_printf(&buffer, "%s", buffer.data), 200);
    EXPECT_EQ(string_buffer_text(&buffer), std::string(200, 'x'));
    string_buffer_free(&buffer);
}

struct LongRow {
    std::size_t given;
    std::int32_t appended;
};

TEST(StringBuffer, AgreesWithTheSimpleFormForAnyLengths)
{
    StringBuffer buffer = {}, expected = {};
    dirty_the_stack();
    for (std::size_t length = 0; length < 9000; length += 1 + length / 3) {
        const std::string text(length, static_cast<char>('a' + length % 26));
        EXPECT_EQ(string_buffer_printf(&buffer, "%s%d", text.c_str(), 1),
                  reference::string_buffer_printf(&expected, "%s%d", text.c_str(), 1));
        EXPECT_EQ(string_buffer_printf(&buffer, "x%lsy", length % 2 == 0 ? L"z" : unprintable),
                  reference::string_buffer_printf(&expected, "x%lsy",
                                                  length % 2 == 0 ? L"z" : unprintable));
        ASSERT_EQ(buffer.capacity, expected.capacity);
        ASSERT_EQ(buffer.length, expected.length);
        const auto size = static_cast<std::size_t>(buffer.length) + 1;
        ASSERT_EQ(std::string(buffer.data, size), std::string(expected.data, size));
    }
    string_buffer_free(&buffer);
    string_buffer_free(&expected);
}

TEST(StringBuffer, AppendsTheFirst4094CharactersOfALongerText)
{
    const LongRow rows[] = {{4093, 4093}, {4094, 4094}, {4095, 4094},
                            {4096, 4094}, {4097, 4094}, {100000, 4094}};
    for (const LongRow &row : rows) {
        StringBuffer buffer = {};
        string_buffer_printf(&buffer, "ab");
        const std::string text(row.given, 'x');
        EXPECT_EQ(string_buffer_printf(&buffer, "%s", text.c_str()), 2 + row.appended)
            << "given " << row.given;
        EXPECT_EQ(buffer.capacity, 2 + row.appended + 128) << "given " << row.given;
        EXPECT_EQ(string_buffer_text(&buffer),
                  "ab" + text.substr(0, static_cast<std::size_t>(row.appended)))
            << "given " << row.given;
        string_buffer_free(&buffer);
    }
}

TEST(StringBuffer, AFailedFormattingAppends4095NulsAndNoOldStackContent)
{
    StringBuffer buffer = {};
    string_buffer_printf(&buffer, "ab");
    dirty_the_stack();
    EXPECT_EQ(string_buffer_printf(&buffer, "%ls", unprintable), 4097);
    EXPECT_EQ(buffer.length, 4097);
    EXPECT_EQ(buffer.capacity, 2 + 4095 + 128);
    EXPECT_EQ(std::string(buffer.data, 4098), "ab" + std::string(4096, '\0'));

    EXPECT_EQ(string_buffer_printf(&buffer, "cd"), 4099);
    EXPECT_EQ(std::string(buffer.data, 4100), "ab" + std::string(4095, '\0') + "cd" + '\0');
    string_buffer_free(&buffer);
}

TEST(StringBuffer, AFailedFormattingAppendsOnlyWhatItHadWrittenAndNuls)
{
    StringBuffer buffer = {};
    dirty_the_stack();
    EXPECT_EQ(string_buffer_printf(&buffer, "xyz%ls", unprintable), 4095);
    const std::string bytes(buffer.data, 4096);
    const std::size_t written = bytes.find('\0');
    EXPECT_EQ(bytes.substr(0, written), std::string("xyz").substr(0, written));
    EXPECT_EQ(bytes.substr(written), std::string(4096 - written, '\0'));
    string_buffer_free(&buffer);
}

struct OverflowRow {
    std::int32_t capacity;
    std::int32_t length;
};

TEST(StringBuffer, ThrowsBeforeASizeExceeds32BitsAndChangesNothing)
{
    // Buffers as long strings would leave them, with a short block, which is not accessed.
    const OverflowRow rows[] = {
        {highest - 127, highest - 130}, // 3 + length + 128 is one too many
        {highest - 1, highest - 3},
        {highest, highest - 4},
        {highest, highest - 2},
    };
    for (const OverflowRow &row : rows) {
        char text[] = "text";
        StringBuffer buffer = {text, row.capacity, row.length};
        EXPECT_THROW(string_buffer_printf(&buffer, "abc"), std::bad_alloc)
            << "length " << row.length;
        EXPECT_EQ(buffer.data, text);
        EXPECT_EQ(buffer.capacity, row.capacity);
        EXPECT_EQ(buffer.length, row.length);
        EXPECT_STREQ(text, "text");
    }
}

TEST(StringBuffer, ThrowsWhenMemoryRunsOutAndStaysAsItWas)
{
    const ScarceMemory scarce;
    if (ScarceMemory::is_given(too_much))
        GTEST_SKIP() << "this system does not refuse memory";
    for (const std::int32_t length : {highest - 131, 1200000000}) {
        char *text = copy_string_with_room("text", 0);
        StringBuffer buffer = {text, length, length};
        EXPECT_THROW(string_buffer_printf(&buffer, "abc"), std::bad_alloc) << "length " << length;
        EXPECT_EQ(buffer.data, text);
        EXPECT_EQ(buffer.capacity, length);
        EXPECT_EQ(buffer.length, length);
        EXPECT_STREQ(text, "text");
        string_buffer_free(&buffer);
    }
}

// copy_string_bounded

struct CopyRow {
    const char *source;
    std::size_t size;
    std::string expected; // all 8 bytes of the destination, which were '#'
};

TEST(CopyStringBounded, CutsTerminatesAndFillsWithNuls)
{
    using namespace std::string_literals;
    const CopyRow rows[] = {
        {"hello", 3, "he\0#####"s},    {"hello", 0, "########"s},
        {nullptr, 3, "\0#######"s},    {nullptr, 1, "\0#######"s},
        {nullptr, 0, "########"s},     {"hello", 1, "\0#######"s},
        {"hello", 2, "h\0######"s},    {"hello", 5, "hell\0###"s},
        {"hello", 6, "hello\0##"s},    {"hello", 7, "hello\0\0#"s},
        {"hello", 8, "hello\0\0\0"s},  {"hello!!", 8, "hello!!\0"s},
        {"hello!!!", 8, "hello!!\0"s}, {"", 1, "\0#######"s},
        {"", 4, "\0\0\0\0####"s},      {"\xe4\xff\x80", 3, "\xe4\xff\0#####"s},
    };
    for (const CopyRow &row : rows) {
        std::string destination(8, '#');
        EXPECT_EQ(copy_string_bounded(destination.data(), row.source, row.size),
                  destination.data());
        EXPECT_EQ(destination, row.expected)
            << "source " << (row.source == nullptr ? "null" : row.source) << ", size " << row.size;
    }
}

TEST(CopyStringBounded, ReturnsNullForANullDestination)
{
    EXPECT_EQ(copy_string_bounded(nullptr, nullptr, 5), nullptr);
    EXPECT_EQ(copy_string_bounded(nullptr, "text", 5), nullptr);
    EXPECT_EQ(copy_string_bounded(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(copy_string_bounded(nullptr, "text", 0), nullptr);
}

TEST(CopyStringBounded, ReadsNoFurtherThanTheBytesItCopies)
{
    char *source = static_cast<char *>(checked_malloc(3));
    std::memcpy(source, "abc", 3); // no terminator
    char destination[] = "########";
    copy_string_bounded(destination, source, 4);
    EXPECT_STREQ(destination, "abc");
    checked_free(source);
}

// The locale of the host program has no effect.

TEST(MemoryLocale, StringsAreBytesUnderALatin1Locale)
{
    ASSERT_NE(std::setlocale(LC_ALL, tests::comma_locale), nullptr);
    StringBuffer buffer = {};
    dirty_the_stack();
    EXPECT_EQ(string_buffer_printf(&buffer, "%s", "\xc4\xe4\xff"), 3);
    EXPECT_STREQ(string_buffer_text(&buffer), "\xc4\xe4\xff");
    EXPECT_EQ(string_buffer_printf(&buffer, "%ls", unprintable), 3 + 4095);
    EXPECT_EQ(std::string(buffer.data + 3, 4096), std::string(4096, '\0'));
    string_buffer_free(&buffer);
    EXPECT_EQ(taken(alloc_printf("%s %d", "\xc4\xe4\xff", 1234567)), "\xc4\xe4\xff 1234567");
    EXPECT_EQ(taken(alloc_printf("%ls", unprintable)), "");
    std::setlocale(LC_ALL, "C");
}

} // namespace
} // namespace quintral
