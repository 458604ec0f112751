// Tests of path joining and of the directory part of a path.
#include "Qib/System/Commons/Io/Path.hpp"

#include <gtest/gtest.h>

using Qib::String;
using Qib::System::Commons::Io::Path;

TEST(PathTest, CombineJoinsWithExactlyOneSeparator)
{
    EXPECT_EQ(Path::Combine("a", "b"), String("a/b"));
    EXPECT_EQ(Path::Combine("a/", "b"), String("a/b"));
    EXPECT_EQ(Path::Combine("a", "/b"), String("a/b"));
    EXPECT_EQ(Path::Combine("a/", "/b"), String("a/b"));
    EXPECT_EQ(Path::Combine("/srv/tftp", "cfg/x.xml"), String("/srv/tftp/cfg/x.xml"));
}

TEST(PathTest, CombineKeepsARootedRightPieceUnderTheLeft)
{
    // A request path always begins with "/"; it must stay inside the home directory.
    EXPECT_EQ(Path::Combine("/srv/tftp", "/x.xml"), String("/srv/tftp/x.xml"));
    EXPECT_EQ(Path::Combine("/", "/x.xml"), String("/x.xml"));
}

TEST(PathTest, CombineWithAnEmptyPieceGivesTheOther)
{
    EXPECT_EQ(Path::Combine("", "/a/b.txt"), String("/a/b.txt"));
    EXPECT_EQ(Path::Combine("/srv", ""), String("/srv"));
    EXPECT_EQ(Path::Combine("", ""), String(""));
}

TEST(PathTest, CombineLeavesParentComponentsAlone)
{
    EXPECT_EQ(Path::Combine("/srv", "/../etc"), String("/srv/../etc"));
}

TEST(PathTest, DirectoryNameIsTextBeforeLastSeparator)
{
    EXPECT_EQ(Path::GetDirectoryName("/srv/tftp/x.xml.part"), String("/srv/tftp"));
    EXPECT_EQ(Path::GetDirectoryName("a/b"), String("a"));
    EXPECT_EQ(Path::GetDirectoryName("a/b/"), String("a/b"));
}

TEST(PathTest, DirectoryNameOfBareNameAndRootEntries)
{
    EXPECT_EQ(Path::GetDirectoryName("x.xml"), String(""));
    EXPECT_EQ(Path::GetDirectoryName(""), String(""));
    EXPECT_EQ(Path::GetDirectoryName("/x.xml"), String("/"));
    EXPECT_EQ(Path::GetDirectoryName("/"), String("/"));
}
