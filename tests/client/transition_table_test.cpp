// Every row of the client machine's transition table, each from its own situation.

#include "client/transition_table.h"

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "client/client_diagram.h"
#include "client/client_life.h"

namespace client_table {

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.Name();
}

namespace {

class TransitionTableTest : public testing::TestWithParam<Row> {};

TEST_P(TransitionTableTest, Row) {
    const Row& row = GetParam();
    testing_support::ClientLife life;
    life.Arrange(row.state, row.given);
    ASSERT_EQ(life.State(), row.state);
    life.Mark();
    life.Deliver(row.trigger);
    EXPECT_EQ(life.Story(), row.story);
    EXPECT_EQ(life.State(), row.next.empty() ? row.state : row.next);
    EXPECT_EQ(life.Entered().size(), row.next.empty() ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(Client, TransitionTableTest, testing::ValuesIn(Table()),
                         [](const auto& row) { return row.param.Name(); });

TEST(ClientMachinePageTest, HoldsTheTableAsItIsTested) {
    std::ifstream file(CLIENT_MACHINE_PAGE);
    const std::string page(std::istreambuf_iterator<char>(file), {});
    const std::string begin = "<!-- begin: tools/client-diagram -->\n";
    const std::string end = "<!-- end: tools/client-diagram -->\n";
    EXPECT_NE(page.find(begin + Diagram() + end), std::string::npos)
        << "the page differs from the table; tools/client-diagram refreshes it";
}

}  // namespace

}  // namespace client_table
