// For tests that must pass under any locale of a host program: a fixture whose cases run under "C"
// and under the test locales (letters above 0x7F in Latin-1 and in UTF-8, decimal comma).
//
//     class FormBody : public tests::InEachLocale {};
//     INSTANTIATE_TEST_SUITE_P(Locales, FormBody, tests::each_locale(), tests::locale_label);
//     TEST_P(FormBody, ...)
#ifndef QUINTRAL_TESTS_HARNESS_EACH_LOCALE_H
#define QUINTRAL_TESTS_HARNESS_EACH_LOCALE_H

#include "tests/harness/test-main.h"

#include <clocale>
#include <string>

#include <gtest/gtest.h>

namespace quintral::tests {

class InEachLocale : public testing::TestWithParam<const char *> {
protected:
    void SetUp() override
    {
        ASSERT_NE(std::setlocale(LC_ALL, GetParam()), nullptr) << "no locale " << GetParam();
    }

    void TearDown() override
    {
        std::setlocale(LC_ALL, "C");
    }
};

inline auto each_locale()
{
    return testing::Values("C", comma_locale, utf8_locale);
}

inline std::string locale_label(const testing::TestParamInfo<const char *> &row)
{
    static const char *const labels[] = {"C", "Latin1Comma", "Utf8Comma"};
    return labels[row.index];
}

} // namespace quintral::tests

#endif
