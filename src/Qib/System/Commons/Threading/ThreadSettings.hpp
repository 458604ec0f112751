// Name, priority, processor affinity and stack size of a thread to start.
#pragma once

#include "Qib/QibExport.hpp"

#include <string>

namespace Qib::System::Commons::Threading
{

/// Thread settings; 0 in a number means the system default. The full name is kept; the system
/// sees it cut to 15 characters.
class QIB_EXPORT ThreadSettings
{
public:
    explicit ThreadSettings(std::string name, int priority = 0, unsigned long affinity = 0, unsigned long stackSize = 0)
        : name(std::move(name)), priority(priority), affinity(affinity), stackSize(stackSize)
    {
    }

    const std::string& GetName() const noexcept { return name; }
    int GetPriority() const noexcept { return priority; }
    /// Bit mask of the processors the thread may run on.
    unsigned long GetAffinity() const noexcept { return affinity; }
    /// Stack size in bytes.
    unsigned long GetStackSize() const noexcept { return stackSize; }

private:
    std::string name;
    int priority;
    unsigned long affinity;
    unsigned long stackSize;
};

} // namespace Qib::System::Commons::Threading
