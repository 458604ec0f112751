// Tests of the journal's log lines: syslog priorities and one prefix per line.
#include "JournalFormat.hpp"

#include <gtest/gtest.h>

using Qib::System::Commons::Diagnostics::Logging::LogRecord;
using VantrelNetd::JournalFormat;

TEST(JournalFormatTest, EveryLineOfAMessageCarriesTheSyslogPriorityOfItsLevel)
{
    // Host levels: 3 error, 5 warning, 6 info, 7 debug, 8 trace.
    const std::pair<int, std::string> cases[] = {{3, "<3>"}, {5, "<4>"}, {6, "<6>"}, {7, "<7>"}, {8, "<7>"}};
    for (const auto& [level, priority] : cases)
    {
        EXPECT_EQ(JournalFormat::Line(LogRecord{"L", level, "one\ntwo", {}, {}, {}}),
                  priority + "L: one\n" + priority + "two\n");
    }
    EXPECT_EQ(JournalFormat::Line(LogRecord{"L", 5, "first\nsecond\n", {}, {}, {}}), "<4>L: first\n<4>second\n\n");
}
