// Tests of the mixin that gives a class its static class logger.
#include "Qib/System/Commons/Diagnostics/Logging/Loggable.hpp"

#include "Support/LogCapture.hpp"

#include <gtest/gtest.h>

namespace LoggableSamples::Deep
{

class Widget : private Qib::System::Commons::Diagnostics::Logging::Loggable<Widget>
{
public:
    void Report(int value) const { log.Info("Widget value {0}", value); }
    static std::string LoggerName() { return log.GetName(); }
};

template <typename T>
class Holder : private Qib::System::Commons::Diagnostics::Logging::Loggable<Holder<T>>
{
public:
    static std::string LoggerName() { return Holder::log.GetName(); }
};

class Gadget : private Qib::System::Commons::Diagnostics::Logging::Loggable<Gadget>
{
public:
    static std::string LoggerName() { return log.GetName(); }
};

} // namespace LoggableSamples::Deep

using LoggableSamples::Deep::Gadget;
using LoggableSamples::Deep::Holder;
using LoggableSamples::Deep::Widget;

TEST(LoggableTest, LoggerIsNamedWithDottedTypeNameOnFirstConstruction)
{
    EXPECT_EQ(Gadget::LoggerName(), ""); // no object yet
    const Gadget gadget;
    EXPECT_EQ(Gadget::LoggerName(), "LoggableSamples.Deep.Gadget");
}

TEST(LoggableTest, RecordsCarryTheClassName)
{
    VantrelTest::LogCapture capture(6);
    const Widget widget;
    widget.Report(5);
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].LoggerName, "LoggableSamples.Deep.Widget");
    EXPECT_EQ(records[0].Message, "Widget value 5");
    EXPECT_EQ(records[0].Level, 6);
}

TEST(LoggableTest, EachClassHasItsOwnLogger)
{
    const Widget widget;
    const Holder<Widget> holder;
    EXPECT_EQ(Widget::LoggerName(), "LoggableSamples.Deep.Widget");
    EXPECT_EQ(Holder<Widget>::LoggerName(), "LoggableSamples.Deep.Holder<LoggableSamples.Deep.Widget>");
    EXPECT_EQ(Holder<int>::LoggerName(), "");
}

TEST(LoggableTest, CopiesNameTheLoggerToo)
{
    const Widget original;
    const Widget copy(original);
    EXPECT_EQ(Widget::LoggerName(), "LoggableSamples.Deep.Widget");
}
