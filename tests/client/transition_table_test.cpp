// Every case of the client machine's transition table, each from its own situation.

#include "client/transition_table.h"

#include <algorithm>
#include <iterator>

#include <gtest/gtest.h>

#include "client/client_life.h"

namespace client_table {

void PrintTo(const Case& one, std::ostream* stream) {
    *stream << one.name;
}

namespace {

class TransitionTableTest : public testing::TestWithParam<Case> {};

TEST_P(TransitionTableTest, Case) {
    const Case& one = GetParam();
    testing_support::ClientLife life;
    life.Arrange(one.state, one.given, one.in);
    ASSERT_EQ(life.State(), one.state);
    life.Mark();
    life.Deliver(one.on);
    Words story;
    std::copy_if(one.story.begin(), one.story.end(), std::back_inserter(story),
                 [&life](const std::string& item) {
                     return item[0] != '-' || life.WasPending(item.substr(2));
                 });
    EXPECT_EQ(life.Story(), story);
    EXPECT_EQ(life.State(), one.to);
    EXPECT_EQ(life.Entered(), one.to == one.state ? 0U : 1U);
}

INSTANTIATE_TEST_SUITE_P(Client, TransitionTableTest, testing::ValuesIn(Cases()),
                         [](const auto& one) { return one.param.name; });

}  // namespace

}  // namespace client_table
