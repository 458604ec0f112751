// Connection record for remote service calls to a controller: its URL and whether it is connected.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "Qib/System/Commons/Net/IpAddress.hpp"
#include "Qib/System/Commons/Net/Url.hpp"
#include "Qib/System/Commons/Threading/Mutex.hpp"
#include "VantrelBase/Net/NetExport.hpp"

#include <string>

namespace VantrelBase::Net::Rsc
{

/// Holds the target of remote service calls. Only the local device (host "127.0.0.1" or "localhost")
/// is accepted; any other host is refused without being contacted. Connect calls are serialised by a
/// recursive mutex; Disconnect and the readers take no lock and must not race with Connect.
class VANTRELBASE_NET_EXPORT RscGateway
    : private Qib::System::Commons::Diagnostics::Logging::Loggable<RscGateway>
{
public:
    /// The port used by the overloads that take an address without one.
    static constexpr unsigned short DefaultPort = 41100;

    /// Not connected, url empty.
    RscGateway();
    /// Disconnects first when connected.
    ~RscGateway();
    RscGateway(const RscGateway&) = delete;
    RscGateway& operator=(const RscGateway&) = delete;

    /// Connects when the host of `url` is local and returns true; otherwise changes nothing and
    /// returns whether an earlier local connection is still in force. The password is not used.
    bool Connect(const Qib::System::Commons::Net::Url& url, const std::string& username,
                 const std::string& password);
    /// Connect with the default logon.
    bool Connect(const Qib::System::Commons::Net::Url& url);
    /// Connect to "tls://address:port"; throws InvalidFormatException when that is no valid URL (port 0).
    bool Connect(const Qib::System::Commons::Net::IpAddress& address, unsigned short port,
                 const std::string& username, const std::string& password);
    /// Connect to "tls://address:port" with the default logon.
    bool Connect(const Qib::System::Commons::Net::IpAddress& address, unsigned short port);
    /// Connect to "tls://address:41100".
    bool Connect(const Qib::System::Commons::Net::IpAddress& address, const std::string& username,
                 const std::string& password);
    /// Connect to "tls://address:41100" with the default logon.
    bool Connect(const Qib::System::Commons::Net::IpAddress& address);

    /// Clears the connection and the url; always true.
    bool Disconnect();
    bool IsConnected();
    /// Always false: no connection is both to "localhost" and to "127.0.0.1".
    bool IsRemoteConnection();
    /// Always false: only local connections are supported.
    bool IsRemotingSupported();
    /// The connected url, or Url::Empty.
    const Qib::System::Commons::Net::Url& GetUrl() const;

private:
    static Qib::System::Commons::Net::Url MakeUrl(const Qib::System::Commons::Net::IpAddress& address,
                                                  unsigned short port);

    Qib::System::Commons::Net::Url url;
    Qib::System::Commons::Threading::Mutex mutex;
    bool connected;
    unsigned short defaultPort;
};

} // namespace VantrelBase::Net::Rsc
