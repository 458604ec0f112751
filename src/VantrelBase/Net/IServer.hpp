// Interface of the library's threaded servers.
#pragma once

#include "VantrelBase/Net/NetExport.hpp"

#include <string>

namespace VantrelBase::Net
{

/// A server that can be started, stopped and asked whether it runs.
class VANTRELBASE_NET_EXPORT IServer
{
public:
    virtual ~IServer();
    virtual std::string GetName() = 0;
    virtual void Start() = 0;
    virtual void Stop() = 0;
    virtual bool IsRunning() = 0;
};

} // namespace VantrelBase::Net
