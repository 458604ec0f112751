// In-memory store of network credentials per device address and authentication type.
#pragma once

#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"
#include "VantrelBase/Net/NetExport.hpp"
#include "VantrelBase/Net/NetworkCredential.hpp"

#include <map>
#include <string>

namespace VantrelBase::Net
{

/// Credentials keyed by device address and authentication type, both free text. No device is kept
/// without credentials. Failures throw Qib::System::Commons::ArgumentException after a debug log line
/// and leave the cache unchanged. Takes no lock: distinct objects: safe; shared objects: unsafe.
class VANTRELBASE_NET_EXPORT CredentialCache
    : private Qib::System::Commons::Diagnostics::Logging::Loggable<CredentialCache>
{
public:
    /// An empty cache. Defined in the library so that the library's class logger gets its name.
    CredentialCache();

    /// Stores a copy of `credential`; throws when (device, authType) already holds one.
    void Add(const std::string& device, const std::string& authType, const NetworkCredential& credential);
    /// Removes the device with all its credentials; throws when the device is unknown.
    void Remove(const std::string& device);
    /// Removes one credential, and the device with its last one; throws when either key is unknown.
    void Remove(const std::string& device, const std::string& authType);
    /// A copy of the stored credential; throws when either key is unknown.
    NetworkCredential GetCredential(const std::string& device, const std::string& authType);
    /// True when a credential is stored under both keys. Never throws.
    bool HasCredential(const std::string& device, const std::string& authType);
    /// Removes everything. Never throws.
    void Clear();

private:
    std::map<std::string, std::map<std::string, NetworkCredential>> credentials;
};

} // namespace VantrelBase::Net
