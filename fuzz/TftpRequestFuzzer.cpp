// Fuzzes the TFTP request path: arbitrary datagrams from three clients against a server with a
// temporary home folder, without starting the server (so nothing is sent). Half of the inputs go
// through ProcessRequest (sessions, dispatch, client errors); the others drive the read and write
// handlers on sessions of the harness's own, whose replies are checked: every DATA block is the
// file's bytes at its place, and a completed upload is exactly the blocks that were acknowledged.
#include "VantrelBase/Net/Tftp/TftpServer.hpp"

#include "FuzzCheck.hpp"

#include <fuzzer/FuzzedDataProvider.h>

#include <arpa/inet.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using Qib::System::Commons::Net::IpAddress;
using VantrelBase::Net::Tftp::OpCode;
using VantrelBase::Net::Tftp::Packet;
using VantrelBase::Net::Tftp::Session;
using VantrelBase::Net::Tftp::SessionStatus;
using VantrelBase::Net::Tftp::TftpServer;
using VantrelBase::Net::Tftp::Configuration::TftpServerSettings;

namespace
{

class Harness : public TftpServer
{
public:
    using TftpServer::GetAbsoluteFilepath;
    using TftpServer::HandleReadRequest;
    using TftpServer::HandleWriteRequest;
    using TftpServer::ProcessRequest;
    using TftpServer::TftpServer;
};

const fs::path& Root()
{
    static const fs::path root = [] {
        char pattern[] = "/tmp/vantrel-fuzz-tftp-XXXXXX";
        const char* made = ::mkdtemp(pattern);
        FUZZ_CHECK(made != nullptr);
        return fs::path(made);
    }();
    return root;
}

std::string Contents(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

// Home with files of the sizes that matter (empty, one block exactly, a few blocks and a bit), a
// sub-folder, and an upload folder under an alias.
void MakeHome()
{
    std::error_code ignored;
    fs::remove_all(Root() / "home", ignored);
    fs::remove_all(Root() / "uploads", ignored);
    fs::create_directories(Root() / "home" / "sub");
    fs::create_directories(Root() / "uploads");
    const std::array<std::pair<const char*, std::size_t>, 4> files{
        {{"empty.bin", 0}, {"block.bin", 512}, {"three.bin", 1300}, {"sub/x.cfg", 37}}};
    for (const auto& [name, size] : files)
    {
        std::ofstream stream(Root() / "home" / name, std::ios::binary);
        for (std::size_t i = 0; i < size; ++i)
        {
            stream.put(static_cast<char>(i * 7 + size));
        }
    }
}

bool HasParentComponent(const std::string& path)
{
    std::size_t start = 0;
    while (start <= path.size())
    {
        const std::size_t end = std::min(path.find('/', start), path.size());
        if (end - start == 2 && path.compare(start, 2, "..") == 0)
        {
            return true;
        }
        start = end + 1;
    }
    return false;
}

// The harness's record of one upload on its own session.
struct Upload
{
    std::string written;
    bool shared = false;
};

struct Client
{
    IpAddress address;
    int port;
    std::shared_ptr<Session> session;
    Upload upload;
};

std::uint16_t BlockOf(const Packet& packet)
{
    return static_cast<std::uint16_t>(packet.GetBlockNumber());
}

void DriveHandlers(Harness& server, std::vector<Client>& clients, Client& client, const std::shared_ptr<Packet>& packet)
{
    Session& session = *client.session;
    const OpCode opCode = packet->GetOpCode();
    if (session.GetStatus() == SessionStatus::Idle)
    {
        if (opCode == OpCode::ReadRequest)
        {
            session.SetStatus(SessionStatus::Reading);
        }
        else if (opCode == OpCode::WriteRequest)
        {
            session.SetStatus(SessionStatus::Writing);
        }
        else
        {
            return;
        }
    }
    if (session.GetStatus() == SessionStatus::Reading)
    {
        const auto reply = server.HandleReadRequest(packet, client.session);
        if (reply && reply->GetOpCode() == OpCode::Data && BlockOf(*reply) != 0)
        {
            // The block is the file's bytes at its place, and only the last one is short.
            const std::string file = Contents(session.absoluteFilepath);
            const std::size_t offset = (BlockOf(*reply) - 1u) * 512u;
            const std::size_t count = reply->GetLength() - 4;
            FUZZ_CHECK(count <= 512);
            FUZZ_CHECK(file.compare(offset < file.size() ? offset : file.size(), count,
                                    reinterpret_cast<const char*>(reply->GetData()), count) == 0);
            FUZZ_CHECK((count < 512) == (session.GetStatus() == SessionStatus::Idle));
        }
        return;
    }
    if (session.GetStatus() != SessionStatus::Writing)
    {
        return;
    }
    const std::int64_t expected = static_cast<std::int64_t>(session.blockNumber) + 1;
    const auto reply = server.HandleWriteRequest(packet, client.session);
    FUZZ_CHECK(reply != nullptr);
    if (opCode == OpCode::WriteRequest && reply->GetOpCode() == OpCode::Acknowledge)
    {
        client.upload = Upload{};
        // Two uploads of one file at once interleave in its ".part": the model follows neither.
        for (auto& other : clients)
        {
            if (&other != &client && other.session->GetStatus() == SessionStatus::Writing &&
                other.session->absoluteFilepath == session.absoluteFilepath)
            {
                client.upload.shared = true;
                other.upload.shared = true;
            }
        }
        FUZZ_CHECK(BlockOf(*reply) == 0);
        std::error_code ignored;
        FUZZ_CHECK(!fs::exists(session.absoluteFilepath + ".part", ignored));
        return;
    }
    if (opCode != OpCode::Data || reply->GetOpCode() != OpCode::Acknowledge)
    {
        return;
    }
    const bool accepted = packet->GetLength() >= 4 && packet->GetBlockNumber() == expected;
    if (accepted)
    {
        client.upload.written.append(reinterpret_cast<const char*>(packet->GetData()), packet->GetLength() - 4);
    }
    if (accepted && session.GetStatus() == SessionStatus::Idle && !client.upload.shared)
    {
        // Completed: the target holds exactly what was acknowledged, and the ".part" is gone.
        FUZZ_CHECK(packet->GetLength() < 512);
        // Names the system refuses (too long, under a file) leave nothing to compare.
        std::error_code error;
        const bool directory = fs::is_directory(session.absoluteFilepath, error);
        if (!directory && !error)
        {
            FUZZ_CHECK(Contents(session.absoluteFilepath) == client.upload.written);
            FUZZ_CHECK(!fs::exists(session.absoluteFilepath + ".part", error));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const bool throughProcessRequest = input.ConsumeBool();

    TftpServerSettings settings;
    settings.HomePaths = {{"/", (Root() / "home").string()}, {"/up", (Root() / "uploads").string()}};
    settings.ReadEnabled = input.ConsumeProbability<float>() < 0.9f;
    settings.WriteEnabled = input.ConsumeProbability<float>() < 0.9f;
    settings.OverwriteEnabled = input.ConsumeBool();
    settings.ThreadCount = 1;
    // ProcessRequest keeps sessions in the server, so it gets a fresh one per input; the handlers
    // keep their state in the harness's sessions, so one server per setting serves every input
    // (and saves starting a pool thread each time).
    static std::array<std::unique_ptr<Harness>, 8> shared;
    auto& reused = shared[(settings.ReadEnabled ? 4U : 0U) + (settings.WriteEnabled ? 2U : 0U) +
                          (settings.OverwriteEnabled ? 1U : 0U)];
    std::unique_ptr<Harness> fresh;
    if (throughProcessRequest)
    {
        fresh = std::make_unique<Harness>(settings);
    }
    else if (!reused)
    {
        reused = std::make_unique<Harness>(settings);
    }
    Harness& server = throughProcessRequest ? *fresh : *reused;
    MakeHome();
    const std::string fixture = Contents((Root() / "home" / "three.bin").string());

    std::vector<Client> clients;
    for (int i = 0; i < 3; ++i)
    {
        const IpAddress address(htonl(0x0A4D0002U + static_cast<std::uint32_t>(i / 2)));
        const int port = 40000 + i;
        clients.push_back({address, port, std::make_shared<Session>(address, static_cast<std::uint16_t>(port), nullptr, 10),
                           Upload{}});
    }

    for (int datagrams = 0; datagrams < 64 && input.remaining_bytes() > 0; ++datagrams)
    {
        Client& client = clients[input.ConsumeIntegralInRange<std::size_t>(0, clients.size() - 1)];
        const std::string raw = input.ConsumeRandomLengthString(700);
        const auto packet = Packet::Create(reinterpret_cast<const unsigned char*>(raw.data()), raw.size());
        const OpCode opCode = packet->GetOpCode();
        if ((opCode == OpCode::ReadRequest || opCode == OpCode::WriteRequest) && raw.size() >= 2 &&
            HasParentComponent(server.GetAbsoluteFilepath(packet->GetFilepath())))
        {
            // ".." leaves the home folder by design; never let the fuzzer write outside it.
            continue;
        }
        if (throughProcessRequest)
        {
            server.ProcessRequest(packet, client.address, client.port);
        }
        else
        {
            DriveHandlers(server, clients, client, packet);
        }
    }

    if (!settings.OverwriteEnabled)
    {
        // Without overwriting, no upload replaces a file that was there.
        FUZZ_CHECK(Contents((Root() / "home" / "three.bin").string()) == fixture);
    }
    return 0;
}
