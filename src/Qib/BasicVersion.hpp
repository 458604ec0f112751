// A library's version record: four numbers and two texts.
#pragma once

#include "Qib/QibExport.hpp"

#include <string>

namespace Qib
{

/// Version record: major, minor, patch, build, version text and suffix text.
class QIB_EXPORT BasicVersion
{
public:
    BasicVersion(int major, int minor, int patch, int build, std::string text, std::string suffix)
        : major(major), minor(minor), patch(patch), build(build), text(std::move(text)), suffix(std::move(suffix))
    {
    }

    int GetMajor() const noexcept { return major; }
    int GetMinor() const noexcept { return minor; }
    int GetPatch() const noexcept { return patch; }
    int GetBuild() const noexcept { return build; }
    const std::string& GetText() const noexcept { return text; }
    const std::string& GetSuffix() const noexcept { return suffix; }

private:
    int major;
    int minor;
    int patch;
    int build;
    std::string text;
    std::string suffix;
};

} // namespace Qib
