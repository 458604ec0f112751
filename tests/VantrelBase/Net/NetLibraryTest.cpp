// Tests of the library record and the host's entry.
#include "VantrelBase/Net/NetLibrary.hpp"

#include "FrameTestSupport.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

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

TEST(NetLibraryTest, EntryCreatesTheSingletonAndASecondEntryPrintsTheErrorAndReturnsTheNewObject)
{
    VantrelTest::NoNetLibrary clean;
    Qib::AppDomain domain;
    Qib::System::Acf::ILibrary* first = nullptr;
    Qib::System::Acf::ILibrary* second = nullptr;
    EXPECT_EQ(EnterCapturingOutput(domain, first), "");
    EXPECT_EQ(first, static_cast<Qib::System::Acf::ILibrary*>(NetLibrary::pInstance));
    EXPECT_EQ(&NetLibrary::GetInstance().GetAppDomain(), &domain);
    EXPECT_EQ(NetLibrary::GetInstance().GetTypeDomain().GetNamespace(), Qib::String("VantrelBase.Net"));
    // Deliberately no line end, no exception, and the first object is left alive.
    EXPECT_EQ(EnterCapturingOutput(domain, second),
              "ERROR: Singleton instance of type 'VantrelBase.Net.NetLibrary' was created yet!");
    EXPECT_NE(first, second);
    EXPECT_EQ(second, static_cast<Qib::System::Acf::ILibrary*>(NetLibrary::pInstance));
    EXPECT_EQ(first->GetBuildVersion().GetText(), "2023.0.3 LTS"); // still usable
    delete first; // the library leaks it on purpose; the test frees it
}
