// In-memory store of network credentials per device address and authentication type.
#include "VantrelBase/Net/CredentialCache.hpp"

#include "Qib/System/Commons/ArgumentException.hpp"

namespace VantrelBase::Net
{

using Qib::System::Commons::ArgumentException;

namespace
{

const std::string AlreadyExists = "Credential already exists: device={0}, authType={1}";
const std::string DeviceNotFound = "Credential not found: device={0}";
const std::string UnknownDevice = "Credential not found (unknown device): device={0}, authType={1}";
const std::string UnknownAuthType = "Credential not found (unknown authType): device={0}, authType={1}";

} // namespace

CredentialCache::CredentialCache() = default;

void CredentialCache::Add(const std::string& device, const std::string& authType, const NetworkCredential& credential)
{
    const auto deviceEntry = credentials.find(device);
    if (deviceEntry != credentials.end() && deviceEntry->second.count(authType) != 0)
    {
        log.Debug(AlreadyExists, device, authType);
        throw ArgumentException(AlreadyExists, device, authType);
    }
    credentials[device].emplace(authType, credential);
}

void CredentialCache::Remove(const std::string& device)
{
    const auto deviceEntry = credentials.find(device);
    if (deviceEntry == credentials.end())
    {
        log.Debug(DeviceNotFound, device);
        throw ArgumentException(DeviceNotFound, device);
    }
    credentials.erase(deviceEntry);
}

void CredentialCache::Remove(const std::string& device, const std::string& authType)
{
    const auto deviceEntry = credentials.find(device);
    if (deviceEntry == credentials.end())
    {
        log.Debug(UnknownDevice, device, authType);
        throw ArgumentException(UnknownDevice, device, authType);
    }
    const auto credential = deviceEntry->second.find(authType);
    if (credential == deviceEntry->second.end())
    {
        log.Debug(UnknownAuthType, device, authType);
        throw ArgumentException(UnknownAuthType, device, authType);
    }
    deviceEntry->second.erase(credential);
    if (deviceEntry->second.empty())
    {
        credentials.erase(deviceEntry);
    }
}

NetworkCredential CredentialCache::GetCredential(const std::string& device, const std::string& authType)
{
    const auto deviceEntry = credentials.find(device);
    if (deviceEntry == credentials.end())
    {
        log.Debug(UnknownDevice, device, authType);
        // Deliberate: unlike Remove, the exception carries a fixed text without the keys.
        throw ArgumentException("Device address not found");
    }
    const auto credential = deviceEntry->second.find(authType);
    if (credential == deviceEntry->second.end())
    {
        log.Debug(UnknownAuthType, device, authType);
        throw ArgumentException("Authentication type not found");
    }
    return credential->second;
}

bool CredentialCache::HasCredential(const std::string& device, const std::string& authType)
{
    const auto deviceEntry = credentials.find(device);
    return deviceEntry != credentials.end() && deviceEntry->second.count(authType) != 0;
}

void CredentialCache::Clear()
{
    credentials.clear();
}

} // namespace VantrelBase::Net
