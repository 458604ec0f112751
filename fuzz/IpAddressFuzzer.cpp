// Fuzzes IpAddress parsing: Parse and TryParse agree, failures are InvalidFormatException only,
// and an accepted text prints as a dotted quad that parses back to the same value.
#include "Qib/System/Commons/Net/IpAddress.hpp"

#include "FuzzCheck.hpp"
#include "Qib/System/Commons/InvalidFormatException.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

using Qib::System::Commons::InvalidFormatException;
using Qib::System::Commons::Net::IpAddress;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const Qib::String text(std::string(reinterpret_cast<const char*>(data), size));

    const IpAddress untouched(0x01020304U);
    IpAddress tried = untouched;
    const bool accepted = IpAddress::TryParse(text, tried);
    if (!accepted)
    {
        FUZZ_CHECK(tried == untouched);
    }
    bool parsed = false;
    try
    {
        const IpAddress address = IpAddress::Parse(text);
        parsed = true;
        FUZZ_CHECK(accepted && address == tried);
        const Qib::String printed = address.ToString();
        FUZZ_CHECK(printed.GetStdString().size() >= 7 && printed.GetStdString().size() <= 15);
        FUZZ_CHECK(IpAddress::Parse(printed) == address);
    }
    catch (const InvalidFormatException&)
    {
    }
    FUZZ_CHECK(parsed == accepted);

    // Any four bytes print as text that parses back to them.
    if (size >= 4)
    {
        std::uint32_t value = 0;
        std::memcpy(&value, data, sizeof(value));
        const IpAddress raw(value);
        FUZZ_CHECK(IpAddress::Parse(raw.ToString()).GetValue() == value);
    }
    return 0;
}
