// Tests of the process-wide sink and its writer thread: the standard-error line format, and sinks that
// block, stall or fail without holding up the writers or losing count of what they dropped.
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"
#include "Support/Concurrency.hpp"
#include "Support/IdlePipe.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using Qib::System::Commons::Diagnostics::Logging::LogRecord;

namespace
{

std::string DropReport(std::size_t dropped, std::size_t errors)
{
    return fmt::format("{} log records dropped ({} of them errors): the log output did not keep up or failed", dropped,
                       errors);
}

} // namespace

TEST(LogManagerTest, LineHasTimeWithPaddedMillisecondsLevelLoggerAndMessage)
{
    const std::pair<int, std::string> cases[] = {{3, ".007 ERROR"}, {5, ".007 WARN "}, {6, ".007 INFO "},
                                                 {7, ".007 DEBUG"}, {8, ".007 TRACE"}};
    for (const auto& [level, expected] : cases)
    {
        const auto time = std::chrono::system_clock::from_time_t(1700000000) + std::chrono::milliseconds(7);
        const std::string line = LogManager::FormatLine(LogRecord{"Sample.Logger", level, "the message", time, "", {}});
        const std::regex shape(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d)" + expected + " Sample\\.Logger: the message");
        EXPECT_TRUE(std::regex_match(line, shape)) << line;
    }
}

TEST(LogManagerTest, SinkReceivesEveryRecordUntilResetToStandardError)
{
    std::vector<LogRecord> collected;
    LogManager::SetSink([&](const LogRecord& record) { collected.push_back(record); });
    LoggerBase logger("Sample.Logger");
    const auto before = std::chrono::system_clock::now();
    logger.Warning("to the sink {0}", 1);
    const auto after = std::chrono::system_clock::now();
    LogManager::Flush();
    ASSERT_EQ(collected.size(), 1U);
    EXPECT_GE(collected[0].Time, before);
    EXPECT_LE(collected[0].Time, after);
    LogManager::SetSink(nullptr);
    logger.Error("nowhere");

    LogManager::ResetSink();
    testing::internal::CaptureStderr();
    logger.Warning("to standard error {0}", 2);
    LogManager::Flush();
    const std::string errorOutput = testing::internal::GetCapturedStderr();
    EXPECT_EQ(collected.size(), 1U);
    EXPECT_NE(errorOutput.find(" WARN  Sample.Logger: to standard error 2\n"), std::string::npos) << errorOutput;
}

TEST(LogManagerTest, ABlockedSinkNeverHoldsUpAWriterAndTheDropsAreCountedInOrder)
{
    std::mutex gate;
    std::atomic<bool> entered{false};
    std::vector<std::string> delivered;
    LogManager::SetLevel(8);
    std::unique_lock<std::mutex> closed(gate);
    LogManager::SetSink([&](const LogRecord& record) {
        entered = true;
        const std::lock_guard<std::mutex> wait(gate);
        delivered.push_back(record.Message);
    });
    LoggerBase logger("Sample.Logger");
    constexpr std::size_t Total = 2 * LogManager::MaxQueuedRecords;
    logger.Error("0");
    ASSERT_TRUE(VantrelTest::Eventually([&] { return entered.load(); }));
    for (std::size_t i = 1; i < Total; ++i)
    {
        // Every fourth one an error: their loss is reported apart.
        logger.Log(i % 4 == 0 ? LogLevel::Error : LogLevel::Info, "{0}", i);
    }
    closed.unlock();
    LogManager::Flush();
    const std::lock_guard<std::mutex> done(gate);
    // The first record was in the sink while the queue filled: those kept behind it arrive in order,
    // and one record counts the others (when depends on when a count was last reported).
    const std::size_t dropped = Total - LogManager::MaxQueuedRecords - 1;
    const auto found = std::find(delivered.begin(), delivered.end(), DropReport(dropped, dropped / 4));
    ASSERT_NE(found, delivered.end());
    delivered.erase(found);
    ASSERT_EQ(delivered.size(), LogManager::MaxQueuedRecords + 1);
    for (std::size_t i = 0; i < delivered.size(); ++i)
    {
        ASSERT_EQ(delivered[i], std::to_string(i));
    }
    LogManager::ResetSink();
    LogManager::SetLevel(6);
}

TEST(LogManagerTest, FlushGivesUpAStuckSinkAndLeavesNoLoggingThread)
{
    const VantrelTest::IdlePipe never;
    std::thread([] {}).join(); // a sanitizer's helper thread starts with the first thread
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    LogManager::SetSink([&](const LogRecord&) { EXPECT_LE(never.BlockInRead(), 0); });
    LoggerBase logger("Sample.Logger");
    for (int i = 0; i < 3; ++i)
    {
        logger.Warning("stuck {0}", i);
    }
    const auto start = std::chrono::steady_clock::now();
    LogManager::Flush();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5 * LogManager::StallLimit);
    EXPECT_EQ(VantrelTest::WaitForThreadCount(threadsBefore), threadsBefore);

    VantrelTest::LogCapture capture;
    logger.Warning("after");
    // The count comes before or after it, depending on when the last count was reported.
    std::vector<std::string> messages = capture.Messages();
    std::sort(messages.begin(), messages.end());
    EXPECT_EQ(messages, (std::vector<std::string>{DropReport(3, 0), "after"}));
}

TEST(LogManagerTest, AFailingSinkIsReportedOnceOnStandardErrorAndItsDropsCounted)
{
    int calls = 0;
    std::vector<std::string> delivered;
    LogManager::SetSink([&](const LogRecord& record) {
        if (++calls <= 2)
        {
            throw std::runtime_error("disk full");
        }
        delivered.push_back(record.Message);
    });
    LoggerBase logger("Sample.Logger");
    testing::internal::CaptureStderr();
    logger.Error("lost");
    logger.Warning("lost too");
    LogManager::Flush();
    const std::string errorOutput = testing::internal::GetCapturedStderr();
    logger.Warning("kept");
    LogManager::Flush();
    EXPECT_EQ(std::count(errorOutput.begin(), errorOutput.end(), '\n'), 1) << errorOutput;
    EXPECT_NE(errorOutput.find("Log output failed, records are dropped until it works again: disk full\n"),
              std::string::npos)
        << errorOutput;
    EXPECT_EQ(delivered, (std::vector<std::string>{"kept", DropReport(2, 1)}));
    LogManager::ResetSink();
}
