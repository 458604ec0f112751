// Tests of the transfer tracker: which TFTP server records start and end a transfer.
#include "TransferTracker.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
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

TEST(TransferTrackerTest, EachEndingGivesOneJournalEntryWithItsOutcome)
{
    const std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("transfer-journal-" + std::to_string(::getpid()));
    std::filesystem::create_directories(home / "folder");
    const std::string file = (home / "image.bin").string();
    const std::string upload = (home / "up.bin").string();
    const std::string client[] = {"10.0.0.1", "1000"};
    const auto read = [&](const std::string& name) {
        return Record("Client {0}:{1} read request `{2}` -> `{3}`",
                      {client[0], client[1], name, (home / name).string()});
    };
    const LogRecord write = Record("Client {0}:{1} read request `{2}` -> ``", {client[0], client[1], "up.bin", upload});
    const LogRecord sent = Record("Sent last packet of {0} to {1}:{2}", {file, client[0], client[1]});
    const LogRecord received = Record("Received last packet of {0} from {1}:{2}", {upload, client[0], client[1]});
    const LogRecord timedOut = Record("Session {0}:{1} timed out\n", {client[0], client[1]});
    const LogRecord otherWrite = Record(write.Template, {"10.0.0.2", "2000", "up.bin", upload});
    struct Case
    {
        std::vector<LogRecord> records;
        bool readEnabled;
        // Bytes in the upload's ".part" (or final file, when negative) before the records come.
        long uploaded;
        const char* direction;
        const char* outcome;
        long bytes; // -1: unknown
        bool damaged;
    };
    const Case cases[] = {
        {{read("image.bin"), sent}, true, 0, "download", "complete", 1500, false},
        // The final acknowledgement opens a session that is no transfer.
        {{read("image.bin"), sent, Record("Create session: address={0}:{1}", {client[0], client[1]})}, true, 0,
         "download", "complete", 1500, false},
        {{read("absent.bin")}, true, 0, "download", "not-found", -1, false},
        {{read("folder")}, true, 0, "download", "access-violation", -1, false},
        {{read("image.bin")}, false, 0, "download", "disabled", -1, false},
        {{read("image.bin"), timedOut}, true, 0, "download", "timed-out", -1, false},
        {{write, received}, true, -1200, "upload", "complete", 1200, false},
        {{write, Record("Client {0}:{1} attempt to write {2}. Write is disabled.", {client[0], client[1], upload})},
         true, 0, "upload", "disabled", -1, false},
        {{write, Record("Client {0}:{1} attempt to write {2}. Overwrite is disabled.", {client[0], client[1], upload})},
         true, 0, "upload", "exists", -1, false},
        {{write, timedOut}, true, 1024 + 510, "upload", "part-kept", 1024 + 510, false},
        {{write, timedOut}, true, 700, "upload", "timed-out", 700, false},
        {{otherWrite, write, received}, true, -1200, "upload", "complete", 1200, true},
    };
    for (std::size_t index = 0; index < std::size(cases); ++index)
    {
        const Case& item = cases[index];
        std::ofstream(file) << std::string(1500, 'x');
        std::filesystem::remove(upload);
        std::filesystem::remove(upload + ".part");
        if (item.uploaded != 0)
        {
            const auto size = static_cast<std::size_t>(std::labs(item.uploaded));
            std::ofstream(item.uploaded > 0 ? upload + ".part" : upload) << std::string(size, 'u');
        }
        TransferTracker tracker;
        tracker.SetReadEnabled(item.readEnabled);
        for (const LogRecord& record : item.records)
        {
            tracker.Observe(record);
        }
        tracker.Settle();
        const nlohmann::json recent = tracker.GetJournal().Recent();
        ASSERT_EQ(recent.size(), 1U) << "case " << index << ": " << recent.dump();
        const nlohmann::json& entry = recent[0];
        EXPECT_EQ(entry.at("direction"), item.direction) << "case " << index;
        EXPECT_EQ(entry.at("outcome"), item.outcome) << "case " << index;
        EXPECT_EQ(entry.at("client"), "10.0.0.1:1000") << "case " << index;
        EXPECT_EQ(entry.at("bytes"), item.bytes < 0 ? nlohmann::json(nullptr) : nlohmann::json(item.bytes))
            << "case " << index;
        EXPECT_EQ(entry.at("damaged"), item.damaged) << "case " << index;
    }
    std::filesystem::remove_all(home);
}

TEST(TransferTrackerTest, ADownloadOfAFileReplacedMeanwhileIsDamaged)
{
    const std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("transfer-damage-" + std::to_string(::getpid()));
    std::filesystem::create_directories(home);
    const std::string file = (home / "image.bin").string();
    std::ofstream(file) << "first";
    TransferTracker tracker;
    tracker.Observe(Record("Client {0}:{1} read request `{2}` -> `{3}`", {"10.0.0.1", "1000", "image.bin", file}));
    tracker.Settle();
    std::ofstream(file) << "second, longer";
    tracker.Observe(Record("Sent last packet of {0} to {1}:{2}", {file, "10.0.0.1", "1000"}));
    tracker.Settle();
    const nlohmann::json recent = tracker.GetJournal().Recent();
    ASSERT_EQ(recent.size(), 1U);
    EXPECT_EQ(recent[0].at("damaged"), true);
    EXPECT_NE(recent[0].at("text").get<std::string>().find("complete, damaged"), std::string::npos) << recent.dump();
    std::filesystem::remove_all(home);
}

TEST(TransferTrackerTest, TheRequestDatagramGivesTheModeAndAcknowledgementsTheBytesOfAnUnfinishedDownload)
{
    const std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("transfer-mode-" + std::to_string(::getpid()));
    std::filesystem::create_directories(home);
    const std::string file = (home / "image.bin").string();
    std::ofstream(file) << std::string(5000, 'x');
    const Qib::System::Commons::Net::IpAddress client(htonl(0x0A000001));
    const char request[] = "\0\1image.bin\0NetASCII";
    const unsigned char acknowledgement[] = {0, 4, 0, 3};
    TransferTracker tracker;
    tracker.Received(request, sizeof(request), client, 1000);
    tracker.Observe(Record("Client {0}:{1} read request `{2}` -> `{3}`", {"10.0.0.1", "1000", "image.bin", file}));
    tracker.Received(acknowledgement, sizeof(acknowledgement), client, 1000);
    tracker.Observe(Record("Session {0}:{1} timed out\n", {"10.0.0.1", "1000"}));
    tracker.Settle();
    const nlohmann::json recent = tracker.GetJournal().Recent();
    ASSERT_EQ(recent.size(), 1U);
    EXPECT_EQ(recent[0].at("mode"), "netascii");
    EXPECT_EQ(recent[0].at("outcome"), "timed-out");
    EXPECT_EQ(recent[0].at("bytes"), 3 * 512);
    EXPECT_NE(recent[0].at("text").get<std::string>().find("netascii requested and served unconverted"),
              std::string::npos)
        << recent.dump();
    std::filesystem::remove_all(home);
}
