// Tests of path joining (the directory part of a path is shown by the TFTP server's uploads into new
// folders).
#include "Qib/System/Commons/Io/Path.hpp"

#include <gtest/gtest.h>

#include <tuple>

using Qib::String;
using Qib::System::Commons::Io::Path;

// A request path always begins with "/"; it must stay inside the home directory.
TEST(PathTest, CombineJoinsWithOneSeparatorAndKeepsARootedRightPieceUnderTheLeft)
{
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"a", "b", "a/b"},           {"a/", "b", "a/b"},       {"a", "/b", "a/b"},
        {"a/", "/b", "a/b"},         {"/srv/tftp", "/x.xml", "/srv/tftp/x.xml"},
        {"/", "/x.xml", "/x.xml"},   {"", "/a/b.txt", "/a/b.txt"}, {"/srv", "", "/srv"},
        {"", "", ""},                {"/srv", "/../etc", "/srv/../etc"}};
    for (const auto& [left, right, combined] : cases)
    {
        EXPECT_EQ(Path::Combine(left, right), String(combined)) << left << " + " << right;
    }
}
