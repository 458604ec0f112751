// Runs a shell command line and reports its exit status.
#pragma once

#include "VantrelBase/Core/CoreExport.hpp"

#include <string>

namespace VantrelBase::Core::Os
{

/// A shell command runner. Stateless; distinct and shared objects: safe.
class VANTRELBASE_CORE_EXPORT Command
{
public:
    Command() = default;

    /// Runs `commandLine` through /bin/sh -c and waits for it. Returns its exit status, 128 plus the
    /// signal number when a signal ended it, or -1 when the shell could not be started.
    int Execute(const std::string& commandLine);
};

} // namespace VantrelBase::Core::Os
