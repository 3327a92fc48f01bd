/// What a run is judged by.

#include "kiv/kiv.h"
#include "play.h"
#include "rhune/rhuneSignals.h"
#include "vorni/access.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>

namespace Endurance {

namespace {

constexpr double kibibyte = 1024;
constexpr double warmUp = 60;               // seconds
constexpr double mostHeap = 256 * kibibyte; // tables and buffers that a crowd makes grow once
constexpr double shortestForSlope = 240;    // seconds; in a shorter run the noise is more than the slope
constexpr double mostSlope = 64 * kibibyte; // a minute
constexpr double mostGrowth = 1024 * kibibyte;
constexpr std::size_t mostMissingShown = 20;

Check atMost(const char* what, std::uint64_t found, std::uint64_t most)
{
    return {what, std::to_string(found), most == 0 ? "0" : fmt::format("at most {}", most), found <= most};
}

} // namespace

bool Result::holds() const
{
    return std::all_of(checks.begin(), checks.end(), [](const Check& check) { return check.holds; }) &&
           std::all_of(remains.begin(), remains.end(), [](const Remaining& row) { return row.holds(); });
}

Result Play::judge()
{
    Result result;
    result.settings = m_settings;
    result.seconds = elapsed();
    result.clientsStarted = m_crowd->started();
    result.clientsKilled = m_crowd->killed();
    result.indications = m_ledger->indications;
    for (unsigned i = 0; i < backEndCount; ++i) {
        result.losses[i] = m_outages.count(static_cast<BackEnd>(i));
    }
    result.memory = m_samples;
    judgeAnswers(result);
    judgeRemains(result);
    judgeProcess(result);
    judgeMemory(result);
    return result;
}

/// A client that was killed is owed nothing, and nobody is where a server that the answer needs was away.
void Play::judgeAnswers(Result& result) const
{
    for (const ProcedureCounts& counts : m_ledger->procedures) {
        result.requests += counts.sent;
        result.answers += counts.confirmed + counts.rejected;
    }
    for (std::uint32_t i = 0; i < m_ledger->entriesKept(); ++i) {
        const Entry& entry = m_ledger->entries[i];
        if (entry.kind != Entry::unanswered) {
            continue;
        }
        if (m_outages.overlap(needsOf(entry.procedure), entry.from, entry.to)) {
            ++result.notOwed;
        } else {
            result.missing.push_back(fmt::format("{} sent at {:.3f} s", procedureOf(entry.procedure).name,
                                                 static_cast<double>(entry.from - m_start) / second));
        }
    }
    result.checks.push_back(atMost("answers that were owed and didn't come", result.missing.size(), 0));
    result.missing.resize(std::min(result.missing.size(), mostMissingShown));
    result.checks.push_back(atMost("answers that nobody had asked for", m_ledger->unasked, 0));
    result.checks.push_back(
        atMost("answers that RHUNE clients were owed and didn't get", m_ledger->rhuneUnanswered, 0));
    result.checks.push_back(atMost("clients that ended with an error", m_crowd->failures().size(), 0));
    result.checks.push_back(atMost("clients that didn't go when told to", m_notGone, 0));
    result.checks.push_back({"entries in the ledger", std::to_string(m_ledger->entryCount),
                             fmt::format("fewer than {}", Ledger::maxEntries),
                             m_ledger->entryCount < Ledger::maxEntries});
}

void Play::judgeRemains(Result& result) const
{
    const Json counts = m_programs.counts(highestConnection());
    const Evidence evidence{*m_ledger, m_outages};
    result.remains = remainsOf(counts, evidence);
    result.remains.insert(result.remains.end(), m_deepSleepRemains.begin(), m_deepSleepRemains.end());
    const auto ofConnections = [&](const char* part, BackEnd backEnd, std::uint64_t each) {
        const std::uint64_t connections = 1 + m_outages.count(backEnd);
        result.remains.push_back({fmt::format("{}: capabilities", part),
                                  counts[part]["capabilities"],
                                  {each, each * connections},
                                  "each connection adds those that the server tells to the ones before"});
    };
    ofConnections("dunl", dunl, m_capabilitiesOfDunl);
    ofConnections("fesk", fesk, m_capabilitiesOfFesk);
    result.checks.push_back(atMost("sessions", counts["sessions"], 0));
    result.checks.push_back(atMost("forward mailboxes", counts["forwardMailboxes"], 0));
    result.checks.push_back(atMost("subscribers to faults", m_programs.faultSubscribers(), 0));
    result.checks.push_back(atMost("RHUNE connections", rhuneConnectionsLeft(), 0));
}

/// A connection that is closed is answered: so one that has gone isn't.
std::uint64_t Play::rhuneConnectionsLeft() const
{
    const kiv_mbox_id_t server = kiv_locate("private_VornServer");
    const auto ask = [server](std::uint32_t connectionRef) {
        NewSignal<RhuneVornConnCloseReqS> request(0, connectionRef);
        request.send(server, kiv_current_mbox());
    };
    for (std::uint32_t ref = 0; ref <= m_ledger->rhuneHighest; ++ref) {
        ask(ref);
    }
    // Behind all of these an answer that always comes.
    NewSignal<RhuneVornConnEstablishReqS> last(0, 0);
    last.send(server, kiv_current_mbox());
    std::uint64_t left = 0;
    const std::int64_t end = now() + 10 * second;
    while (now() < end) {
        const OwnedMessage message{kiv_receive(nullptr, 1000, KIV_ANY_SENDER)};
        if (message != nullptr && message->number == RhuneVornConnEstablishRejS::number) {
            return left;
        }
        left += message != nullptr && message->number == RhuneVornConnCloseCfmS::number ? 1 : 0;
    }
    return left + 1;
}

/// The mailboxes that weren't there before the first client, and aren't the board's.
std::vector<std::string> Play::leftoverMailboxes() const
{
    std::vector<std::string> names = livingMailboxes(m_programs.directory());
    std::erase_if(names, [this](const std::string& name) {
        return std::binary_search(m_mailboxesAtStart.begin(), m_mailboxesAtStart.end(), name);
    });
    return names;
}

void Play::judgeProcess(Result& result) const
{
    const KernelView view = kernelViewOf(m_programs.server().pid());
    result.checks.push_back(atMost("descriptors of the server", view.descriptors, m_kernelAtStart.descriptors));
    result.checks.push_back(atMost("sockets among them", view.sockets, m_kernelAtStart.sockets));
    result.checks.push_back(atMost("threads of the server", view.threads, m_kernelAtStart.threads));
    const std::vector<std::string> mailboxes = leftoverMailboxes();
    result.checks.push_back({"mailboxes of the unit besides those at the start",
                             mailboxes.empty() ? "0" : fmt::format("{}", fmt::join(mailboxes, " ")), "0",
                             mailboxes.empty()});
    const std::string complaints = m_programs.complaints();
    result.checks.push_back(
        {"complaints in the programs' output", complaints.empty() ? "none" : complaints, "none", complaints.empty()});
}

void Play::judgeMemory(Result& result) const
{
    const double length = m_settings.minutes * 60;
    result.trend = trendOf(m_samples, std::min(warmUp, length / 2));
    if (m_settings.isSmoke) {
        return;
    }
    const Json counts = m_programs.counts(0);
    const double heap = counts["heap"].get<double>() - memoryOfRemains(counts) - m_heapAtStart;
    const auto rounded = [](double bytes) { return fmt::format("{:.0f} KiB", bytes / kibibyte); };
    result.checks.push_back({"heap in use beyond that before the first client, without what stays", rounded(heap),
                             "at most " + rounded(mostHeap), heap <= mostHeap});
    if (length >= shortestForSlope) {
        result.checks.push_back({"slope of the server's memory without what stays, a minute",
                                 rounded(result.trend.slope), "at most " + rounded(mostSlope),
                                 result.trend.slope <= mostSlope});
    }
    result.checks.push_back({"growth of the server's memory without what stays", rounded(result.trend.growth),
                             "at most " + rounded(mostGrowth), result.trend.growth <= mostGrowth});
}

} // namespace Endurance
