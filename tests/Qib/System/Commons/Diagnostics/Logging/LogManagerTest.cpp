// Tests of the process-wide level, the sink and the standard-error line format.
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"
#include "Support/LogCapture.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <regex>
#include <stdexcept>
#include <thread>
#include <string>
#include <vector>

using Qib::System::Commons::Diagnostics::Logging::Log;
using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using Qib::System::Commons::Diagnostics::Logging::LogLevel;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using Qib::System::Commons::Diagnostics::Logging::LogRecord;

namespace
{

LogRecord RecordAt(int level, int milliseconds)
{
    const auto time = std::chrono::system_clock::from_time_t(1700000000) + std::chrono::milliseconds(milliseconds);
    return LogRecord{"Sample.Logger", level, "the message", time, "the message", {}};
}

} // namespace

TEST(LogManagerTest, SetLevelAppliesToEveryLogger)
{
    VantrelTest::LogCapture capture(8);
    LoggerBase one("One");
    LoggerBase two("Two");
    LogManager::SetLevel(3);
    EXPECT_EQ(LogManager::GetLevel(), 3);
    one.Warning("w1");
    two.Error("e2");
    Log::rootLogAdapterPtr->Warning("root warning");
    Log::rootLogAdapterPtr->Error("root error");
    EXPECT_EQ(capture.Messages(), (std::vector<std::string>{"e2", "root error"}));
}

TEST(LogManagerTest, SinkReceivesEveryRecordUntilReset)
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

    LogManager::ResetSink();
    testing::internal::CaptureStderr();
    logger.Warning("to standard error {0}", 2);
    LogManager::Flush();
    const std::string errorOutput = testing::internal::GetCapturedStderr();
    EXPECT_EQ(collected.size(), 1U);
    EXPECT_NE(errorOutput.find("Sample.Logger: to standard error 2\n"), std::string::npos) << errorOutput;
    EXPECT_NE(errorOutput.find("WARN"), std::string::npos) << errorOutput;
}

TEST(LogManagerTest, EmptySinkDropsRecords)
{
    LogManager::SetSink(nullptr);
    LoggerBase logger("Sample.Logger");
    EXPECT_NO_THROW(logger.Error("nowhere"));
    LogManager::ResetSink();
}

TEST(LogManagerTest, FormatLineHasTimeLevelLoggerAndMessage)
{
    const std::string line = LogManager::FormatLine(RecordAt(6, 123));
    const std::regex shape(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.123 INFO  Sample\.Logger: the message)");
    EXPECT_TRUE(std::regex_match(line, shape)) << line;
}

TEST(LogManagerTest, FormatLinePadsMillisecondsAndNamesEachLevel)
{
    EXPECT_NE(LogManager::FormatLine(RecordAt(3, 7)).find(".007 ERROR Sample.Logger"), std::string::npos);
    EXPECT_NE(LogManager::FormatLine(RecordAt(5, 0)).find(".000 WARN  Sample.Logger"), std::string::npos);
    EXPECT_NE(LogManager::FormatLine(RecordAt(7, 999)).find(".999 DEBUG Sample.Logger"), std::string::npos);
    EXPECT_NE(LogManager::FormatLine(RecordAt(8, 50)).find(".050 TRACE Sample.Logger"), std::string::npos);
}

TEST(LogManagerTest, RootAdapterWritesLikeAnyLogger)
{
    VantrelTest::LogCapture capture(8);
    ASSERT_NE(Log::rootLogAdapterPtr, nullptr);
    Log::rootLogAdapterPtr->Debug("root {0}", 7);
    const auto records = capture.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].LoggerName, "Root");
    EXPECT_EQ(records[0].Level, 7);
    EXPECT_EQ(records[0].Message, "root 7");
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
    for (int i = 0; i < 10000 && !entered; ++i)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_TRUE(entered);
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
    const std::string report = fmt::format("{} log records dropped ({} of them errors): the log output did not keep "
                                           "up or failed",
                                           dropped, dropped / 4);
    const auto found = std::find(delivered.begin(), delivered.end(), report);
    ASSERT_NE(found, delivered.end());
    delivered.erase(found);
    std::vector<std::string> expected;
    for (std::size_t i = 0; i <= LogManager::MaxQueuedRecords; ++i)
    {
        expected.push_back(std::to_string(i));
    }
    EXPECT_EQ(delivered, expected);
    LogManager::ResetSink();
    LogManager::SetLevel(6);
}

TEST(LogManagerTest, FlushGivesUpAStuckSinkAndLeavesNoLoggingThread)
{
    int never[2];
    ASSERT_EQ(::pipe(never), 0);
    // Once a sanitizer's helper thread, started with the first thread, runs.
    std::thread([] {}).join();
    const std::size_t threadsBefore = VantrelTest::CountThreads();
    LogManager::SetSink([&](const LogRecord&) {
        char byte = 0;
        // Nobody writes to the pipe: the sink blocks in a system call until it is terminated.
        EXPECT_LE(::read(never[0], &byte, 1), 0);
    });
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
    EXPECT_EQ(messages, (std::vector<std::string>{"3 log records dropped (0 of them errors): the log output did not "
                                                  "keep up or failed",
                                                  "after"}));
    ::close(never[0]);
    ::close(never[1]);
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
    EXPECT_NE(errorOutput.find("Log output failed, records are dropped until it works again: disk full"),
              std::string::npos)
        << errorOutput;
    EXPECT_EQ(delivered, (std::vector<std::string>{"kept", "2 log records dropped (1 of them errors): the log output "
                                                           "did not keep up or failed"}));
    LogManager::ResetSink();
}
