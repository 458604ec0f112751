// Tests of the control socket's answers to what is not a request.
#include "ControlClient.hpp"
#include "ControlServer.hpp"
#include "ExitStatus.hpp"

#include "Support/TempDirectory.hpp"

#include <gtest/gtest.h>

using VantrelNetd::ControlClient;

TEST(ControlServerTest, ALineThatIsNoRequestGetsAnErrorAnswer)
{
    const VantrelTest::TempDirectory folder;
    VantrelNetd::ControlServer server(folder / "netd.sock");
    server.Start([](const nlohmann::json&) { return nlohmann::json{{"answered", true}}; });
    EXPECT_EQ(ControlClient::Request(server.GetPath(), {{"command", "status"}}).at("answered"), true);
    for (const nlohmann::json& request : {nlohmann::json{{"status", true}}, nlohmann::json::array({"command"})})
    {
        try
        {
            ControlClient::Request(server.GetPath(), request);
            ADD_FAILURE() << "answered " << request.dump();
        }
        catch (const VantrelNetd::DaemonExit& exit)
        {
            EXPECT_NE(std::string(exit.what()).find("not a request"), std::string::npos) << exit.what();
        }
    }
}
