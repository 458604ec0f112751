// Tests of the transfer tracker: which TFTP server records start and end a transfer.
#include "TransferTracker.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

using Qib::System::Commons::Diagnostics::Logging::LogRecord;
using VantrelNetd::TransferTracker;

namespace
{

const std::string TftpLogger = "VantrelBase.Net.Tftp.TftpServer";

LogRecord Record(const std::string& pattern, std::vector<std::string> arguments, const std::string& logger = TftpLogger)
{
    return LogRecord{logger, 6, "", std::chrono::system_clock::now(), pattern, std::move(arguments)};
}

} // namespace

TEST(TransferTrackerTest, RequestsStartTransfersThatTheirEndingRecordsEnd)
{
    const std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("transfer-tracker-" + std::to_string(::getpid()));
    std::filesystem::create_directories(home);
    const std::string file = (home / "image.bin").string();
    std::ofstream(file) << "boot image";
    const std::string missing = (home / "absent.bin").string();
    const std::string upload = (home / "up.bin").string();

    const LogRecord read =
        Record("Client {0}:{1} read request `{2}` -> `{3}`", {"10.0.0.1", "1000", "image.bin", file});
    const LogRecord write = Record("Client {0}:{1} read request `{2}` -> ``", {"10.0.0.1", "1000", "up.bin", upload});
    struct Case
    {
        std::vector<LogRecord> records;
        bool running;
    };
    const Case cases[] = {
        {{read}, true},
        {{read, Record("Sent last packet of {0} to {1}:{2}", {file, "10.0.0.1", "1000"})}, false},
        {{Record("Client {0}:{1} read request `{2}` -> `{3}`", {"10.0.0.1", "1000", "absent.bin", missing})}, false},
        {{read, Record("Session {0}:{1} timed out\n", {"10.0.0.1", "1000"})}, false},
        {{read, Record("Create session: address={0}:{1}", {"10.0.0.1", "1000"})}, false},
        {{read, Record("Session {0}:{1} timed out\n", {"10.0.0.1", "1001"})}, true},
        {{write}, true},
        {{write, Record("Failed to open file for writing: {0}", {upload + ".part"})}, false},
        {{write, Record("Client {0}:{1} attempt to write {2}. Write is disabled.", {"10.0.0.1", "1000", upload})},
         false},
        {{write, Record("Received last packet of {0} from {1}:{2}", {upload, "10.0.0.1", "1000"})}, false},
        {{Record(read.Template, read.Arguments, "Another.Logger")}, false},
    };
    for (std::size_t index = 0; index < std::size(cases); ++index)
    {
        TransferTracker tracker;
        for (const LogRecord& record : cases[index].records)
        {
            tracker.Observe(record);
        }
        tracker.Settle();
        const auto running = tracker.InProgress();
        ASSERT_EQ(running.size(), cases[index].running ? 1U : 0U) << "case " << index;
        if (!running.empty())
        {
            EXPECT_EQ(running[0].Client, "10.0.0.1:1000");
            EXPECT_EQ(running[0].LocalPath, running[0].Upload ? upload : file);
        }
    }
    std::filesystem::remove_all(home);
}
