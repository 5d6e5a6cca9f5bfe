// Tests that must hold whatever locale a host program has set: a fixture whose cases run under "C"
// and under the test locale (Latin-1 letters, decimal comma).
//
//     class FormBody : public tests::InBothLocales {};
//     INSTANTIATE_TEST_SUITE_P(Locales, FormBody, tests::both_locales(), tests::locale_label);
//     TEST_P(FormBody, ...)
#ifndef QUINTRAL_TESTS_BOTH_LOCALES_H
#define QUINTRAL_TESTS_BOTH_LOCALES_H

#include "tests/test-main.h"

#include <clocale>
#include <string>

#include <gtest/gtest.h>

namespace quintral::tests {

class InBothLocales : public testing::TestWithParam<const char *> {
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

inline auto both_locales()
{
    return testing::Values("C", comma_locale);
}

inline std::string locale_label(const testing::TestParamInfo<const char *> &row)
{
    return row.index == 0 ? "C" : "Latin1Comma";
}

} // namespace quintral::tests

#endif
