// Tests of the library record and the host's entry.
#include "VantrelBase/Net/NetLibrary.hpp"

#include "FrameTestSupport.hpp"


#include <gtest/gtest.h>

#include <cstdio>
#include <string>

using Qib::String;
using VantrelBase::Net::NetLibrary;

namespace
{

// Calls the entry with standard output captured; the text printed.
std::string EnterCapturingOutput(Qib::AppDomain& domain, Qib::System::Acf::ILibrary*& library)
{
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    library = &QibDynamicLibraryMain(domain);
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(NetLibraryTest, EntryCreatesTheSingletonAndReturnsIt)
{
    VantrelTest::NoNetLibrary clean;
    Qib::AppDomain domain;
    Qib::System::Acf::ILibrary* library = nullptr;
    EXPECT_EQ(EnterCapturingOutput(domain, library), "");
    ASSERT_NE(NetLibrary::pInstance, nullptr);
    EXPECT_EQ(library, static_cast<Qib::System::Acf::ILibrary*>(NetLibrary::pInstance));
    EXPECT_EQ(&NetLibrary::GetInstance().GetAppDomain(), &domain);
}

TEST(NetLibraryTest, SecondEntryPrintsTheErrorOnceAndReturnsTheNewObject)
{
    VantrelTest::NoNetLibrary clean;
    Qib::AppDomain domain;
    Qib::System::Acf::ILibrary* first = nullptr;
    Qib::System::Acf::ILibrary* second = nullptr;
    EXPECT_EQ(EnterCapturingOutput(domain, first), "");
    // Deliberately no line end, no exception, and the first object is left alive.
    EXPECT_EQ(EnterCapturingOutput(domain, second),
              "ERROR: Singleton instance of type 'VantrelBase.Net.NetLibrary' was created yet!");
    EXPECT_NE(first, second);
    EXPECT_EQ(second, static_cast<Qib::System::Acf::ILibrary*>(NetLibrary::pInstance));
    EXPECT_EQ(first->GetBuildVersion().GetMajor(), 23); // still usable
    delete first; // the library leaks it on purpose; the test frees it
}

TEST(NetLibraryTest, RecordHasTheNamespaceVersionAndAnEmptyTypeDomain)
{
    VantrelTest::NoNetLibrary clean;
    Qib::AppDomain domain;
    NetLibrary::Main(domain);
    NetLibrary& library = NetLibrary::GetInstance();
    Qib::Plc::Commons::Meta::IMetaLibrary& meta = library;
    EXPECT_EQ(meta.GetNamespace(), String("VantrelBase.Net"));
    EXPECT_EQ(library.GetTypeDomain().GetNamespace(), String("VantrelBase.Net"));

    const Qib::BasicVersion& version = library.GetBuildVersion();
    EXPECT_EQ(version.GetMajor(), 23);
    EXPECT_EQ(version.GetMinor(), 0);
    EXPECT_EQ(version.GetPatch(), 3);
    EXPECT_EQ(version.GetBuild(), 77);
    EXPECT_EQ(version.GetText(), "2023.0.3 LTS");
    EXPECT_EQ(version.GetSuffix(), "");

    library.InitializeTypeDomain();
    EXPECT_EQ(library.GetTypeDomain().GetTypeDefinitionCount(), 0U);
    EXPECT_EQ(&library.GetTypeInfoProvider(true).GetTypeDomain(), &library.GetTypeDomain());
    EXPECT_EQ(&library.GetTypeInfoProvider(false).GetTypeDomain(), &library.GetTypeDomain());
}
