// Fuzzes MacAddress parsing and its text form: any text parses, never throws, and what is printed
// parses back to the same address; the ordering treats exactly equal addresses as equivalent.
#include "VantrelBase/Net/MacAddress.hpp"

#include "FuzzCheck.hpp"

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <string>

using VantrelBase::Net::MacAddress;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);

    MacAddress parsed(0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF);
    FUZZ_CHECK(MacAddress::TryParse(text, parsed));
    FUZZ_CHECK(MacAddress::Parse(text) == parsed);

    const std::string printed = parsed.ToString();
    FUZZ_CHECK(printed.size() == 17);
    for (std::size_t i = 0; i < printed.size(); ++i)
    {
        const char c = printed[i];
        FUZZ_CHECK(i % 3 == 2 ? c == ':' : (std::isdigit(static_cast<unsigned char>(c)) || (c >= 'A' && c <= 'F')));
    }
    FUZZ_CHECK(MacAddress::Parse(printed) == parsed);

    // The raw bytes as an address: equivalence under the ordering is equality.
    if (size >= 12)
    {
        const MacAddress a(data[0], data[1], data[2], data[3], data[4], data[5]);
        const MacAddress b(data[6], data[7], data[8], data[9], data[10], data[11]);
        FUZZ_CHECK((!(a < b) && !(b < a)) == (a == b));
        FUZZ_CHECK(!(a < a));
        FUZZ_CHECK(MacAddress::Parse(a.ToString()) == a);
    }
    return 0;
}
