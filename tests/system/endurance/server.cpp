/// enduranceserver: vornserver with one more command, "vornsrv counts LIMIT", which tells as JSON how many of
/// everything there are inside. Started as vornserver is.

#include "gantclient/gantClient.h"
#include "kiv/kiv.h"
#include "tolmeClient.h"
#include "trace/trace.h"
#include "vornServerCmdHandler.h"
#include "vornServerCommonData.h"
#include "vornServerGanti.h"
#include "vornServerImpl.h"
#include "vornServerRestart.h"
#include "vornServerUlmo.h"
#include "vornSession.h"
#include "yarrowi/if/yarrowIClient.h"

#include <charconv>
#include <fmt/format.h>
#include <malloc.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

namespace {

using Json = nlohmann::json;

std::size_t countIn(const std::string& text, std::string_view part)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

/// By number: "0x1707733".
Json byNumber(const std::map<std::uint32_t, std::size_t>& counts)
{
    Json json = Json::object();
    for (const auto& [number, count] : counts) {
        json[fmt::format("{:#x}", number)] = count;
    }
    return json;
}

class CountsCommand : public VornServerCmdHandler
{
public:
    explicit CountsCommand(const VornServerImpl& server) : m_server(server) {}

    bool handleCommand(const std::vector<std::string>& args, std::ostream& out) override
    {
        std::uint32_t limit = 0;
        const std::string& word = args.back();
        std::from_chars(word.data(), word.data() + word.size(), limit);
        VornServerCommonData& data = m_server.commonData();
        std::ostringstream sessions;
        data.dumpVornSessions(sessions);
        const Json counts{{"heap", ::mallinfo2().uordblks},
                          {"published", data.getPublicMbox() != KIV_NO_MBOX},
                          {"sessions", data.getVornSessionCount()},
                          {"forwardMailboxes", countIn(sessions.str(), "*m_pFwdMbox = {")},
                          {"lostClients", data.getLostClientCount()},
                          {"dunl", countsOf(data.getDunlClient())},
                          {"fesk", countsOf(data.getFeskClient())},
                          {"yarrowi", countsOf(data.getYarrowIClient(), limit)},
                          {"ganti", countsOfSoftware()},
                          {"restarts", countsOfRestarts()}};
        out << counts.dump() << '\n';
        return true;
    }

private:
    static Json countsOf(TolmeClient& client)
    {
        std::map<std::uint32_t, std::size_t> transactions;
        client.findTransactionIf([&](const TolmeClient::ProcedureTransaction& transaction) {
            ++transactions[transaction.requestMsgNo];
            return false;
        });
        std::vector<std::shared_ptr<const TolmeCapability>> capabilities;
        client.getCapabilities(capabilities);
        return {{"connected", client.isConnected()},
                {"capabilities", capabilities.size()},
                {"transactions", byNumber(transactions)}};
    }

    /// Of the connections with the references 1 to `limit`; the client gives them out one after the other.
    Json countsOf(const YarrowIClient& client, std::uint32_t limit) const
    {
        constexpr std::uint32_t startUpMbox = 1;
        const VornServerCommonData& data = m_server.commonData();
        std::map<std::string, std::size_t> counts{
            {"startUp", 0}, {"debug", 0}, {"withSession", 0}, {"withoutSession", 0}};
        for (std::uint32_t ref = 1; ref <= limit; ++ref) {
            if (const clientInfo* connection = client.findByConnectionRef(ref)) {
                const std::uint32_t mbox = connection->mboxId;
                ++counts[mbox == startUpMbox                     ? "startUp"
                         : mbox == data.getPrivateMbox()         ? "debug"
                         : data.findVornSession(mbox) != nullptr ? "withSession"
                                                                 : "withoutSession"];
            }
        }
        return counts;
    }

    template <typename Component>
    const Component* find() const
    {
        for (const auto& component : m_server.components()) {
            if (const auto* found = dynamic_cast<const Component*>(component.get())) {
                return found;
            }
        }
        return nullptr;
    }

    Json countsOfSoftware() const
    {
        std::map<std::uint32_t, std::size_t> records;
        if (const auto* software = find<VornServerGanti>()) {
            for (const GantiRequestRecord& record : software->records().all()) {
                ++records[record.req];
            }
        }
        return {{"connected", m_server.commonData().getGANTClient().isConnected()}, {"records", byNumber(records)}};
    }

    Json countsOfRestarts() const
    {
        const auto* restarts = find<VornServerRestart>();
        return {{"ordered", restarts->orderedRestartCount()},
                {"subscribers", restarts->subscriberCount()},
                {"pendingHistories", restarts->pendingHistoryRequestCount()},
                {"granted", restarts->grantedNotifyRestartCount()},
                {"pending", restarts->pendingNotifyRestartCount()}};
    }

    const VornServerImpl& m_server;
};

} // namespace

int main(int /*argc*/, char** argv)
{
    constexpr std::uint32_t expectedMailboxes = 16;
    kiv_init(expectedMailboxes, 0, 0);
    if (kiv_create_mailbox("vornServerStartup") == KIV_NO_MBOX) {
        TRACE_ERROR("ABN: no mailbox \"vornServerStartup\": is there another server in this unit?");
    }
    TRACE_INFO("{} started", argv[0]);
    VornServerImpl server;
    CountsCommand counts(server);
    VornServerUlmo::getInstance().registerCmdHandler("counts", &counts);
    server.start();
    for (;;) {
        kiv_msg* msg = kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER);
        if (msg == nullptr) {
            ::pause();
        }
        kiv_free(msg);
    }
}
