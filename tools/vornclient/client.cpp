#include "vornclient/client.h"

#include "rhune/rhuneSignals.h"
#include "vornclient/clientHub.h"
#include "vorni/connection.h"
#include "vorni/faults.h"
#include "vorni/software.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <system_error>
#include <utility>

namespace VornClient {

namespace {

constexpr std::size_t inboxSignals = 10000;
constexpr std::size_t inboxBytes = 64U << 20U;

} // namespace

void Inbox::add(Signal signal)
{
    signal.sequence = m_nextSequence++;
    m_bytes += signal.bytes.size();
    m_signals.push_back(std::move(signal));
    while (m_signals.size() > inboxSignals || (m_bytes > inboxBytes && m_signals.size() > 1)) {
        m_bytes -= m_signals.front().bytes.size();
        m_signals.pop_front();
    }
}

std::optional<Signal> Inbox::take(const std::function<bool(const Signal&)>& predicate, std::uint64_t since)
{
    const auto found = std::find_if(m_signals.begin(), m_signals.end(), [&](const Signal& signal) {
        return signal.sequence >= since && predicate(signal);
    });
    if (found == m_signals.end()) {
        return std::nullopt;
    }
    Signal signal = std::move(*found);
    m_bytes -= signal.bytes.size();
    m_signals.erase(found);
    return signal;
}

void Inbox::clear()
{
    m_signals.clear();
    m_bytes = 0;
}

std::vector<std::byte> connectRequest(const ClientSettings& settings)
{
    return makeSignal<OmlaVornConnEstablishReqS>(settings.references,
                                                 [&](auto& request) { request.protocolRev = settings.protocolRev; });
}

Client::Client(ClientHub& hub, ClientSettings settings)
    : m_hub(hub), m_settings(std::move(settings)), m_references(m_settings.references)
{
}

Client::~Client()
{
    close();
}

std::string Client::open()
{
    if (m_mailbox != KIV_NO_MBOX) {
        return {};
    }
    m_mailbox = kiv_clone_mailbox(m_hub.mailbox(), m_settings.mailboxName.c_str());
    if (m_mailbox != KIV_NO_MBOX) {
        return {};
    }
    return fmt::format("mailbox \"{}\" can't be made: {}", m_settings.mailboxName,
                       std::generic_category().message(errno));
}

void Client::close()
{
    if (m_mailbox != KIV_NO_MBOX) {
        kiv_delete_mailbox(std::exchange(m_mailbox, KIV_NO_MBOX));
    }
    m_isConnected = false;
    m_isSubscribedToFaults = false;
    m_heldResources.clear();
    m_references = m_settings.references;
    m_inbox.clear();
    m_faults.clear();
    m_panel.clear();
}

References Client::nextReferences()
{
    if (m_settings.protocol == Vorni::Protocol::rhune) {
        ++m_references.clientRef;
    }
    return m_references;
}

std::string Client::send(std::vector<std::byte> bytes)
{
    const ServerMailbox& server = m_hub.serverFor(m_settings.protocol);
    if (server.id == KIV_NO_MBOX) {
        return fmt::format("\"{}\" isn't published", server.name);
    }
    if (std::string hindrance = open(); !hindrance.empty()) {
        return hindrance;
    }
    std::uint32_t number = 0;
    std::memcpy(&number, bytes.data(), sizeof(number));
    kiv_msg* msg = kiv_alloc(static_cast<std::uint32_t>(bytes.size()), number);
    if (msg == nullptr) {
        return "there is no memory for the signal";
    }
    std::memcpy(msg, bytes.data(), bytes.size());
    const Signal sent{std::move(bytes), server.id, true, std::chrono::system_clock::now(), 0, server.name};
    kiv_send(&msg, sent.peer, m_mailbox);
    m_hub.listener().onSent(*this, sent);
    return {};
}

void Client::receive(Signal signal)
{
    followConnection(signal);
    if (const auto number = signal.number(); number == OmlaVornSubscribeFaultsCfmS::number ||
                                             number == OmlaVornSubscribeFaultsWithHwFaultLabelCfmS::number) {
        m_isSubscribedToFaults = m_isConnected;
    }
    followResources(signal);
    m_hub.listener().onReceived(*this, signal);
    // Faults come from another mailbox than the one whose end is the end of the connection, and thus behind it too.
    const bool isBelieved = m_isConnected && signal.peerName != nullptr;
    if (const auto change = isBelieved ? m_faults.apply(signal) : std::nullopt) {
        m_hub.listener().onFaultChange(*this, *change);
    }
    if (isBelieved) {
        m_panel.apply(signal);
    }
    m_inbox.add(std::move(signal));
}

void Client::followConnection(const Signal& signal)
{
    const Vorni::DecodedSignal decoded = signal.decode();
    if (m_settings.protocol == Vorni::Protocol::rhune) {
        followRhuneConnection(decoded);
    } else if (decoded.number == OmlaVornConnEstablishCfmS::number) {
        m_isConnected = true;
        if (!decoded.references.empty()) {
            m_references.serverRef = decoded.references.back().value;
        }
    } else if (decoded.number == OmlaVornConnEstablishRejS::number) {
        loseConnection();
    }
}

/// A reject leaves a connection that is there as it is: each request asks for one more.
void Client::followRhuneConnection(const Vorni::DecodedSignal& signal)
{
    if (signal.references.empty()) {
        return;
    }
    if (signal.number == RhuneVornConnEstablishCfmS::number) {
        m_isConnected = true;
        m_references.serverRef = signal.references.back().value;
    } else if (signal.number == RhuneVornConnCloseCfmS::number) {
        loseConnection();
        m_references.serverRef = m_settings.references.serverRef;
    }
}

void Client::followResources(const Signal& signal)
{
    if (signal.number() == OmlaVornAcquireResourceCfmS::number) {
        if (const auto granted = recordOf<OmlaVornAcquireResourceCfmS>(signal); granted && m_isConnected) {
            std::erase(m_heldResources, granted->resource.value());
            m_heldResources.push_back(granted->resource);
        }
    } else if (signal.number() == OmlaVornReleaseResourceCfmS::number) {
        if (const auto released = recordOf<OmlaVornReleaseResourceCfmS>(signal)) {
            std::erase(m_heldResources, released->resource.value());
        }
    }
}

void Client::loseConnection()
{
    m_isConnected = false;
    m_isSubscribedToFaults = false;
    m_heldResources.clear();
    m_panel.clear();
    if (m_faults.clear()) {
        m_hub.listener().onFaultChange(*this, {FaultEvent::cleared, {}});
    }
}

} // namespace VornClient
