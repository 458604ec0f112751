// Fuzzes the daemon's config loader on arbitrary text: every rejection is a ConfigError naming the
// place, nothing else is thrown, and an accepted config loads the same way twice.
#include "ConfigLoader.hpp"

#include "ExitStatus.hpp"
#include "FuzzCheck.hpp"

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace
{

// A base folder with the sub-folders a config is likely to name, so that accepted configs are
// reached too.
const std::string& BaseDirectory()
{
    static const std::string base = [] {
        char pattern[] = "/tmp/vantrel-fuzz-config-XXXXXX";
        const char* made = ::mkdtemp(pattern);
        FUZZ_CHECK(made != nullptr);
        for (const char* folder : {"tftpboot", "logs", "cfg", "home"})
        {
            std::filesystem::create_directories(std::filesystem::path(made) / folder);
        }
        return std::string(made);
    }();
    return base;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string first;
    try
    {
        first = VantrelNetd::ConfigLoader::LoadText(text, "fuzz.toml", BaseDirectory()).Describe();
    }
    catch (const VantrelNetd::ConfigError& error)
    {
        const std::string message = error.what();
        FUZZ_CHECK(message.find("fuzz.toml") != std::string::npos);
        return 0;
    }
    FUZZ_CHECK(!first.empty());
    FUZZ_CHECK(VantrelNetd::ConfigLoader::LoadText(text, "fuzz.toml", BaseDirectory()).Describe() == first);
    return 0;
}
