// Which strings are web addresses that -open may pass to the desktop.
#include "tool/open-address.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/tool/address-rows.h"

namespace quintral::tests::tool {
namespace {

TEST(WebAddress, IsAnHttpOrHttpsUrlWithAHost)
{
    for (const AddressRow &row : address_rows)
        EXPECT_EQ(is_web_address(row.address), row.accepted) << row.address;
}

TEST(WebAddress, ContainsOnlyVisibleAscii)
{
    const std::string parts[] = {"", "http", "http://", "http://host", "http://host/"};
    for (int byte = 1; byte < 256; ++byte) {
        const bool visible = byte > 0x20 && byte < 0x7F;
        for (const std::string &part : parts) {
            const std::string text = part + static_cast<char>(byte) + "http://host/";
            EXPECT_FALSE(!visible && is_web_address(text.c_str())) << byte << " after " << part;
        }
        const std::string text = "http://host/" + std::string(1, static_cast<char>(byte)) + "x";
        EXPECT_EQ(is_web_address(text.c_str()), visible) << byte;
    }
}

} // namespace
} // namespace quintral::tests::tool
