// Fuzzes Url parsing: malformed text fails with InvalidFormatException only, and an accepted URL
// prints as text that parses back to an equal URL.
#include "Qib/System/Commons/Net/Url.hpp"

#include "FuzzCheck.hpp"
#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <cstddef>
#include <cstdint>
#include <string>

using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::Url;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Qib::String text(std::string(reinterpret_cast<const char*>(data), size));
    Url url;
    try
    {
        url = Url::Parse(text);
    }
    catch (const InvalidFormatException&)
    {
        return 0;
    }
    FUZZ_CHECK(!url.GetScheme().GetStdString().empty());
    FUZZ_CHECK(!url.GetHost().GetStdString().empty());
    FUZZ_CHECK(url.GetPort() <= 65535);
    const Qib::String printed = url.ToString();
    FUZZ_CHECK(Url::Parse(printed) == url);
    return 0;
}
