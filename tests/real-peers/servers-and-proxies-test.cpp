// docs/servers-and-proxies.md: its tables are those of the rows.
#include <string>

#include <gtest/gtest.h>

#include "tests/harness/temp-folder.h"
#include "tests/real-peers/rows.h"

namespace quintral::tests {
namespace {

const char *cell_of(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Answered:
        return "works";
    case Outcome::Refused:
        return "400 Bad Request";
    case Outcome::Unreliable:
        break;
    }
    return "closes without an answer, often";
}

std::string cells_of_server(const std::string &server)
{
    std::string cells;
    for (const PairRow &row : pair_rows) {
        if (server == row.server)
            cells += std::string(" | ") + cell_of(row.outcome);
    }
    return cells;
}

std::string server_table()
{
    std::string table = "| server | versions tested | directly";
    std::string line = "|---|---|---";
    for (const PeerRow &row : proxy_rows) {
        table += std::string(" | ") + row.name;
        line += "|---";
    }
    table += " | what to do |\n" + line + "|---|\n";
    for (const PeerRow &row : server_rows)
        table += std::string("| ") + row.name + " | " + row.versions + cells_of_server(row.name) +
                 " | " + row.advice + " |\n";
    return table;
}

std::string answer_cell(const ProxyErrorRow &row, const std::string &status)
{
    if (status.empty())
        return "does not occur";
    return row.may_reset ? status + ", or a reset" : status;
}

std::string proxy_table()
{
    std::string table = "| proxy | versions tested | without a password | it wants a password | "
                        "it cannot reach the service | what to do about a password |\n"
                        "|---|---|---|---|---|---|\n";
    for (const PeerRow &row : proxy_rows) {
        for (const ProxyErrorRow &error : proxy_error_rows) {
            if (std::string(row.name) == error.proxy)
                table += std::string("| ") + row.name + " | " + row.versions + " | works | " +
                         answer_cell(error, error.password_wanted) + " | " +
                         answer_cell(error, error.unreachable) + " | " + row.advice + " |\n";
        }
    }
    return table;
}

TEST(ServersAndProxiesPage, ShowsTheTablesOfTheRows)
{
    const std::string page = file_content(QUINTRAL_SERVERS_PAGE);
    for (const std::string &table : {server_table(), proxy_table()})
        EXPECT_NE(page.find("\n\n" + table + "\n"), std::string::npos)
            << "the page lacks this table:\n\n"
            << table;
}

// The columns of the first table rely on it.
TEST(ServersAndProxiesPage, RowsHoldEachPairOnceInTheOrderOfTheColumns)
{
    std::string expected;
    for (const PeerRow &server : server_rows)
        expected += std::string(server.name) + "+\n";
    for (const PeerRow &proxy : proxy_rows) {
        for (const PeerRow &server : server_rows)
            expected += std::string(server.name) + "+" + proxy.name + "\n";
    }
    std::string found;
    for (const PairRow &row : pair_rows)
        found += std::string(row.server) + "+" + row.proxy + "\n";
    EXPECT_EQ(found, expected);
}

} // namespace
} // namespace quintral::tests
