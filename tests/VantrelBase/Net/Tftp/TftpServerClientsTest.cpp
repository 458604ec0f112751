// Tests of the TFTP server with the real clients installed on the machine: tftp-hpa, curl, atftp
// and busybox, each downloading and uploading files of several sizes.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "TftpTestSupport.hpp"

#include "Support/NetworkNamespace.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace
{

using namespace VantrelTest;
using namespace VantrelTest::Tftp;

struct Outcome
{
    int status = -1;
    std::string output;
};

// Runs a client with a time limit; its exit status and what it printed.
Outcome RunClient(const std::string& commandLine)
{
    const std::string output = VantrelTest::ShellOutput("timeout 60 " + commandLine + " 2>&1; echo \"exit=$?\"");
    Outcome outcome;
    const auto marker = output.rfind("exit=");
    if (marker != std::string::npos)
    {
        outcome.status = std::stoi(output.substr(marker + 5));
        outcome.output = output.substr(0, marker);
    }
    return outcome;
}

bool Installed(const std::string& program)
{
    return VantrelTest::Shell("command -v " + program + " >/dev/null 2>&1") == 0;
}

// How one client is driven: a command line for a download and one for an upload.
struct Client
{
    std::string program;
    std::function<std::string(const std::string& remote, const std::string& local)> get;
    std::function<std::string(const std::string& local, const std::string& remote)> put;
};

const Client tftpHpa{"tftp",
                     [](const std::string& remote, const std::string& local) {
                         return "tftp -m binary 127.0.0.1 -c get " + remote + " " + local;
                     },
                     [](const std::string& local, const std::string& remote) {
                         return "tftp -m binary 127.0.0.1 -c put " + local + " " + remote;
                     }};

const Client curlPlain{"curl",
                       [](const std::string& remote, const std::string& local) {
                           return "curl -sS --tftp-no-options -o " + local + " tftp://127.0.0.1/" + remote;
                       },
                       [](const std::string& local, const std::string& remote) {
                           return "curl -sS --tftp-no-options -T " + local + " tftp://127.0.0.1/" + remote;
                       }};

// curl asks for options (tsize, blksize) by default; this server answers with plain DATA or ACK.
const Client curlWithOptions{"curl",
                             [](const std::string& remote, const std::string& local) {
                                 return "curl -sS -o " + local + " tftp://127.0.0.1/" + remote;
                             },
                             [](const std::string& local, const std::string& remote) {
                                 return "curl -sS -T " + local + " tftp://127.0.0.1/" + remote;
                             }};

const Client atftp{"atftp",
                   [](const std::string& remote, const std::string& local) {
                       return "atftp -g -r " + remote + " -l " + local + " 127.0.0.1";
                   },
                   [](const std::string& local, const std::string& remote) {
                       return "atftp -p -l " + local + " -r " + remote + " 127.0.0.1";
                   }};

const Client busybox{"busybox",
                     [](const std::string& remote, const std::string& local) {
                         return "busybox tftp -g -r " + remote + " -l " + local + " 127.0.0.1";
                     },
                     [](const std::string& local, const std::string& remote) {
                         return "busybox tftp -p -l " + local + " -r " + remote + " 127.0.0.1";
                     }};

class TftpServerClientsTest : public TftpServerTest
{
protected:
    // Downloads and uploads of several sizes, each compared byte for byte. Upload sizes avoid a
    // final block of 508 to 511 bytes, which this server deliberately does not take as last.
    void DownloadAndUpload(const Client& client)
    {
        if (!Installed(client.program))
        {
            GTEST_SKIP() << client.program << " is not installed";
        }
        auto settings = DefaultSettings();
        settings.Timeout = 5;
        settings.MaxRetries = 5;
        StartServer(settings);
        TempDirectory local;
        for (const std::size_t size : {std::size_t{0}, std::size_t{511}, std::size_t{512}, std::size_t{513},
                                       std::size_t{70000}})
        {
            const std::string name = "d" + std::to_string(size) + ".bin";
            const std::string contents = PatternBytes(size, static_cast<unsigned>(size) + 11);
            WriteFile(home / name, contents);
            const Outcome outcome = RunClient(client.get(name, local / name));
            EXPECT_EQ(outcome.status, 0) << "download of " << size << " bytes: " << outcome.output;
            EXPECT_EQ(ReadFile(local / name), contents) << "download of " << size << " bytes";
        }
        for (const std::size_t size : {std::size_t{0}, std::size_t{100}, std::size_t{512}, std::size_t{1024},
                                       std::size_t{70000}})
        {
            const std::string name = "u" + std::to_string(size) + ".bin";
            const std::string contents = PatternBytes(size, static_cast<unsigned>(size) + 17);
            WriteFile(local / name, contents);
            const Outcome outcome = RunClient(client.put(local / name, name));
            EXPECT_EQ(outcome.status, 0) << "upload of " << size << " bytes: " << outcome.output;
            EXPECT_EQ(ReadFile(home / name), contents) << "upload of " << size << " bytes";
            EXPECT_FALSE(Exists(home / name + ".part"));
        }
    }

    // A missing file, as the client reports it; and an upload whose final block holds 510 bytes,
    // which every client takes as complete while the server keeps it in the part file. Deliberate.
    Outcome MissingFileAndUnfinishedUpload(const Client& client)
    {
        StartServer();
        TempDirectory local;
        const Outcome missing = RunClient(client.get("missing.bin", local / "missing.bin"));
        const std::string contents = PatternBytes(1022, 23);
        WriteFile(local / "tail.bin", contents);
        const Outcome upload = RunClient(client.put(local / "tail.bin", "tail.bin"));
        EXPECT_EQ(upload.status, 0) << upload.output;
        EXPECT_FALSE(Exists(home / "tail.bin"));
        EXPECT_EQ(ReadFile(home / "tail.bin.part"), contents);
        return missing;
    }
};

TEST_F(TftpServerClientsTest, TftpHpa)
{
    DownloadAndUpload(tftpHpa);
}

TEST_F(TftpServerClientsTest, CurlWithoutOptions)
{
    DownloadAndUpload(curlPlain);
}

TEST_F(TftpServerClientsTest, CurlWithOptionsTheServerIgnores)
{
    DownloadAndUpload(curlWithOptions);
}

TEST_F(TftpServerClientsTest, Atftp)
{
    DownloadAndUpload(atftp);
}

TEST_F(TftpServerClientsTest, Busybox)
{
    DownloadAndUpload(busybox);
}

TEST_F(TftpServerClientsTest, TftpHpaReportsErrorsButExitsWithZero)
{
    if (!Installed("tftp"))
    {
        GTEST_SKIP() << "tftp is not installed";
    }
    const Outcome missing = MissingFileAndUnfinishedUpload(tftpHpa);
    EXPECT_EQ(missing.status, 0) << "tftp-hpa's exit status does not tell a failed transfer";
    EXPECT_NE(missing.output.find("Error code 1: File not found."), std::string::npos) << missing.output;
}

TEST_F(TftpServerClientsTest, CurlReportsAMissingFileAsAConnectionError)
{
    if (!Installed("curl"))
    {
        GTEST_SKIP() << "curl is not installed";
    }
    // The error comes from port 69 rather than a new port, and curl fails with error 68 and a
    // message about getpeername instead of the server's text.
    const Outcome missing = MissingFileAndUnfinishedUpload(curlPlain);
    EXPECT_EQ(missing.status, 68) << missing.output;
}

TEST_F(TftpServerClientsTest, AtftpReportsAMissingFile)
{
    if (!Installed("atftp"))
    {
        GTEST_SKIP() << "atftp is not installed";
    }
    const Outcome missing = MissingFileAndUnfinishedUpload(atftp);
    EXPECT_NE(missing.status, 0);
    EXPECT_NE(missing.output.find("File not found."), std::string::npos) << missing.output;
}

TEST_F(TftpServerClientsTest, BusyboxReportsAMissingFile)
{
    if (!Installed("busybox"))
    {
        GTEST_SKIP() << "busybox is not installed";
    }
    const Outcome missing = MissingFileAndUnfinishedUpload(busybox);
    EXPECT_NE(missing.status, 0);
    EXPECT_NE(missing.output.find("File not found."), std::string::npos) << missing.output;
}

} // namespace
