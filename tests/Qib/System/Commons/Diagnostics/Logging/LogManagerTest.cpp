// Tests of the process-wide level, the sink and the standard-error line format.
#include "Qib/System/Commons/Diagnostics/Logging/LogManager.hpp"

#include "Qib/System/Commons/Diagnostics/Logging/Log.hpp"
#include "Qib/System/Commons/Diagnostics/Logging/LoggerBase.hpp"
#include "Qib/System/Commons/Threading/Thread.hpp"
#include "Support/LogCapture.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <regex>
#include <string>
#include <vector>

using Qib::System::Commons::Diagnostics::Logging::Log;
using Qib::System::Commons::Diagnostics::Logging::LoggerBase;
using Qib::System::Commons::Diagnostics::Logging::LogManager;
using Qib::System::Commons::Diagnostics::Logging::LogRecord;
using Qib::System::Commons::Threading::Thread;
using Qib::System::Commons::Threading::ThreadSettings;

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
    ASSERT_EQ(collected.size(), 1U);
    EXPECT_GE(collected[0].Time, before);
    EXPECT_LE(collected[0].Time, after);

    LogManager::ResetSink();
    testing::internal::CaptureStderr();
    logger.Warning("to standard error {0}", 2);
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

TEST(LogManagerTest, ThreadEndedWhileInTheSinkLeavesTheRecordWholeAndTheSinkFree)
{
    // A thread terminated while the sink writes must finish the record and release the sink.
    std::atomic<int> entered{0};
    std::atomic<int> left{0};
    LogManager::SetLevel(8);
    LogManager::SetSink([&](const LogRecord&) {
        ++entered;
        Thread::Sleep(100);
        ++left;
    });
    LoggerBase logger("Sample.Logger");
    Thread thread(ThreadSettings("Writer"), [&](void*) {
        // Writing a record is not a cancellation point; the sleep between records is.
        for (int i = 0; i < 1000; ++i)
        {
            logger.Info("busy");
            Thread::Sleep(1);
        }
    }, nullptr);
    thread.Start();
    for (int i = 0; i < 5000 && entered == 0; ++i)
    {
        Thread::Sleep(1);
    }
    ASSERT_GT(entered.load(), 0);
    thread.Terminate();
    EXPECT_EQ(entered.load(), left.load());
    logger.Info("after"); // would hang if the sink's lock were left held
    EXPECT_EQ(entered.load(), left.load());
    LogManager::ResetSink();
    LogManager::SetLevel(6);
}
