// One home directory of the TFTP server and the alias under which clients address it.
#pragma once

#include <string>

namespace VantrelBase::Net::Tftp::Configuration
{

/// A home directory: `Alias` "/" marks the default home; any other alias is a path prefix (such as
/// /logs) under which clients address `Path`.
struct HomePathSetting
{
    std::string Alias;
    std::string Path;
};

} // namespace VantrelBase::Net::Tftp::Configuration
