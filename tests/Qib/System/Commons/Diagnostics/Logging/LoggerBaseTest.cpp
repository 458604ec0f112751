// Tests of a logger: the records it writes, the process-wide level, lazy formatting, the reports of
// templates that fail to format, and its name.
#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"
#include "Support/Concurrency.hpp"
#include "Support/LogCapture.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using Qib::System::Commons::Diagnostics::Logging::Log;
using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using VantrelTest::LogCapture;

namespace LoggingSamples
{

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

TEST(LoggerBaseTest, RecordsCarryNameLevelNumberMessageTemplateAndArguments)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    logger.Error("e {0}", 1);
    logger.Warning("w {1} {0}", "a", "b");
    logger.Info("file {0}", std::string("a{0}b{"));
    logger.Debug("d {0:.1f}", 2.375, 'c');
    logger.Trace("t {0}", std::string("x"));
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 5U);
    struct Expected
    {
        int level;
        std::string message;
        std::string pattern;
        std::vector<std::string> arguments;
    };
    const std::vector<Expected> expected{{3, "e 1", "e {0}", {"1"}},
                                         {5, "w b a", "w {1} {0}", {"a", "b"}},
                                         {6, "file a{0}b{", "file {0}", {"a{0}b{"}},
                                         {7, "d 2.4", "d {0:.1f}", {"2.375", "c"}},
                                         {8, "t x", "t {0}", {"x"}}};
    for (std::size_t i = 0; i < expected.size(); ++i)
    {
        EXPECT_EQ(records[i].LoggerName, "Sample.Logger");
        EXPECT_EQ(records[i].Level, expected[i].level);
        EXPECT_EQ(records[i].Message, expected[i].message);
        EXPECT_EQ(records[i].Template, expected[i].pattern);
        EXPECT_EQ(records[i].Arguments, expected[i].arguments) << expected[i].message;
    }
}

TEST(LoggerBaseTest, EveryLoggerWritesOnlyLevelsUpToTheProcessLevel)
{
    const std::pair<int, std::vector<std::string>> cases[] = {
        {0, {}}, {3, {"e"}}, {5, {"e", "w"}}, {6, {"e", "w", "i"}}, {8, {"e", "w", "i", "d", "t", "root"}}};
    for (const auto& [level, written] : cases)
    {
        LogCapture capture(level);
        EXPECT_EQ(LogManager::GetLevel(), level);
        LoggerBase logger("Sample.Logger");
        logger.Error("e");
        logger.Warning("w");
        LoggerBase("Other").Info("i");
        logger.Debug("d");
        logger.Trace("t");
        Log::rootLogAdapterPtr->Trace("root");
        EXPECT_EQ(capture.Messages(), written) << "level " << level;
        EXPECT_EQ(LoggerBase::IsEnabled(LogLevel::Warning), level >= 5);
        EXPECT_EQ(LoggerBase::IsEnabled(6), level >= 6);
        EXPECT_EQ(LoggerBase::IsEnabled(LogLevel::Off), level != 0);
    }
}

// Formatting them would report an error.
TEST(LoggerBaseTest, MessagesAboveTheLevelAreNeverFormatted)
{
    LogCapture capture(6);
    LoggerBase logger("Sample.Logger");
    logger.Debug("{0}", LoggingSamples::Strange{});
    logger.Trace("{0}", LoggingSamples::Failing{});
    EXPECT_TRUE(capture.Records().empty());
}

TEST(LoggerBaseTest, TemplateThatFailsToFormatIsReportedAsAnErrorWithTheReason)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    const std::string failed = "Exception occurs during format of log message: ";
    logger.Debug("value {0}", LoggingSamples::Failing{});
    logger.Trace("value {0}", LoggingSamples::Strange{});
    logger.Info("needs {1}", 1);
    logger.Info("unclosed {0", 1);
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 4U);
    EXPECT_EQ(records[0].Message, failed + "formatter broke");
    EXPECT_EQ(records[0].Template, failed + "{0}");
    EXPECT_EQ(records[0].Arguments, std::vector<std::string>{"formatter broke"});
    EXPECT_EQ(records[1].Message, failed + "Unknown exception");
    for (const auto& record : records)
    {
        EXPECT_EQ(record.Level, 3);
        EXPECT_EQ(record.LoggerName, "Sample.Logger");
        EXPECT_EQ(record.Message.rfind(failed, 0), 0U) << record.Message;
        EXPECT_GT(record.Message.size(), failed.size()) << "the reason is missing";
    }
}

TEST(LoggerBaseTest, OnlyTheFirstNameCountsAlsoWhenThreadsNameAndLogAtOnce)
{
    LogCapture capture(8);
    LoggerBase logger;
    EXPECT_EQ(logger.GetName(), "");
    VantrelTest::RunConcurrently(4, [&logger](int t) {
        logger.Initialize("Name" + std::to_string(t));
        for (int i = 0; i < 100; ++i)
        {
            logger.Debug("{0}:{1}", t, i);
        }
    });
    EXPECT_EQ(capture.Records().size(), 400U);
    const std::string first = logger.GetName();
    EXPECT_EQ(first.rfind("Name", 0), 0U);
    logger.Initialize("Later");
    EXPECT_EQ(logger.GetName(), first);
}
