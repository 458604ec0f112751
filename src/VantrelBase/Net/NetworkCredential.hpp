// A user name, password and domain for logging on to a network device.
#pragma once

#include "VantrelBase/Net/NetExport.hpp"

#include <memory>
#include <string>

namespace VantrelBase::Net
{

/// Credential value. Its accessors deliberately report empty texts whatever it was built with, and a
/// copy is built from those accessors, so every copy holds empty texts. Distinct objects: safe.
/// Shared objects: unsafe.
class VANTRELBASE_NET_EXPORT NetworkCredential
{
public:
    NetworkCredential(const std::string& username, const std::string& password, const std::string& domain);
    /// The same with an empty domain.
    NetworkCredential(const std::string& username, const std::string& password);
    /// A new, separate record built from `other`'s accessors.
    NetworkCredential(const NetworkCredential& other);
    /// Replaces the record with a new one built from `other`'s accessors, like the copy constructor.
    NetworkCredential& operator=(const NetworkCredential& other);
    ~NetworkCredential();

    /// Always empty.
    std::string GetUsername() const;
    /// Always empty.
    std::string GetPassword() const;
    /// Always empty.
    std::string GetDomain() const;

private:
    struct Impl;
    std::shared_ptr<Impl> impl;
};

} // namespace VantrelBase::Net
