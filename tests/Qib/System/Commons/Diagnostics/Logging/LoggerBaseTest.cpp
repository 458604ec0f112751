// Tests of a logger: levels, lazy formatting and the reports of templates that fail to format.
#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"
#include "Support/LogCapture.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using VantrelTest::LogCapture;

namespace LoggingSamples
{

// Counts how often it is formatted.
struct Counted
{
    static inline std::atomic<int> formatted{0};
};

// Formatting throws a standard exception.
struct Failing
{
};

// Formatting throws something that is not a std::exception.
struct Strange
{
};

} // namespace LoggingSamples

template <>
struct fmt::formatter<LoggingSamples::Counted> : fmt::formatter<int>
{
    template <typename Context>
    auto format(const LoggingSamples::Counted&, Context& context) const
    {
        return fmt::formatter<int>::format(++LoggingSamples::Counted::formatted, context);
    }
};

template <>
struct fmt::formatter<LoggingSamples::Failing> : fmt::formatter<int>
{
    template <typename Context>
    auto format(const LoggingSamples::Failing&, [[maybe_unused]] Context& context) const -> decltype(context.out())
    {
        throw std::runtime_error("formatter broke");
    }
};

template <>
struct fmt::formatter<LoggingSamples::Strange> : fmt::formatter<int>
{
    template <typename Context>
    auto format(const LoggingSamples::Strange&, [[maybe_unused]] Context& context) const -> decltype(context.out())
    {
        throw 17;
    }
};

using LoggingSamples::Counted;

TEST(LoggerBaseTest, RecordsCarryNameLevelNumberMessageTemplateAndArguments)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    logger.Error("e {0}", 1);
    logger.Warning("w {1} {0}", "a", "b");
    logger.Info("i");
    logger.Debug("d {0:.1f}", 2.375, 'c');
    logger.Trace("t {0}", std::string("x"));
    logger.Info("value {0}", LoggingSamples::Failing{});
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 6U);
    struct Expected
    {
        int level;
        std::string message;
        std::string pattern;
        std::vector<std::string> arguments;
    };
    const std::string failed = "Exception occurs during format of log message: ";
    const std::vector<Expected> expected{{3, "e 1", "e {0}", {"1"}},
                                         {5, "w b a", "w {1} {0}", {"a", "b"}},
                                         {6, "i", "i", {}},
                                         {7, "d 2.4", "d {0:.1f}", {"2.375", "c"}},
                                         {8, "t x", "t {0}", {"x"}},
                                         {3, failed + "formatter broke", failed + "{0}", {"formatter broke"}}};
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        EXPECT_EQ(records[i].LoggerName, "Sample.Logger");
        EXPECT_EQ(records[i].Level, expected[i].level);
        EXPECT_EQ(records[i].Message, expected[i].message);
        EXPECT_EQ(records[i].Template, expected[i].pattern);
        EXPECT_EQ(records[i].Arguments, expected[i].arguments) << expected[i].message;
    }
}

TEST(LoggerBaseTest, LevelsAboveTheCurrentOneAreNotWritten)
{
    LogCapture capture(5);
    LoggerBase logger("Sample.Logger");
    logger.Trace("t");
    logger.Debug("d");
    logger.Info("i");
    logger.Warning("w");
    logger.Error("e");
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"w", "e"}));
    EXPECT_TRUE(LoggerBase::IsEnabled(LogLevel::Warning));
    EXPECT_FALSE(LoggerBase::IsEnabled(LogLevel::Info));
    EXPECT_TRUE(LoggerBase::IsEnabled(3));
    EXPECT_FALSE(LoggerBase::IsEnabled(6));
}

TEST(LoggerBaseTest, LevelZeroWritesNothing)
{
    LogCapture capture(0);
    LoggerBase logger("Sample.Logger");
    logger.Error("e");
    logger.Log(LogLevel::Off, "off");
    EXPECT_TRUE(capture.Records().empty());
    EXPECT_FALSE(LoggerBase::IsEnabled(LogLevel::Error));
    EXPECT_FALSE(LoggerBase::IsEnabled(LogLevel::Off));
}

TEST(LoggerBaseTest, DefaultLevelIsInfo)
{
    EXPECT_EQ(LogManager::GetLevel(), 6);
    EXPECT_EQ(static_cast<int>(LogLevel::Error), 3);
    EXPECT_EQ(static_cast<int>(LogLevel::Warning), 5);
    EXPECT_EQ(static_cast<int>(LogLevel::Info), 6);
    EXPECT_EQ(static_cast<int>(LogLevel::Debug), 7);
    EXPECT_EQ(static_cast<int>(LogLevel::Trace), 8);
}

TEST(LoggerBaseTest, MessagesBelowTheLevelAreNeverFormatted)
{
    LogCapture capture(6);
    LoggerBase logger("Sample.Logger");
    const int before = Counted::formatted;
    logger.Debug("{0}", Counted{});
    logger.Trace("{0}", Counted{});
    EXPECT_EQ(Counted::formatted, before);
    logger.Info("{0}", Counted{});
    EXPECT_GT(Counted::formatted, before); // the message, and the argument as text
    EXPECT_EQ(capture.Records().size(), 1U);
}

TEST(LoggerBaseTest, ThrowingFormatterBelowTheLevelIsNotReached)
{
    LogCapture capture(5);
    LoggerBase logger("Sample.Logger");
    logger.Info("{0}", LoggingSamples::Failing{});
    logger.Debug("{0}", LoggingSamples::Strange{});
    EXPECT_TRUE(capture.Records().empty());
}

TEST(LoggerBaseTest, FormatterExceptionIsReportedWithItsText)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    logger.Debug("value {0}", LoggingSamples::Failing{});
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].Level, 3);
    EXPECT_EQ(records[0].LoggerName, "Sample.Logger");
    EXPECT_EQ(records[0].Message, "Exception occurs during format of log message: formatter broke");
}

TEST(LoggerBaseTest, NonStandardFormatterExceptionIsReportedAsUnknown)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    logger.Trace("value {0}", LoggingSamples::Strange{});
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].Level, 3);
    EXPECT_EQ(records[0].Message, "Exception occurs during format of log message: Unknown exception");
}

TEST(LoggerBaseTest, BadTemplateIsReportedInsteadOfWritten)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    logger.Info("needs {1}", 1);
    logger.Info("unclosed {0", 1);
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 2U);
    for (const auto& record : records)
    {
        EXPECT_EQ(record.Level, 3);
        const std::string prefix = "Exception occurs during format of log message: ";
        EXPECT_EQ(record.Message.compare(0, prefix.size(), prefix), 0) << record.Message;
        EXPECT_GT(record.Message.size(), prefix.size()) << "the reason is missing";
    }
}

TEST(LoggerBaseTest, BracesInArgumentsAreNotTemplates)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    logger.Info("file {0}", std::string("a{0}b{"));
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"file a{0}b{"}));
}

TEST(LoggerBaseTest, OnlyTheFirstNameCounts)
{
    LoggerBase logger;
    EXPECT_EQ(logger.GetName(), "");
    logger.Initialize("First");
    logger.Initialize("Second");
    EXPECT_EQ(logger.GetName(), "First");
}

TEST(LoggerBaseTest, ConcurrentNamingAndLoggingAreSafe)
{
    LogCapture capture(8);
    LoggerBase logger;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back([&logger, t] {
            logger.Initialize("Name" + std::to_string(t));
            for (int i = 0; i < 100; ++i)
            {
                logger.Debug("{0}:{1}", t, i);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    const auto records = capture.Records();
    EXPECT_EQ(records.size(), 400U);
    const std::string name = logger.GetName();
    EXPECT_EQ(name.rfind("Name", 0), 0U);
}
