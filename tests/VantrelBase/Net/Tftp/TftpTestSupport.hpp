// A TFTP server whose protected operations the tests call directly.
#pragma once

#include "VantrelBase/Net/Tftp/TftpServer.hpp"

namespace VantrelTest::Tftp
{

using Settings = VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

class TestServer : public VantrelBase::Net::Tftp::TftpServer
{
public:
    using TftpServer::TftpServer;
    using TftpServer::GetAbsoluteFilepath;
    using TftpServer::GetTimeout;
    using TftpServer::HandleReadRequest;
    using TftpServer::HandleWriteRequest;
};

} // namespace VantrelTest::Tftp
