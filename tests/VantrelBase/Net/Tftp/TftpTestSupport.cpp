// Helpers of the TFTP tests.
#include "TftpTestSupport.hpp"

#include "Qib/System/Commons/Threading/Thread.hpp"

#include "Support/NetworkNamespace.hpp"

namespace VantrelTest::Tftp
{

void TftpServerTest::SetUp()
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // The main thread's loop never ends by itself: keep the join before its termination short.
    Qib::System::Commons::Threading::Thread::SetJoinLimit(20);
}

void TftpServerTest::TearDown()
{
    StopServer();
}

void TftpServerTest::StopServer()
{
    if (server)
    {
        server->Stop();
        server.reset();
    }
}

Settings TftpServerTest::DefaultSettings() const
{
    Settings settings;
    settings.HomePaths = {{"/", home.Path()}};
    settings.ReadEnabled = true;
    settings.WriteEnabled = true;
    settings.OverwriteEnabled = true;
    settings.Timeout = 1;
    settings.MaxRetries = 2;
    settings.ThreadCount = 4;
    return settings;
}

void TftpServerTest::StartServer(const Settings& settings)
{
    StopServer();
    server = std::make_unique<TestServer>(settings);
    logs->Clear();
    server->Start();
    ASSERT_TRUE(logs->WaitFor("Start main thread work"));
}

} // namespace VantrelTest::Tftp
