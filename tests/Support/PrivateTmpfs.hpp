// A small tmpfs for tests of full and read-only file systems.
#pragma once

#include <functional>
#include <string>

namespace VantrelTest
{

/// Mounts a 64 KiB tmpfs on `path`, visible only to this process and the threads it starts later;
/// with `fillThenMakeReadOnly`, calls it and then remounts the tmpfs read-only. Empty when done;
/// otherwise why not (the caller skips). Call before any thread starts.
std::string MountPrivateTmpfs(const std::string& path, const std::function<void()>& fillThenMakeReadOnly = {});

} // namespace VantrelTest
