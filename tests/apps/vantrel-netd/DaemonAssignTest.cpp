// End-to-end tests of runtime assignments: `vantrel-netd assign`/`unassign` against a running daemon.
#include "DaemonProcess.hpp"

#include "Support/NetworkNamespace.hpp"

#include <gtest/gtest.h>

#include <tuple>

using VantrelTest::DaemonProcess;
using DaemonAssignTest = VantrelTest::DaemonTest;

TEST_F(DaemonAssignTest, ChangesRebuildOnlyBootpAndSurviveARestart)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    const std::string config = Config(TftpConfig("boot") + ControlConfig() + "[bootp]\nhosts_file = \"hosts.csv\"\n" +
                                      "[[bootp.hosts]]\nmac = \"02:00:00:00:00:01\"\nip = \"10.77.0.2\"\n");
    Write(root / "plan.csv", "Hardware address;IP;Name\n\"0277000000AA\";10.77.0.20;press-1\n"
                             "02-77-00-00-00-ab ; 10.77.0.21 ; \n# spare\n");
    Write(root / "twice.csv", "02:77:00:00:00:30,10.77.0.30\n02-77-00-00-00-30,10.77.0.31,again\n");
    Write(root / "short.csv", "mac,ip\n02:77:00:00:00:40\n");
    // The control socket opens before the servers start; changes are taken once BOOTP runs.
    auto daemon = StartDaemon({"--config", config}, "BOOTP server on");
    const std::string table = "the BOOTP table has ";
    // The command (run with the test daemon's socket), its status, what its output holds.
    const std::tuple<std::vector<std::string>, int, std::string> steps[] = {
        {{"assign", "02-77-00-00-00-10", "10.77.0.40", "--name", "press-3"}, 0, "assigned 1 device(s); " + table + "2"},
        {{"assign", "02:77:00:00:00:10", "10.77.0.41", "--name", "press-3b"}, 0, table + "2"},
        {{"assign", "02:77:00:00:00:11", "10.77.0.256"}, 65, "\"10.77.0.256\" is not an IPv4 address"},
        {{"assign", "02:77:00:00:00:11", "10.77.0.41"}, 65, "10.77.0.41 is given to 02:77:00:00:00:10 (press-3b"},
        {{"assign", "02:77:00:00:00:11", "10.77.0.2"}, 65, "10.77.0.2 is given to 02:00:00:00:00:01"},
        {{"assign", "02:00:00:00:00:01", "10.77.0.50"}, 65, "is in the config file's own table"},
        {{"assign", "02:77:00:00:00:12", "10.77.0.43", "--name", "a,b"}, 65, "is not a device name"},
        {{"assign", "--from", (root / "plan.csv").string()}, 0, "assigned 2 device(s); " + table + "4"},
        {{"assign", "--from", (root / "twice.csv").string()}, 65, "twice.csv:2: 02:77:00:00:00:30 is given twice"},
        {{"assign", "--from", (root / "short.csv").string()}, 65, "short.csv:2: give the hardware address"},
        {{"assign", "--from", (root / "absent.csv").string()}, 66, "cannot read the list"},
        {{"assign", "01:02:00:00:00:00", "10.77.0.60"}, 65, "would hide 01:02:00:00:00:00 (10.77.0.60)"},
        {{"assign", "01:02:00:00:00:00", "10.77.0.60", "--force"}, 0, "warning: forced: 01:02:00:00:00:00"},
        {{"unassign", "01-02-00-00-00-00"}, 0, table + "4"},
        {{"unassign", "01:02:00:00:00:00"}, 65, "01:02:00:00:00:00 has no assignment"},
        {{"unassign", "02:00:00:00:00:01"}, 65, "is in the config file's own table"},
    };
    for (auto [arguments, status, output] : steps)
    {
        arguments.insert(arguments.begin() + 1, {"--socket", (root / "netd.sock").string()});
        const auto run = DaemonProcess::Run(arguments);
        EXPECT_EQ(run.Status, status) << arguments[0] << " " << arguments[3] << ": " << run.Output << run.Error;
        EXPECT_NE((run.Output + run.Error).find(output), std::string::npos) << run.Output << run.Error;
        if (run.Status != 0)
        {
            ExpectOneLine(run.Error);
        }
    }
    const std::string kept = "hardware,ip,name\n02:77:00:00:00:10,10.77.0.41,press-3b\n"
                             "02:77:00:00:00:AA,10.77.0.20,press-1\n02:77:00:00:00:AB,10.77.0.21,\n";
    EXPECT_EQ(Read(root / "hosts.csv"), kept);
    const std::string log = daemon->StandardError();
    EXPECT_EQ(log.find("TFTP server on UDP port 69"), log.rfind("TFTP server on UDP port 69")) << log;
    EXPECT_NE(log.find("Assignments changed: the BOOTP table has 4 entries (3 from"), std::string::npos) << log;
    ASSERT_EQ(daemon->Stop(), 0);

    daemon = StartDaemon({"--config", config}, "Control socket");
    EXPECT_TRUE(daemon->WaitForError("BOOTP server on 0.0.0.0:67 with 4 table entries")) << daemon->StandardError();
    Write(root / "hosts.csv", kept + "02:77:00:00:00:50,10.77.0.20,clash\n");
    daemon->Signal(SIGHUP);
    EXPECT_TRUE(daemon->WaitForError("Reload refused, the running servers go on: hosts file " + (root / "hosts.csv").string() +
                                     ":5: 10.77.0.20 is given to 02:77:00:00:00:AA"))
        << daemon->StandardError();
    EXPECT_EQ(daemon->Stop(), 0);
}
