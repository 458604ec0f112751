// Tests of the transfer tracker: which TFTP server records start and end a transfer, and what its
// journal entry says.
#include "TransferTracker.hpp"

#include "Support/Files.hpp"
#include "Support/TempDirectory.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <filesystem>

using Qib::System::Commons::Diagnostics::Logging::LogRecord;
using VantrelNetd::TransferTracker;

namespace
{

LogRecord Record(const std::string& pattern, std::vector<std::string> arguments)
{
    return LogRecord{"VantrelBase.Net.Tftp.TftpServer", 6, "", std::chrono::system_clock::now(), pattern, std::move(arguments)};
}

// A home with image.bin (1500 bytes), an empty folder and the tracker's records for client 10.0.0.1:1000.
class TransferTrackerTest : public testing::Test
{
protected:
    TransferTrackerTest()
    {
        std::filesystem::create_directories(home / "folder");
        VantrelTest::WriteFile(home / "image.bin", std::string(1500, 'x'));
    }

    LogRecord Read(const std::string& name) const
    {
        return Record("Client {0}:{1} read request `{2}` -> `{3}`", {"10.0.0.1", "1000", name, home / name});
    }
    static LogRecord Ending(const std::string& pattern, const std::string& path)
    {
        return Record(pattern, {path, "10.0.0.1", "1000"});
    }

    // Observes `records` and settles: the one journal entry, or null while the transfer runs.
    static nlohmann::json Outcome(TransferTracker& tracker, const std::vector<LogRecord>& records)
    {
        for (const LogRecord& record : records)
        {
            tracker.Observe(record);
        }
        tracker.Settle();
        const nlohmann::json recent = tracker.GetJournal().Recent();
        EXPECT_LE(recent.size(), 1U) << recent.dump();
        return recent.empty() ? nlohmann::json() : recent[0];
    }

    VantrelTest::TempDirectory home;
};

} // namespace

TEST_F(TransferTrackerTest, EachEndingGivesOneJournalEntryWithItsOutcome)
{
    const std::string file = home / "image.bin";
    const std::string upload = home / "up.bin";
    const LogRecord write = Record("Client {0}:{1} read request `{2}` -> ``", {"10.0.0.1", "1000", "up.bin", upload});
    const LogRecord sent = Ending("Sent last packet of {0} to {1}:{2}", file);
    const LogRecord received = Ending("Received last packet of {0} from {1}:{2}", upload);
    const LogRecord timedOut = Record("Session {0}:{1} timed out\n", {"10.0.0.1", "1000"});
    const auto refused = [](const std::string& path, const std::string& what) {
        return Record("Client {0}:{1} attempt to write {2}. " + what + " is disabled.", {"10.0.0.1", "1000", path});
    };
    struct Case
    {
        std::vector<LogRecord> records;
        // Bytes in the upload's ".part" (or final file, when negative) before the records come.
        long uploaded;
        const char* outcome; // "": still running
        long bytes;          // -1: unknown
        bool damaged = false;
        bool readEnabled = true;
    };
    // Complete transfers, absent files and refused overwrites are shown by the daemon's runs with a real client.
    const Case cases[] = {
        // The final acknowledgement opens a session that is no transfer.
        {{Read("image.bin"), sent, Record("Create session: address={0}:{1}", {"10.0.0.1", "1000"})}, 0, "complete",
         1500},
        {{Read("folder")}, 0, "access-violation", -1},
        {{Read("image.bin")}, 0, "disabled", -1, false, false},
        {{Read("image.bin"), timedOut}, 0, "timed-out", -1},
        {{Read("image.bin"), Record("Session {0}:{1} timed out\n", {"10.0.0.1", "1001"})}, 0, "", -1},
        {{write}, 0, "", -1},
        {{write, Record("Failed to open file for writing: {0}", {upload + ".part"})}, 0, "access-violation", -1},
        {{write, refused(upload, "Write")}, 0, "disabled", -1},
        {{write, timedOut}, 1024 + 510, "part-kept", 1024 + 510},
        {{write, timedOut}, 700, "timed-out", 700},
        {{Record(write.Template, {"10.0.0.2", "2000", "up.bin", upload}), write, received}, -1200, "complete", 1200,
         true},
    };
    for (std::size_t index = 0; index < std::size(cases); ++index)
    {
        const Case& item = cases[index];
        std::filesystem::remove(upload);
        std::filesystem::remove(upload + ".part");
        if (item.uploaded != 0)
        {
            VantrelTest::WriteFile(item.uploaded > 0 ? upload + ".part" : upload,
                                   std::string(static_cast<std::size_t>(std::labs(item.uploaded)), 'u'));
        }
        TransferTracker tracker;
        tracker.SetReadEnabled(item.readEnabled);
        const nlohmann::json entry = Outcome(tracker, item.records);
        const bool isUpload = item.records[0].Template == write.Template;
        if (*item.outcome == '\0')
        {
            EXPECT_TRUE(entry.is_null()) << "case " << index << ": " << entry.dump();
            ASSERT_EQ(tracker.InProgress().size(), 1U) << "case " << index;
            EXPECT_EQ(std::make_pair(tracker.InProgress()[0].Client, tracker.InProgress()[0].LocalPath),
                      std::make_pair(std::string("10.0.0.1:1000"), isUpload ? upload : file));
            continue;
        }
        const auto field = [&](const char* name) { return entry.value(name, nlohmann::json("(missing)")); };
        EXPECT_EQ(nlohmann::json::array({field("direction"), field("outcome"), field("client"), field("bytes"),
                                         field("damaged")}),
                  nlohmann::json::array({isUpload ? "upload" : "download", item.outcome, "10.0.0.1:1000",
                                         item.bytes < 0 ? nlohmann::json() : nlohmann::json(item.bytes), item.damaged}))
            << "case " << index;
    }
}

TEST_F(TransferTrackerTest, ADownloadOfAFileReplacedMeanwhileIsDamaged)
{
    TransferTracker tracker;
    tracker.Observe(Read("image.bin"));
    tracker.Settle();
    VantrelTest::WriteFile(home / "image.bin", "second, shorter");
    const nlohmann::json entry = Outcome(tracker, {Ending("Sent last packet of {0} to {1}:{2}", home / "image.bin")});
    EXPECT_EQ(entry.at("damaged"), true);
    EXPECT_NE(entry.at("text").get<std::string>().find("complete, damaged"), std::string::npos) << entry.dump();
}

TEST_F(TransferTrackerTest, TheRequestDatagramGivesTheModeAndAcknowledgementsTheBytesOfAnUnfinishedDownload)
{
    const Qib::System::Commons::Net::IpAddress client(htonl(0x0A000001));
    const char request[] = "\0\1image.bin\0NetASCII";
    const unsigned char acknowledgement[] = {0, 4, 0, 2};
    TransferTracker tracker;
    tracker.Received(request, sizeof(request), client, 1000);
    tracker.Observe(Read("image.bin"));
    tracker.Received(acknowledgement, sizeof(acknowledgement), client, 1000);
    const nlohmann::json entry = Outcome(tracker, {Record("Session {0}:{1} timed out\n", {"10.0.0.1", "1000"})});
    // The journal's text for the mode is shown by the daemon's netascii download with a real client.
    EXPECT_EQ(nlohmann::json::array({entry.at("mode"), entry.at("outcome"), entry.at("bytes")}),
              nlohmann::json::array({"netascii", "timed-out", 2 * 512}));
}
