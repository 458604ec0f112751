// Tests of a logger: the records it writes, the process-wide level, lazy formatting, the reports of
// templates that fail to format, and its name.
#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"
#include "Support/LogCapture.hpp"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

using Qib::System::Commons::Diagnostics::Logging::Log;
using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using VantrelTest::LogCapture;

namespace LoggingSamples
{

// Formatting throws a standard exception, or something else when not `standard`.
struct Failing
{
    bool standard = true;
};

} // namespace LoggingSamples

template <>
struct fmt::formatter<LoggingSamples::Failing> : fmt::formatter<int>
{
    template <typename Context>
    auto format(const LoggingSamples::Failing& failing, [[maybe_unused]] Context& context) const
        -> decltype(context.out())
    {
        if (failing.standard)
        {
            throw std::runtime_error("formatter broke");
        }
        throw 17;
    }
};

TEST(LoggerBaseTest, RecordsCarryNameLevelMessageTemplateAndArgumentsAndBadTemplatesAreReportedAsErrors)
{
    LogCapture capture(8);
    LoggerBase logger("Sample.Logger");
    logger.Error("e {0}", 1);
    logger.Warning("w {1} {0}", "a", "b");
    logger.Info("file {0}", std::string("a{0}b{"));
    logger.Debug("d {0:.1f}", 2.375, 'c');
    logger.Trace("t {0}", std::string("x"));
    logger.Debug("value {0}", LoggingSamples::Failing{});
    logger.Trace("value {0}", LoggingSamples::Failing{false});
    logger.Info("needs {1}", 1);
    const std::string failed = "Exception occurs during format of log message: ";
    using Fields = std::tuple<std::string, int, std::string, std::string, std::vector<std::string>>;
    const std::vector<Fields> expected{
        {"Sample.Logger", 3, "e 1", "e {0}", {"1"}},
        {"Sample.Logger", 5, "w b a", "w {1} {0}", {"a", "b"}},
        {"Sample.Logger", 6, "file a{0}b{", "file {0}", {"a{0}b{"}},
        {"Sample.Logger", 7, "d 2.4", "d {0:.1f}", {"2.375", "c"}},
        {"Sample.Logger", 8, "t x", "t {0}", {"x"}},
        {"Sample.Logger", 3, failed + "formatter broke", failed + "{0}", {"formatter broke"}},
        {"Sample.Logger", 3, failed + "Unknown exception", failed + "Unknown exception", {}}};
    std::vector<Fields> fields;
    for (const auto& record : capture.Records())
    {
        fields.emplace_back(record.LoggerName, record.Level, record.Message, record.Template, record.Arguments);
    }
    ASSERT_EQ(fields.size(), expected.size() + 1);
    // fmt's own reason for a missing argument is its wording, not ours.
    EXPECT_EQ(std::get<2>(fields.back()).rfind(failed, 0), 0U);
    EXPECT_GT(std::get<2>(fields.back()).size(), failed.size()) << "the reason is missing";
    EXPECT_EQ(std::get<1>(fields.back()), 3);
    fields.pop_back();
    EXPECT_EQ(fields, expected);
}

// Messages above the level are never formatted: formatting these would report an error.
TEST(LoggerBaseTest, EveryLoggerWritesOnlyLevelsUpToTheProcessLevel)
{
    const std::pair<int, std::vector<std::string>> cases[] = {
        {0, {}}, {5, {"e", "w"}}, {6, {"e", "w", "i"}}, {8, {"e", "w", "i", "d", "t", "root"}}};
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
        if (level < 8)
        {
            logger.Trace("{0}", LoggingSamples::Failing{});
        }
        Log::rootLogAdapterPtr->Trace("root");
        EXPECT_EQ(capture.Messages(), written) << "level " << level;
        EXPECT_EQ(LoggerBase::IsEnabled(6), level >= 6);
        EXPECT_EQ(LoggerBase::IsEnabled(LogLevel::Off), level != 0);
    }
}

TEST(LoggerBaseTest, OnlyTheFirstNameCounts)
{
    LoggerBase logger;
    logger.Initialize("First");
    logger.Initialize("Later");
    EXPECT_EQ(logger.GetName(), "First");
}
