// Tests of the repeat collapser: how many lines of a kind pass in a window, and the count of the rest.
#include "RepeatCollapser.hpp"

#include <gtest/gtest.h>

using VantrelNetd::RepeatCollapser;

TEST(RepeatCollapserTest, PassesTheFirstLinesOfEachKindAndCountsTheRestOncePerWindow)
{
    std::vector<std::pair<std::string, std::uint64_t>> summaries;
    RepeatCollapser collapser(
        [&](const std::string& kind, std::uint64_t count) { summaries.emplace_back(kind, count); });
    const auto start = RepeatCollapser::Clock::now();
    std::uint64_t passed = 0;
    for (std::uint64_t line = 0; line < RepeatCollapser::Allowed + 7; ++line)
    {
        passed += collapser.Admit("flood", start) ? 1 : 0;
    }
    // Another kind is never held back by the flood.
    EXPECT_TRUE(collapser.Admit("other", start));
    EXPECT_EQ(passed, RepeatCollapser::Allowed);
    collapser.Expire(start + RepeatCollapser::Window - std::chrono::milliseconds(1));
    EXPECT_TRUE(summaries.empty());
    // The next window starts afresh, after the count of the one that ended.
    EXPECT_TRUE(collapser.Admit("flood", start + RepeatCollapser::Window));
    ASSERT_EQ(summaries.size(), 1U);
    EXPECT_EQ(summaries[0], std::make_pair(std::string("flood"), std::uint64_t{7}));
}
