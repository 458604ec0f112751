// Tests of file existence, deletion and moving, of folder creation, and of the errors they report.
#include "Qib/System/Commons/Io/File.hpp"

#include "Qib/System/Commons/Io/Directory.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"
#include "Support/ExceptionMessage.hpp"
#include "Support/Files.hpp"
#include "Support/JoinLimit.hpp"
#include "Support/TempDirectory.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>
#include <tuple>

using Qib::System::Commons::Io::Directory;
using Qib::System::Commons::Io::File;
using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;
using VantrelTest::ErrorOf;
using VantrelTest::ReadFile;
using VantrelTest::WriteFile;

TEST(FileTest, ExistsOnlyForRegularFiles)
{
    VantrelTest::TempDirectory folder;
    WriteFile(folder / "a.txt", "a");
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0644), 0);
    ASSERT_EQ(::symlink("/dev/null", (folder / "device").c_str()), 0);
    ASSERT_EQ(::symlink("a.txt", (folder / "link").c_str()), 0);
    EXPECT_TRUE(File::Exists(folder / "a.txt"));
    EXPECT_TRUE(File::Exists(folder / "link"));
    for (const char* name : {"missing.txt", "", "pipe", "device"})
    {
        EXPECT_FALSE(File::Exists(folder / name)) << name;
    }
    File::Delete(folder / "a.txt");
    EXPECT_FALSE(File::Exists(folder / "a.txt"));
    EXPECT_EQ(ErrorOf([&] { File::Delete(folder / "a.txt"); }),
              "Cannot delete file '" + folder / "a.txt" + "': " + std::strerror(ENOENT));
}

// The server moves its finished uploads with both flags set: what the flags refuse is shown here.
TEST(FileTest, MoveRefusesWhatItWasNotAskedForAndNamesBothPathsAndTheReason)
{
    VantrelTest::TempDirectory folder;
    WriteFile(folder / "x.part", "uploaded");
    WriteFile(folder / "x", "old");
    const std::tuple<const char*, const char*, bool, bool, int> refused[] = {{"x.part", "x", false, false, EEXIST},
                                                                            {"x.part", "new/x", true, false, ENOENT},
                                                                            {"missing", "y", true, true, ENOENT}};
    for (const auto& [from, to, overwrite, createFolder, error] : refused)
    {
        const std::string source = folder / from;
        const std::string target = folder / to;
        const bool replace = overwrite;
        const bool create = createFolder;
        EXPECT_EQ(ErrorOf([&] { File::Move(source, target, replace, create); }),
                  fmt::format("Cannot move file '{}' to '{}': {}", source, target, std::strerror(error)));
    }
    EXPECT_EQ(ReadFile(folder / "x"), "old");
    File::Move(folder / "x.part", folder / "new/deeper/x", true, true);
    EXPECT_EQ(ReadFile(folder / "new/deeper/x"), "uploaded");
    EXPECT_FALSE(File::Exists(folder / "x.part"));
}

TEST(DirectoryTest, CreateMakesTheParentsOnlyWhenAskedAndNamesPathAndReasonOnFailure)
{
    VantrelTest::TempDirectory folder;
    WriteFile(folder / "plain", "not a folder");
    Directory::Create(folder / "a/b/c", true);
    Directory::Create(folder / "a/b/c", true); // an existing folder is no error
    Directory::Create(folder / "a/b/c/d/", false);
    EXPECT_TRUE(Directory::Exists(folder / "a/b/c/d"));
    const std::tuple<const char*, bool, int> refused[] = {
        {"x/y", false, ENOENT}, {"plain/sub", true, ENOTDIR}, {"plain", true, EEXIST}};
    for (const auto& [path, parents, error] : refused)
    {
        const std::string full = folder / path;
        const bool withParents = parents;
        EXPECT_EQ(ErrorOf([&] { Directory::Create(full, withParents); }),
                  fmt::format("Cannot create directory '{}': {}", full, std::strerror(error)));
    }
    EXPECT_FALSE(Directory::Exists(folder / "x"));
}

// A client may name a folder some two thousand levels deep; creating it must not need a deep stack.
TEST(DirectoryTest, DeepPathOnASmallStackIsCreatedUpToThePathLimitAndRefusedBeyond)
{
    VantrelTest::TempDirectory folder;
    std::string deep = folder.Path();
    while (deep.size() + 2 < PATH_MAX)
    {
        deep += "/d";
    }
    std::string refused;
    // Two thousand folders take seconds on a loaded machine with sanitizers: the join must wait.
    const VantrelTest::JoinLimit patient(60000);
    Thread thread(ThreadSettings("Deep", 0, 0, 128 * 1024), [&](void*) {
        Directory::Create(deep, true);
        refused = ErrorOf([&] { Directory::Create(deep + "/d", true); });
    }, nullptr);
    thread.Start();
    ASSERT_TRUE(thread.Join());
    EXPECT_TRUE(Directory::Exists(deep));
    EXPECT_EQ(refused, fmt::format("Cannot create directory '{}/d': {}", deep, std::strerror(ENAMETOOLONG)));
}
