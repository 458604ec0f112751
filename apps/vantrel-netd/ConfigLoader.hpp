// Reads a TOML config file into the daemon's configuration and validates every value in it.
#pragma once

#include "Config.hpp"

#include <string>

namespace VantrelNetd
{

/// Turns config text into a validated Config. Every error throws ConfigError with one line naming
/// the file, line, column and key; what is accepted but likely not meant lands in Config::Warnings.
class ConfigLoader
{
public:
    /// Reads and validates the file at `path`. Relative paths inside it are taken from the file's
    /// own folder.
    static Config LoadFile(const std::string& path);

    /// Validates config text; `sourceName` names it in messages, relative paths are taken from
    /// `baseDirectory`.
    static Config LoadText(const std::string& text, const std::string& sourceName, const std::string& baseDirectory);

    /// The configuration used without a config file: read-only TFTP serving `tftpRoot`, BOOTP off.
    /// The folder is created, with a small sample file, when it is missing.
    static Config BuiltIn(const std::string& tftpRoot);
};

} // namespace VantrelNetd
