// Tests of the daemon's check of hardware-address text.
#include "MacAddressText.hpp"

#include <gtest/gtest.h>

#include <string>

using VantrelNetd::MacAddressText;

// The accepted forms (colons, dashes, bare digits, any case) are read by the config and assignment tests.
TEST(MacAddressTextTest, RejectsWhatTheLibraryWouldTurnIntoZeros)
{
    for (const char* text : {"", "hello", "00:11:22", "1:2:3:4:5:6", "00:11:22:33:44:55:66", "00:11-22:33:44:55",
                             "00.11.22.33.44.55", "0011.2233.4455", "00:11:22:33:44:5G", "001A2B3C4D5", "001A2B3C4D5E6",
                             " 00:11:22:33:44:55", "00:11:22:33:44:55 ", "00::11:22:33:44:55", "-0:11:22:33:44:55"})
    {
        std::string result = "unchanged";
        EXPECT_FALSE(MacAddressText::TryNormalize(text, result)) << '"' << text << '"';
        EXPECT_EQ(result, "unchanged") << '"' << text << '"';
    }
}
