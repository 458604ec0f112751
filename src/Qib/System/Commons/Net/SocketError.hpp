// Result of a socket operation: 0 for success, otherwise the system's error number.
#pragma once

namespace Qib::System::Commons::Net
{

/// The system error number of a failed socket operation; prints as that number.
enum SocketError : int
{
    Success = 0,
};

} // namespace Qib::System::Commons::Net
