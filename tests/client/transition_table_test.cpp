// Every row of the client machine's transition table, each from its own situation.

#include "client/transition_table.h"

#include <gtest/gtest.h>

#include "client/client_life.h"

namespace client_table {

void PrintTo(const Row& row, std::ostream* stream) {
    *stream << row.name;
}

namespace {

class TransitionTableTest : public testing::TestWithParam<Row> {};

TEST_P(TransitionTableTest, Row) {
    const Row& row = GetParam();
    testing_support::ClientLife life;
    life.Arrange(row.state, row.given, row.in);
    ASSERT_EQ(life.State(), row.state);
    life.Mark();
    life.Deliver(row.on);
    EXPECT_EQ(life.Story(), row.story);
    EXPECT_EQ(life.State(), row.to);
    EXPECT_EQ(life.Entered().size(), row.to == row.state ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(Client, TransitionTableTest, testing::ValuesIn(Table()),
                         [](const auto& row) { return row.param.name; });

}  // namespace

}  // namespace client_table
