// Tests of ICMP echo and the name-service helpers, inside the test's own network namespace.
#include "VantrelBase/Net/Icmp/Ping.hpp"

#include "Support/LogCapture.hpp"
#include "Support/NetworkNamespace.hpp"
#include "Support/ProcessStatus.hpp"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace
{

using VantrelBase::Net::Icmp::dns_lookup;
using VantrelBase::Net::Icmp::Ping;
using VantrelBase::Net::Icmp::reverse_dns_lookup;
using VantrelTest::LogCapture;

using CText = std::unique_ptr<char, decltype(&std::free)>;

const char* const UnresolvableHost = "no-such-host.invalid";
const std::string ResolveFailedLine = "DNS resolution failed for host: %s";
const std::string ReverseFailedLine = "Could not resolve reverse lookup of hostname\n";
const std::string FullReply = "1 packets sent, 1 packets received, 0 percent packet loss.";

// Sees every ICMP echo request the namespace delivers locally, as a second, independent raw socket.
class IcmpCapture
{
public:
    IcmpCapture() : descriptor(::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP)) {}
    ~IcmpCapture() { ::close(descriptor); }
    IcmpCapture(const IcmpCapture&) = delete;
    IcmpCapture& operator=(const IcmpCapture&) = delete;

    /// The echo requests (IPv4 header included) that arrived so far.
    std::vector<std::vector<unsigned char>> EchoRequests()
    {
        std::vector<std::vector<unsigned char>> requests;
        std::array<unsigned char, 1500> buffer{};
        ssize_t length = 0;
        while ((length = ::recv(descriptor, buffer.data(), buffer.size(), MSG_DONTWAIT)) > 0)
        {
            const std::size_t headerLength = static_cast<std::size_t>(buffer[0] & 0x0F) * 4;
            if (static_cast<std::size_t>(length) > headerLength && buffer[headerLength] == 8)
            {
                requests.emplace_back(buffer.begin(), buffer.begin() + length);
            }
        }
        return requests;
    }

private:
    int descriptor;
};

// The summary lines written so far.
std::vector<std::string> SummaryLines(const LogCapture& capture)
{
    std::vector<std::string> lines;
    for (const std::string& message : capture.Messages())
    {
        if (message.find(" packets sent, ") != std::string::npos)
        {
            lines.push_back(message);
        }
    }
    return lines;
}

// Checks there is exactly one summary with these counts and returns its total time in milliseconds.
double ExpectSummary(const LogCapture& capture, const std::string& counts)
{
    const std::vector<std::string> lines = SummaryLines(capture);
    const std::regex summary(std::regex_replace(counts, std::regex(R"([.])"), R"(\.)") +
                             R"(Total time : ([0-9]+(\.[0-9]+)?(e[+-]?[0-9]+)?) ms\.)");
    std::smatch match;
    EXPECT_TRUE(lines.size() == 1 && std::regex_match(lines[0], match, summary)) << ::testing::PrintToString(lines);
    return match.empty() ? -1.0 : std::stod(match[1].str());
}

// In a death-test child: runs `prepare`, one send of `count` requests, and prints `report` of the result.
template <typename Prepare, typename Report>
void RunChild(Prepare prepare, unsigned int count, Report report)
{
    prepare();
    std::fputs(report(Ping::Send("127.0.0.1", 0, count)), stderr);
    std::_Exit(0);
}

} // namespace

// Their log lines are checked through the pings below.
TEST(DnsLookupTest, LookupsFillTheAddressOrAnswerNullAndLeaveItAlone)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    sockaddr_in address{};
    address.sin_port = htons(4242);
    const CText text(dns_lookup("localhost", &address), &std::free);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text.get(), "127.0.0.1");
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_port, 0);
    EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
    address.sin_port = htons(4242);
    EXPECT_EQ(dns_lookup(UnresolvableHost, &address), nullptr);
    EXPECT_EQ(address.sin_port, htons(4242));
    EXPECT_EQ(dns_lookup(nullptr, &address), nullptr);
    EXPECT_EQ(dns_lookup("localhost", nullptr), nullptr);

    EXPECT_EQ(reverse_dns_lookup(nullptr), nullptr);
    std::istringstream entry(VantrelTest::ShellOutput("getent hosts 127.0.0.1"));
    std::string expected;
    entry >> expected >> expected;
    if (!expected.empty())
    {
        const CText name(reverse_dns_lookup("127.0.0.1"), &std::free);
        ASSERT_NE(name, nullptr);
        EXPECT_EQ(std::string(name.get()), expected);
    }
}

TEST(PingTest, CountOneOrFiftySixSendsOneWellFormedRequestAndCountsTheReply)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // Deliberate: any count up to 56 sends exactly one request.
    for (const auto& [host, count] : {std::pair<const char*, unsigned int>{"127.0.0.1", 1U}, {"localhost", 56U}})
    {
        SCOPED_TRACE(count);
        IcmpCapture wire;
        const std::size_t descriptorsBefore = VantrelTest::CountOpenDescriptors();
        LogCapture capture;
        const Ping::Result result = Ping::Send(host, 12345, count);
        EXPECT_EQ(result.value, 0);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(VantrelTest::CountOpenDescriptors(), descriptorsBefore) << "the raw socket is closed";
        // The request itself comes back first on loopback and passes the acceptance test.
        EXPECT_GE(ExpectSummary(capture, FullReply), 1000.0) << "the run includes the 1 s pause before sending";

        const auto requests = wire.EchoRequests();
        ASSERT_EQ(requests.size(), 1U);
        const std::vector<unsigned char>& datagram = requests[0];
        const std::size_t ip = static_cast<std::size_t>(datagram[0] & 0x0F) * 4;
        ASSERT_EQ(datagram.size(), ip + 64);
        EXPECT_EQ(datagram[8], 64) << "time to live";
        const unsigned char* icmp = datagram.data() + ip;
        EXPECT_EQ(icmp[1], 0);
        EXPECT_EQ(VantrelBase::Net::Icmp::checksum(icmp, 64), 0);
        // Identifier in host byte order, sequence 0.
        const auto id = static_cast<std::uint16_t>(::getpid() & 0xFFFF);
        std::uint16_t sent[2] = {};
        std::memcpy(sent, icmp + 4, sizeof(sent));
        EXPECT_EQ(sent[0], id);
        EXPECT_EQ(sent[1], 0);
    }
}

TEST(PingTest, UnreachableOrUnresolvableHostCountsNothing)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    {
        // The namespace has loopback only, so the request cannot leave: the send fails and nothing counts.
        LogCapture capture;
        EXPECT_EQ(Ping::Send("10.77.0.1", 0, 1).status, 0);
        ExpectSummary(capture, "1 packets sent, 0 packets received, 100 percent packet loss.");
        EXPECT_EQ(capture.Count(ReverseFailedLine), 1U);
    }
    IcmpCapture wire;
    LogCapture capture;
    const Ping::Result result = Ping::Send(UnresolvableHost, 0, 1);
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(result.status, 11018);
    EXPECT_TRUE(capture.Contains(ResolveFailedLine, 3));
    EXPECT_TRUE(SummaryLines(capture).empty());
    EXPECT_TRUE(wire.EchoRequests().empty());
}

TEST(PingTest, ChildProcessCases)
{
    VANTREL_REQUIRE_NETWORK_NAMESPACE();
    // As an unprivileged user the raw socket is refused.
    const auto unprivileged = [] {
        if (::setuid(65534) != 0)
        {
            std::_Exit(2);
        }
    };
    EXPECT_EXIT(RunChild(unprivileged, 1,
                         [](const Ping::Result& r) { return r.value == 0 && r.status == 11004 ? "refused" : "other"; }),
                testing::ExitedWithCode(0), "refused");
    // With standard input closed, the raw socket becomes descriptor 0 and must still be closed.
    EXPECT_EXIT(RunChild([] { ::close(0); }, 1,
                         [](const Ping::Result&) { return ::fcntl(0, F_GETFD) == -1 ? "0 closed" : "0 open"; }),
                testing::ExitedWithCode(0), "0 closed");
    // Deliberate: with nothing sent the call traps instead of dividing by zero; only a child may try it.
    const auto noCoreDump = [] {
        rlimit noCore{};
        ::setrlimit(RLIMIT_CORE, &noCore);
    };
    EXPECT_EXIT(RunChild(noCoreDump, 0, [](const Ping::Result&) { return "returned"; }),
                testing::KilledBySignal(SIGILL), "");
}
