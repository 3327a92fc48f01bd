#include "unit.h"

#include "channels.h"
#include "mailbox.h"
#include "vorni/access.h"
#include "vorni/connection.h"
#include "vorni/utc.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>

namespace Bench {
namespace {

constexpr std::uint16_t protocolRev = 3;

void expectAnswer(std::uint32_t number, kiv_mbox_id_t client)
{
    const MessagePtr message = receiveMessage();
    if (message->number != number || kiv_receiver(message.get()) != client) {
        throw Failed(fmt::format("a client got {:#x}, not {:#x}", message->number, number));
    }
}

} // namespace

void useRunDir(const std::string& folder)
{
    std::filesystem::create_directories(folder);
    ::setenv("RU_DIR", folder.c_str(), 1);
    ::unsetenv("SYS_MODE");
}

std::string runDir()
{
    const char* folder = std::getenv("RU_DIR");
    if (folder == nullptr) {
        throw Failed("no run-time directory");
    }
    return folder;
}

Unit::Unit(const std::string& serverProgram)
    : m_board(startRole({"board"})), m_server(serverProgram, {}, Child::Io::none),
      m_publicMbox(awaitMailbox("VornServer"))
{
}

std::uint64_t Unit::residentMemory() const
{
    std::ifstream file(fmt::format("/proc/{}/smaps_rollup", m_server.pid()));
    std::string word;
    std::uint64_t kibibytes = 0;
    while (file >> word) {
        if (word == "Rss:" && file >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    throw Failed("the server's memory can't be read");
}

void connectClient(kiv_mbox_id_t client, kiv_mbox_id_t publicMbox)
{
    NewSignal<OmlaVornConnEstablishReqS> request(clientRef, serverRef);
    request->protocolRev = protocolRev;
    request.send(publicMbox, client);
    expectAnswer(OmlaVornConnEstablishCfmS::number, client);
}

void ask(Ask what, kiv_mbox_id_t client, kiv_mbox_id_t publicMbox)
{
    if (what == Ask::relay) {
        kiv_msg* msg = kiv_alloc(messageSize, relayedSignal);
        kiv_send(&msg, publicMbox, client);
        expectAnswer(relayedSignal, client);
        return;
    }
    NewSignal<OmlaVornSetUtcTimeReqS> request(clientRef, serverRef);
    request->utcTime = 1'700'000'000;
    request.send(publicMbox, client);
    expectAnswer(OmlaVornSetUtcTimeCfmS::number, client);
}

} // namespace Bench
