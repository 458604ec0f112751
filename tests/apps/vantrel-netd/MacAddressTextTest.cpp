// Tests of the daemon's check of hardware-address text.
#include "MacAddressText.hpp"

#include <gtest/gtest.h>

#include <string>

using VantrelNetd::MacAddressText;

TEST(MacAddressTextTest, AcceptsTheThreeLabelFormsInAnyCaseAndRejectsWhatTheLibraryWouldTurnIntoZeros)
{
    for (const char* text : {"00:1A:2B:3C:4D:5E", "00:1a:2b:3c:4d:5e", "00-1A-2b-3C-4d-5E", "001a2B3c4D5e"})
    {
        std::string result;
        EXPECT_TRUE(MacAddressText::TryNormalize(text, result)) << text;
        EXPECT_EQ(result, "00:1A:2B:3C:4D:5E") << text;
    }
    for (const char* text : {"", "hello", "00:11:22", "1:2:3:4:5:6", "00:11:22:33:44:55:66", "00:11-22:33:44:55",
                             "00.11.22.33.44.55", "0011.2233.4455", "00:11:22:33:44:5G", "001A2B3C4D5", "001A2B3C4D5E6",
                             " 00:11:22:33:44:55", "00:11:22:33:44:55 ", "00::11:22:33:44:55", "-0:11:22:33:44:55"})
    {
        std::string result = "unchanged";
        EXPECT_FALSE(MacAddressText::TryNormalize(text, result)) << '"' << text << '"';
        EXPECT_EQ(result, "unchanged") << '"' << text << '"';
    }
}
