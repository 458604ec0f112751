// Tests of the mixin that gives a class its static class logger, named after the class.
#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include "Support/LogCapture.hpp"

#include <gtest/gtest.h>

namespace LoggableSamples::Deep
{

template <typename T>
class Widget : private Qib::System::Commons::Diagnostics::Logging::Loggable<Widget<T>>
{
public:
    void Report(int value) const { Widget::log.Info("Widget value {0}", value); }
    static std::string LoggerName() { return Widget::log.GetName(); }
};

class Gadget
{
};

} // namespace LoggableSamples::Deep

using LoggableSamples::Deep::Gadget;
using LoggableSamples::Deep::Widget;

TEST(LoggableTest, EachClassLogsUnderItsDottedTypeNameFromItsFirstObjectOn)
{
    EXPECT_EQ(Widget<Gadget>::LoggerName(), ""); // no object yet
    VantrelTest::LogCapture capture(6);
    const Widget<Gadget> widget;
    widget.Report(5);
    EXPECT_EQ(Widget<int>::LoggerName(), "");
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].LoggerName, "LoggableSamples.Deep.Widget<LoggableSamples.Deep.Gadget>");
    EXPECT_EQ(records[0].Message, "Widget value 5");
}
