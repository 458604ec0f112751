// Opens the BOOTP server's protected parts to its tests.
#pragma once

#include "VantrelBase/Net/Bootp/BootpServer.hpp"

namespace VantrelTest
{

class TestableBootpServer : public VantrelBase::Net::Bootp::BootpServer
{
public:
    using BootpServer::BootpServer;
    using BootpServer::Buffer;
    using BootpServer::BuildReply;
    using BootpServer::FormatHardware;
    using BootpServer::settings;
    using BootpServer::TryGetIpConfiguration;
};

} // namespace VantrelTest
