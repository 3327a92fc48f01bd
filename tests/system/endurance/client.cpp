#include "client.h"

#include "vorni/connection.h"
#include "vorni/fruDescription.h"
#include "vorni/restart.h"
#include "vorni/software.h"

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <vector>

namespace Endurance {

volatile std::sig_atomic_t isToldToGo = 0;

namespace {

constexpr std::uint32_t serverGoneMsg = 0x1001; // of its own monitor
constexpr std::int64_t millisecond = second / 1000;
constexpr std::int64_t lookUpEvery = 20 * millisecond;
constexpr std::int64_t timeToBePublished = 30 * second;
constexpr unsigned largestBurst = 4;
constexpr std::uint16_t softwareStore = 1; // as clients number the resources

/// Subscriptions: a second one isn't the same as a first.
constexpr bool isSubscription(ProcedureId id)
{
    return id == subscribeMaintState || id == subscribeHereIAm || id == subscribeOpticalIndicator ||
           id == subscribeRestarts || id == subscribeDeepSleep;
}

} // namespace

Client::Client(Ledger& ledger, const ClientSettings& settings)
    : m_ledger(ledger), m_settings(settings), m_slot(ledger.slots.at(settings.slot)), m_random(settings.seed)
{
    m_way.own = kiv_create_mailbox(m_settings.name.c_str());
    if (m_way.own == KIV_NO_MBOX) {
        throw std::runtime_error("no mailbox " + m_settings.name);
    }
    m_way.clientRef = pick(m_random, 1, 1'000'000);
}

void Client::run()
{
    if (awaitPublished() && connectToServer()) {
        while (isToldToGo == 0 && followServer()) {
            burst();
            if (isTimeFor(m_settings.softwareEvery)) {
                visitSoftwareStore();
            }
            if (isTimeFor(m_settings.restartsEvery)) {
                orderRestarts();
            }
            rest(pick(m_random, 0, 2 * m_settings.pause));
        }
        awaitAll();
    }
    if (m_slot.measuringSince != 0) {
        m_ledger.add({Entry::measuring, measureTemperature, m_slot.measuringSince, now()});
        m_slot.measuringSince = 0;
    }
    ++m_ledger.left;
}

// --- The connection

/// A name that doesn't exist is looked for as a client would that has other things to do meanwhile.
bool Client::awaitPublished()
{
    const std::int64_t end = now() + timeToBePublished;
    m_way.server = kiv_locate("VornServer");
    while (m_way.server == KIV_NO_MBOX && isToldToGo == 0 && now() < end) {
        receiveOne(now() + lookUpEvery);
        m_way.server = kiv_locate("VornServer");
    }
    if (m_way.server != KIV_NO_MBOX) {
        watchServer();
    }
    return m_way.server != KIV_NO_MBOX;
}

void Client::watchServer()
{
    m_isServerGone = false;
    kiv_monitor(m_way.server, kiv_alloc(sizeof(std::uint32_t), serverGoneMsg));
}

bool Client::connectToServer()
{
    const Answer answer = call<OmlaVornConnEstablishReqS>(connect, [](auto& request) { request.protocolRev = 3; });
    m_slot.isConnected = answer == Answer::confirmed;
    return answer == Answer::confirmed;
}

/// A server that is published anew keeps the client's session: the client goes on, asks for its connection again, or
/// goes. False where it goes.
bool Client::followServer()
{
    if (!m_isServerGone) {
        return true;
    }
    awaitAll();
    if (!awaitPublished()) {
        return m_settings.stays;
    }
    const unsigned choice = pick(m_random, 0, 2);
    if (choice == 1) {
        const std::int64_t from = now();
        ++m_ledger.reconnects;
        const bool isConnected = connectToServer();
        m_ledger.add({Entry::reconnected, connect, from, now()});
        return isConnected || m_settings.stays;
    }
    return choice == 0 || m_settings.stays;
}

// --- Requests and answers

bool Client::isOpen(ProcedureId id) const
{
    return std::any_of(m_slot.open.begin(), m_slot.open.end(),
                       [id](const OpenRequest& request) { return request.procedure == id; });
}

bool Client::maySend(ProcedureId id) const
{
    if (id == subscribeFaults && m_sent.count(subscribeFaultsWithLabel) != 0) {
        return false; // it would be ignored
    }
    return !isOpen(id);
}

void Client::note(ProcedureId id)
{
    ProcedureCounts& counts = m_ledger.procedures[id];
    if (isSubscription(id) && m_confirmed.count(id) != 0) {
        ++counts.again;
    }
    ++counts.sent;
    m_sent.insert(id);
    if (procedureOf(id).confirm == 0) {
        return;
    }
    const auto free = std::find_if(m_slot.open.begin(), m_slot.open.end(),
                                   [](const OpenRequest& request) { return request.procedure == OpenRequest::none; });
    if (free == m_slot.open.end()) {
        throw std::logic_error("too many requests at once");
    }
    m_lastAnswer[id] = Answer::none;
    free->sentAt = now();
    free->procedure = id;
    if (id == measureTemperature && m_slot.measuringSince == 0) {
        m_slot.measuringSince = free->sentAt.load();
    }
}

void Client::send(ProcedureId id)
{
    note(id);
    procedureOf(id).send(m_way, m_random);
}

template <typename Record, typename Fill>
Client::Answer Client::call(ProcedureId id, Fill&& fill, std::size_t sizeBehind)
{
    if (m_isServerGone) {
        return Answer::none; // its mailbox is another one when it comes back
    }
    note(id);
    m_way.send<Record>(std::forward<Fill>(fill), sizeBehind);
    return await(id);
}

Client::Answer Client::await(ProcedureId id)
{
    while (isOpen(id)) {
        receiveOne(now() + second / 4);
    }
    return m_lastAnswer[id];
}

void Client::awaitAll()
{
    const auto isWaiting = [this] {
        return std::any_of(m_slot.open.begin(), m_slot.open.end(),
                           [](const OpenRequest& request) { return request.procedure != OpenRequest::none; });
    };
    while (isWaiting()) {
        receiveOne(now() + second / 4);
    }
}

void Client::receiveOne(std::int64_t until)
{
    const std::int64_t left = std::max<std::int64_t>(until - now(), 0);
    const auto milliseconds = static_cast<std::uint32_t>((left + millisecond - 1) / millisecond);
    if (const OwnedMessage signal{kiv_receive(nullptr, milliseconds, KIV_ANY_SENDER)}) {
        receive(*signal);
    }
    giveUpOverdue();
}

void Client::receive(const kiv_msg& signal)
{
    if (signal.number == serverGoneMsg) {
        m_isServerGone = m_isServerGone || kiv_sender(&signal) == m_way.server;
        return;
    }
    for (OpenRequest& request : m_slot.open) {
        const std::uint32_t id = request.procedure;
        if (id != OpenRequest::none &&
            (signal.number == procedureOf(id).confirm || signal.number == procedureOf(id).reject)) {
            takeAnswer(request, signal);
            return;
        }
    }
    if (signal.number == OmlaVornFruDescFileDataS::number) {
        acknowledgeFruDescription(signal);
    } else if (signal.number == OmlaVornSwCompListDataS::number) {
        const auto* part = viewSignal<OmlaVornSwCompListDataS>(&signal);
        m_isListOver = part == nullptr || part->endFlag != 0;
        m_way.send<OmlaVornSwCompListAckS>([](auto&) {});
    }
    const auto isAnswer = [&](const Procedure& row) {
        return signal.number != 0 && (signal.number == row.confirm || signal.number == row.reject);
    };
    const auto unasked = std::find_if(procedures().begin(), procedures().end(), isAnswer);
    if (unasked == procedures().end()) {
        ++m_ledger.indications;
    } else if (!m_missed[unasked->id]) {
        ++m_ledger.unasked;
        m_ledger.unaskedNumber = signal.number;
    } else if (signal.number == OmlaVornAcquireResourceCfmS::number) {
        m_way.send<OmlaVornReleaseResourceReqS>([](auto& request) { request.resource = softwareStore; });
    }
}

void Client::takeAnswer(OpenRequest& request, const kiv_msg& signal)
{
    const auto id = static_cast<ProcedureId>(request.procedure.load());
    const Answer answer = signal.number == procedureOf(id).confirm ? Answer::confirmed : Answer::rejected;
    ProcedureCounts& counts = m_ledger.procedures[id];
    ++(answer == Answer::confirmed ? counts.confirmed : counts.rejected);
    m_lastAnswer[id] = answer;
    if (answer == Answer::confirmed) {
        m_confirmed.insert(id);
    }
    follow(id, answer, signal);
    request.procedure = OpenRequest::none;
}

/// What later requests depend on.
void Client::follow(ProcedureId id, Answer answer, const kiv_msg& signal)
{
    if (id == connect && answer == Answer::confirmed) {
        const auto* confirm = viewSignal<OmlaVornConnEstablishCfmS>(&signal);
        m_way.serverRef = confirm != nullptr ? confirm->header.serverRef.value() : 0;
    } else if (id == beginLoad && answer == Answer::confirmed) {
        const auto* confirm = viewSignal<OmlaVornLoadLmcInitCfmS>(&signal);
        m_loadInitResult = confirm != nullptr ? confirm->loadInitResult.value() : 1;
    }
}

void Client::giveUpOverdue()
{
    for (OpenRequest& request : m_slot.open) {
        const std::uint32_t id = request.procedure;
        const std::int64_t end = request.sentAt + (id != OpenRequest::none ? timeForAnswer(id) : 0);
        if (id != OpenRequest::none && now() > end) {
            m_ledger.add({Entry::unanswered, id, request.sentAt, end});
            m_missed[id] = true;
            request.procedure = OpenRequest::none;
        }
    }
}

/// The file is one for all clients: whoever acknowledges gets the next part.
void Client::acknowledgeFruDescription(const kiv_msg& part)
{
    const auto* data = viewSignal<OmlaVornFruDescFileDataS>(&part);
    if (data != nullptr && data->endFlag == 0) {
        m_way.send<OmlaVornFruDescFileAckS>([](auto&) {});
    }
}

void Client::rest(unsigned milliseconds)
{
    const std::int64_t end = now() + milliseconds * millisecond;
    while (now() < end && isToldToGo == 0) {
        receiveOne(end);
    }
}

// --- What it does

void Client::burst()
{
    const unsigned count = pick(m_random, 1, largestBurst);
    for (unsigned i = 0; i < count; ++i) {
        const ProcedureId id = choose();
        const bool hasRoom = std::count_if(m_slot.open.begin(), m_slot.open.end(), [](const OpenRequest& request) {
                                 return request.procedure == OpenRequest::none;
                             }) > 2; // for what comes behind
        if (hasRoom && maySend(id)) {
            send(id);
        }
    }
}

ProcedureId Client::choose()
{
    static const auto distribution = [] {
        std::vector<double> weights;
        std::transform(procedures().begin(), procedures().end(), std::back_inserter(weights),
                       [](const Procedure& row) { return row.weight; });
        return std::discrete_distribution<std::uint32_t>(weights.begin(), weights.end());
    }();
    auto choice = distribution;
    return static_cast<ProcedureId>(choice(m_random));
}

/// Once in so many milliseconds, asked once in a pause.
bool Client::isTimeFor(unsigned every)
{
    return pick(m_random, 0, std::max(every / std::max(m_settings.pause, 1U), 1U)) == 0;
}

/// All that needs the software store, under a ticket.
void Client::visitSoftwareStore()
{
    const auto ofStore = [](auto& request) { request.resource = softwareStore; };
    if (isOpen(acquireResource) || m_missed[acquireResource] || m_missed[releaseResource] ||
        call<OmlaVornAcquireResourceReqS>(acquireResource, ofStore) != Answer::confirmed) {
        return;
    }
    const std::string module = fmt::format("CXP90{:02}_R1A", pick(m_random, 1, 8));
    switch (pick(m_random, 0, 3)) {
    case 0:
        load(module);
        break;
    case 1:
        list();
        break;
    case 2:
        call<OmlaVornSelectLmcReqS>(
            selectLmc,
            [&](auto& request) { module.copy(reinterpret_cast<char*>(&request) + sizeof(request), module.size()); },
            module.size() + 1);
        break;
    default:
        break;
    }
    if (!m_isServerGone || awaitPublished()) { // else the ticket goes with the session
        call<OmlaVornReleaseResourceReqS>(releaseResource, ofStore);
    }
}

void Client::load(const std::string& module)
{
    constexpr std::size_t blockSize = 4096;
    const auto name = [&](auto& request) {
        module.copy(reinterpret_cast<char*>(&request) + sizeof(request), module.size());
    };
    if (call<OmlaVornLoadLmcInitReqS>(beginLoad, name, module.size() + 1) != Answer::confirmed ||
        m_loadInitResult != 0) {
        return;
    }
    const unsigned blocks = pick(m_random, 1, 20);
    for (unsigned i = 0; i < blocks; ++i) {
        const auto fill = [i](auto& block) {
            block.lmSeqNr = static_cast<std::uint16_t>(i);
            block.noOfBytes = blockSize;
        };
        if (call<OmlaVornLoadLmcDataS>(loadBlock, fill, blockSize) != Answer::confirmed) {
            return;
        }
    }
    if (pick(m_random, 0, 4) != 0) { // else the release ends it
        call<OmlaVornLoadLmcEndReqS>(endLoad, [](auto&) {});
    }
}

void Client::list()
{
    m_isListOver = false;
    if (call<OmlaVornSwCompListReqS>(listSoftware, [](auto&) {}) != Answer::confirmed) {
        return;
    }
    const std::int64_t end = now() + timeForAnswer(listSoftware);
    while (!m_isListOver && now() < end) {
        receiveOne(now() + second / 4);
    }
}

/// Seldom: the board tells each subscription of each restart, and the server tells each of these to all subscribers.
void Client::orderRestarts()
{
    if (maySend(subscribeRestarts)) {
        send(subscribeRestarts);
        await(subscribeRestarts);
    }
    send(orderRestart);
    send(orderRestartWithRank);
}

} // namespace Endurance
