// Tests of file existence, deletion and moving, and of the errors they report.
#include "Qib/System/Commons/Io/File.hpp"

#include "System/Commons/Io/TemporaryFolder.hpp"
#include "Support/ExceptionMessage.hpp"
#include "Support/JoinLimit.hpp"

#include "Qib/Exception.hpp"
#include "Qib/System/Commons/Io/Directory.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

using Qib::System::Commons::Io::Directory;
using Qib::System::Commons::Io::File;
using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;
using VantrelTest::TemporaryFolder;
using VantrelTest::ErrorOf;

namespace
{

testing::AssertionResult Names(const std::string& message, const std::string& text)
{
    if (message.find(text) != std::string::npos)
    {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "'" << message << "' does not contain '" << text << "'";
}

} // namespace

TEST(FileTest, ExistsOnlyForRegularFiles)
{
    TemporaryFolder folder;
    TemporaryFolder::Write(folder / "a.txt", "a");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0644), 0);
    ASSERT_EQ(::symlink("/dev/null", (folder / "device").c_str()), 0);
    ASSERT_EQ(::symlink("a.txt", (folder / "link").c_str()), 0);
    EXPECT_TRUE(File::Exists(folder / "a.txt"));
    EXPECT_TRUE(File::Exists(folder / "link"));
    EXPECT_FALSE(File::Exists(folder / "missing.txt"));
    EXPECT_FALSE(File::Exists(folder.Path()));
    EXPECT_FALSE(File::Exists(folder / "pipe"));
    EXPECT_FALSE(File::Exists(folder / "device"));
}

TEST(FileTest, DeleteRemovesTheFile)
{
    TemporaryFolder folder;
    TemporaryFolder::Write(folder / "a.txt", "a");
    File::Delete(folder / "a.txt");
    EXPECT_FALSE(File::Exists(folder / "a.txt"));
}

TEST(FileTest, DeleteOfMissingFileNamesPathAndReason)
{
    TemporaryFolder folder;
    const std::string message = ErrorOf([&] { File::Delete(folder / "missing.txt"); });
    EXPECT_TRUE(Names(message, folder / "missing.txt"));
    EXPECT_TRUE(Names(message, std::strerror(ENOENT)));
}

TEST(FileTest, MoveWithoutOverwriteRefusesAnExistingDestination)
{
    TemporaryFolder folder;
    TemporaryFolder::Write(folder / "source", "new");
    TemporaryFolder::Write(folder / "target", "old");
    const std::string message = ErrorOf([&] { File::Move(folder / "source", folder / "target", false, false); });
    EXPECT_TRUE(Names(message, folder / "source"));
    EXPECT_TRUE(Names(message, folder / "target"));
    EXPECT_TRUE(Names(message, std::strerror(EEXIST)));
    EXPECT_EQ(TemporaryFolder::Read(folder / "target"), "old");
    EXPECT_TRUE(File::Exists(folder / "source"));
}

TEST(FileTest, MoveWithOverwriteReplacesTheDestination)
{
    TemporaryFolder folder;
    TemporaryFolder::Write(folder / "x.part", "uploaded");
    TemporaryFolder::Write(folder / "x", "old");
    File::Move(folder / "x.part", folder / "x", true, true);
    EXPECT_EQ(TemporaryFolder::Read(folder / "x"), "uploaded");
    EXPECT_FALSE(File::Exists(folder / "x.part"));
}

TEST(FileTest, MoveCreatesMissingDestinationFolderOnlyWhenAsked)
{
    TemporaryFolder folder;
    TemporaryFolder::Write(folder / "source", "data");
    const std::string message =
        ErrorOf([&] { File::Move(folder / "source", folder / "sub/deeper/target", true, false); });
    EXPECT_TRUE(Names(message, std::strerror(ENOENT)));
    EXPECT_TRUE(File::Exists(folder / "source"));

    File::Move(folder / "source", folder / "sub/deeper/target", true, true);
    EXPECT_EQ(TemporaryFolder::Read(folder / "sub/deeper/target"), "data");
}

TEST(FileTest, MoveOfMissingSourceNamesItAndTheReason)
{
    TemporaryFolder folder;
    const std::string message = ErrorOf([&] { File::Move(folder / "nothing", folder / "target", true, true); });
    EXPECT_TRUE(Names(message, folder / "nothing"));
    EXPECT_TRUE(Names(message, std::strerror(ENOENT)));
    EXPECT_FALSE(File::Exists(folder / "target"));
}

TEST(DirectoryTest, CreateWithParentsBuildsTheWholeChain)
{
    TemporaryFolder folder;
    Directory::Create(folder / "a/b/c", true);
    EXPECT_TRUE(Directory::Exists(folder / "a/b/c"));
    Directory::Create(folder / "a/b/c", true); // an existing directory is fine
    Directory::Create(folder / "a/b/c/", false);
    EXPECT_TRUE(Directory::Exists(folder / "a/b/c"));
}

TEST(DirectoryTest, CreateWithoutParentsFailsOnAMissingParent)
{
    TemporaryFolder folder;
    const std::string message = ErrorOf([&] { Directory::Create(folder / "x/y", false); });
    EXPECT_TRUE(Names(message, folder / "x/y"));
    EXPECT_TRUE(Names(message, std::strerror(ENOENT)));
    EXPECT_FALSE(Directory::Exists(folder / "x"));
}

TEST(DirectoryTest, CreateUnderAFileNamesPathAndReason)
{
    TemporaryFolder folder;
    TemporaryFolder::Write(folder / "plain", "not a folder");
    const std::string message = ErrorOf([&] { Directory::Create(folder / "plain/sub", true); });
    EXPECT_TRUE(Names(message, folder / "plain/sub"));
    EXPECT_TRUE(Names(message, std::strerror(ENOTDIR)));
}

TEST(DirectoryTest, CreateOnAnExistingFileFails)
{
    TemporaryFolder folder;
    TemporaryFolder::Write(folder / "plain", "not a folder");
    const std::string message = ErrorOf([&] { Directory::Create(folder / "plain", true); });
    EXPECT_TRUE(Names(message, folder / "plain"));
    EXPECT_TRUE(Names(message, std::strerror(EEXIST)));
    EXPECT_FALSE(Directory::Exists(folder / "plain"));
}

// A client may name a folder some two thousand levels deep; creating it must not need a deep stack.
TEST(DirectoryTest, DeepPathOnASmallStackIsCreatedUpToThePathLimitAndRefusedBeyond)
{
    TemporaryFolder folder;
    std::string deep = folder.Path();
    while (deep.size() + 2 < PATH_MAX)
    {
        deep += "/d";
    }
    const std::string tooDeep = deep + "/d";
    std::string refused;
    // Two thousand folders take seconds on a loaded machine with sanitizers: the join must wait.
    const VantrelTest::JoinLimit patient(60000);
    Thread thread(ThreadSettings("Deep", 0, 0, 128 * 1024), [&](void*) {
        Directory::Create(deep, true);
        refused = ErrorOf([&] { Directory::Create(tooDeep, true); });
    }, nullptr);
    thread.Start();
    ASSERT_TRUE(thread.Join());
    EXPECT_TRUE(Directory::Exists(deep));
    EXPECT_TRUE(Names(refused, std::strerror(ENAMETOOLONG)));
}
