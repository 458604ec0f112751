// Helpers of the TFTP tests: a derived server that opens the protected operations and the fixture
// that starts a server on a temporary home folder.
#pragma once

#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "Support/Files.hpp"
#include "Support/LogCapture.hpp"
#include "Support/TempDirectory.hpp"
#include "Support/TftpDatagrams.hpp"
#include "Support/UdpClient.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace VantrelTest::Tftp
{

using Settings = VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

/// Opens the protected operations of the server to the tests.
class TestServer : public VantrelBase::Net::Tftp::TftpServer
{
public:
    using TftpServer::TftpServer;
    using TftpServer::GetAbsoluteFilepath;
    using TftpServer::GetMaxRetries;
    using TftpServer::GetTimeout;
    using TftpServer::HandleReadRequest;
    using TftpServer::HandleWriteRequest;
};

/// Starts a server on port 69 in the test's network namespace with a temporary home folder.
class TftpServerTest : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Downloads and uploads allowed, overwrite allowed, time-out 1 s, 2 retries, 4 threads, the
    /// home folder as the default home.
    Settings DefaultSettings() const;
    /// Starts the server and waits until its socket is bound.
    void StartServer(const Settings& settings);
    void StartServer() { StartServer(DefaultSettings()); }
    /// Stops and destroys the server. A derived server object is stopped before its destruction
    /// begins, so that its main thread never meets a half-destroyed object.
    void StopServer();

    std::unique_ptr<LogCapture> logs = std::make_unique<LogCapture>(8);
    TempDirectory home;
    std::unique_ptr<TestServer> server;
};

} // namespace VantrelTest::Tftp
