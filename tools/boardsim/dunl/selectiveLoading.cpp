#include "tools/boardsim/dunl/selectiveLoading.h"

#include "dunl/dunl.pb.h"
#include "ostinel/eventLoop.h"

#include <chrono>
#include <utility>

namespace boardsim {

namespace {

using Ostinel::EventLoop::V1::EventLoopIf;

constexpr std::size_t maxWaiting = 4096;
constexpr std::uint32_t validationFailed = 1;

} // namespace

void SelectiveLoading::devicesInitialized(const Connection& connection,
                                          const tolme::dunl::ConnectedDevicesInitializedReq&,
                                          tolme::dunl::ConnectedDevicesInitializedCfm&)
{
    if (m_waiting.size() < maxWaiting) {
        m_waiting.push_back(connection);
    }
    tellSoon();
}

/// Behind the confirm that is being made.
void SelectiveLoading::tellSoon()
{
    EventLoopIf::getInstance().removeTimer(m_timer);
    m_timer = EventLoopIf::getInstance().addTimer(std::chrono::microseconds(0), [this] {
        m_timer = 0;
        tell();
    });
}

void SelectiveLoading::tell()
{
    if (m_areDevicesUp) {
        for (const Connection& connection : std::exchange(m_waiting, {})) {
            m_indicate(connection, tolme::dunl::ConnectedDevicesInitializedInd());
        }
    }
}

Verdict SelectiveLoading::validate(const Connection&, const tolme::dunl::ValidateHwSwCompatibilityReq& request,
                                   tolme::dunl::ValidateHwSwCompatibilityCfm& confirm,
                                   tolme::dunl::ValidateHwSwCompatibilityRej&)
{
    if (!m_isCompatible) {
        return Verdict::reject;
    }
    confirm.set_software(m_name.empty() ? request.software() : m_name);
    return Verdict::confirm;
}

void SelectiveLoading::prepareReject(Message& reject) const
{
    if (auto* validation = dynamic_cast<tolme::dunl::ValidateHwSwCompatibilityRej*>(&reject)) {
        validation->set_error_type(validationFailed);
    }
}

void SelectiveLoading::connectionLost(const Connection& connection)
{
    std::erase_if(m_waiting, [&](const Connection& waiting) { return waiting.ref == connection.ref; });
}

std::vector<CommandRow> SelectiveLoading::commands()
{
    return {
        {"devices { up | down }", "the connected devices; while they are down, nobody is told that they are up",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             if (args[0] != "up" && args[0] != "down") {
                 throw CommandError("up or down");
             }
             m_areDevicesUp = args[0] == "up";
             tell();
         }},
        {"compatibility { ok | failed | <name> }", "whether the software fits the hardware, and the name it goes by",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             m_isCompatible = args[0] != "failed";
             m_name = args[0] == "ok" || args[0] == "failed" ? "" : args[0];
         }},
    };
}

void SelectiveLoading::reset()
{
    EventLoopIf::getInstance().removeTimer(m_timer);
    m_timer = 0;
    m_waiting.clear();
}

void SelectiveLoading::show(Json& server) const
{
    Json& loading = server["selectiveLoading"];
    loading["devices"] = m_areDevicesUp ? "up" : "down";
    loading["waiting"] = m_waiting.size();
    loading["compatibility"] = m_isCompatible ? m_name.empty() ? "ok" : m_name : "failed";
}

} // namespace boardsim
