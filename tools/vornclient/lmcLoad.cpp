#include "vornclient/lmcLoad.h"

#include "vornclient/capabilityList.h"
#include "vorni/software.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <limits>
#include <utility>

namespace VornClient {

namespace {

constexpr std::uint32_t largestBlock = KIV_MAX_SIZE - sizeof(OmlaVornLoadLmcDataS);
constexpr std::int64_t defaultBlockSize = 16 << 10;
constexpr std::uint16_t defaultWindow = 16;

// What waits for a server that takes nothing is bounded, and a client that goes beyond is cut off; half of that.
constexpr std::int64_t mostInFlight = 32 << 20;

// What the server passes on goes through a socket, and what that doesn't hold is lost. This much always fits.
constexpr std::uint64_t safelyInFlight = 256U << 10U;

constexpr std::uint16_t dataMayFollow = 0;
constexpr std::uint16_t isLoaded = 1;
constexpr std::uint16_t isRunning = 2;
constexpr std::uint16_t isCompleted = 0;

/// Reads the options and gives the words that are none.
std::vector<std::string> parseOptions(Words words, LoadSettings& settings)
{
    std::vector<std::string> others;
    for (std::size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        if (!word.starts_with("--")) {
            others.push_back(word);
            continue;
        }
        if (at + 1 == words.size()) {
            throw BadUsage(fmt::format("{} isn't an option, or needs a value", word));
        }
        const std::string& value = words[++at];
        if (word == "--name") {
            settings.loadModule = value;
        } else if (word == "--block") {
            settings.blockSize = static_cast<std::uint32_t>(parseNumber(value, largestBlock));
        } else if (word == "--window") {
            settings.window = static_cast<std::uint16_t>(parseNumber(value, widestWindow));
        } else if (word == "--break-off-after") {
            settings.breakOffAfter = parseNumber(value);
        } else {
            throw BadUsage(fmt::format("there is no option {}", word));
        }
    }
    return others;
}

bool isAcknowledgement(const Signal& signal)
{
    return signal.number() == OmlaVornLoadLmcAckS::number;
}

bool wasGiven(Words words, const char* option)
{
    return std::find(words.begin(), words.end(), option) != words.end();
}

void checkSizes(const LoadSettings& settings)
{
    if (settings.blockSize == 0U || settings.window == 0U) {
        throw BadUsage("a block has a byte at least, and a window a block");
    }
    const std::int64_t window = settings.window.value_or(1);
    if (window > 1 && window * settings.blockSize.value_or(1) > mostInFlight) {
        throw BadUsage(fmt::format("more than {} MiB would be in flight", mostInFlight >> 20));
    }
}

} // namespace

LoadSettings parseLoadSettings(Words words)
{
    LoadSettings settings;
    const std::vector<std::string> files = parseOptions(words, settings);
    requireWords(files, 1, 1);
    settings.file = files.front();
    if (!wasGiven(words, "--name")) {
        settings.loadModule = std::filesystem::path(settings.file).stem();
    }
    if (settings.loadModule.empty() || settings.loadModule.size() > longestLoadModule) {
        throw BadUsage(fmt::format("a load module's name has 1 to {} characters, \"{}\" has {}: --name gives another",
                                   longestLoadModule, settings.loadModule, settings.loadModule.size()));
    }
    checkSizes(settings);
    return settings;
}

BlockSizes chooseSizes(const LoadSettings& settings, std::optional<std::int64_t> unitBlockSize)
{
    const std::int64_t wanted = unitBlockSize.value_or(0) > 0 ? *unitBlockSize : defaultBlockSize;
    const std::int64_t most = settings.window.value_or(1) > 1 ? mostInFlight / *settings.window : largestBlock;
    BlockSizes sizes;
    sizes.blockSize =
        settings.blockSize.value_or(static_cast<std::uint32_t>(std::min({wanted, most, std::int64_t{largestBlock}})));
    const std::uint64_t safeWindow = std::max<std::uint64_t>(safelyInFlight / sizes.blockSize, 1);
    sizes.window =
        settings.window.value_or(static_cast<std::uint16_t>(std::min<std::uint64_t>(defaultWindow, safeWindow)));
    return sizes;
}

std::uint16_t BlockWindow::add(std::uint32_t bytes)
{
    m_blocks.push_back({bytes, false});
    return static_cast<std::uint16_t>(++m_added);
}

std::uint32_t BlockWindow::acknowledge(std::uint16_t number)
{
    const auto place = static_cast<std::uint16_t>(number - static_cast<std::uint16_t>(oldest()));
    if (place >= m_blocks.size() || m_blocks[place].isAcknowledged) {
        return 0;
    }
    const std::uint32_t bytes = m_blocks[place].bytes;
    m_blocks[place].isAcknowledged = true;
    while (!m_blocks.empty() && m_blocks.front().isAcknowledged) {
        m_blocks.pop_front();
    }
    return bytes;
}

LmcLoad::LmcLoad(CommandContext& context, LoadSettings settings)
    : m_context(context), m_client(context.client()), m_settings(std::move(settings))
{
    std::error_code error;
    const auto kind = std::filesystem::status(m_settings.file, error).type();
    if (kind == std::filesystem::file_type::not_found) {
        throw BadUsage(fmt::format("there is no file {}", m_settings.file));
    }
    if (kind != std::filesystem::file_type::regular) {
        throw BadUsage(fmt::format("{} isn't a file", m_settings.file));
    }
    m_file.open(m_settings.file, std::ios::binary);
    m_toSend = std::filesystem::file_size(m_settings.file, error);
    if (!m_file || error) {
        throw BadUsage(fmt::format("{} can't be read", m_settings.file));
    }
    if (m_toSend == 0) {
        throw BadUsage(fmt::format("{} is empty", m_settings.file));
    }
    m_toSend = std::min(m_toSend, m_settings.breakOffAfter.value_or(m_toSend));
    m_summary.loadModule = m_settings.loadModule;
}

/// Acknowledgements that come late are nobody's.
LmcLoad::~LmcLoad()
{
    m_context.printer().endLoad();
    m_context.printer().endProgress();
    while (m_client.inbox().take(isAcknowledgement, m_mark)) {
    }
}

Outcome LmcLoad::run()
{
    Outcome outcome = settleSizes();
    if (outcome.verdict == Verdict::ok) {
        outcome = begin();
    }
    if (outcome.verdict != Verdict::ok || !m_isOpen) {
        return outcome;
    }
    m_context.printer().beginLoad(m_client);
    outcome = sendAll();
    m_context.printer().endProgress();
    m_summary.time = Clock::now() - m_begin;
    if (outcome.verdict != Verdict::ok || m_settings.breakOffAfter) {
        m_summary.result = LoadResult::brokenOff;
        return outcome;
    }
    return end();
}

/// A client that isn't connected doesn't ask: its load is refused anyway.
Outcome LmcLoad::settleSizes()
{
    std::vector<Capability> capabilities;
    if (!m_settings.blockSize) {
        Outcome outcome = m_context.beConnected();
        if (outcome.verdict == Verdict::ok && m_client.isConnected()) {
            outcome = fetchCapabilities(m_context, capabilities);
        }
        if (outcome.verdict != Verdict::ok) {
            return outcome;
        }
    }
    m_sizes = chooseSizes(m_settings, loadingBlockSize(capabilities));
    m_window = BlockWindow(m_sizes.window);
    return {};
}

Outcome LmcLoad::begin()
{
    Outcome outcome = m_context.requestSignal(
        {OmlaVornLoadLmcInitCfmS::number, OmlaVornLoadLmcInitRejS::number}, [&](const References& references) {
            m_isOpen = true; // also where the answer doesn't come
            return makeSignalWithText<OmlaVornLoadLmcInitReqS>(references, m_settings.loadModule);
        });
    if (outcome.verdict != Verdict::ok) {
        m_isOpen = m_isOpen && outcome.verdict != Verdict::rejected;
        return outcome;
    }
    const std::uint16_t result = recordOf<OmlaVornLoadLmcInitCfmS>(*outcome.answer)->loadInitResult;
    m_isOpen = result == dataMayFollow;
    if (result == isLoaded || result == isRunning) {
        m_summary.result = result == isLoaded ? LoadResult::alreadyLoaded : LoadResult::running;
    } else if (result != dataMayFollow) {
        outcome.verdict = Verdict::failed;
        outcome.message = "the answer says nothing that is known: " + outcome.answer->print();
    }
    m_mark = m_client.inbox().nextSequence();
    m_losses = m_context.hub().serverLosses();
    m_begin = Clock::now();
    m_nextProgress = m_begin;
    return outcome;
}

/// As long as there is room in the window blocks are sent, then an acknowledgement makes room.
Outcome LmcLoad::sendAll()
{
    Outcome outcome;
    while (outcome.verdict == Verdict::ok && (left() > 0 || !m_window.isEmpty())) {
        if (m_context.hub().isInterrupted()) {
            outcome = unacknowledged(Verdict::interrupted, "interrupted");
        } else if (left() > 0 && !m_window.isFull()) {
            outcome = sendBlock();
        } else {
            outcome = awaitAcknowledgement();
        }
    }
    return outcome;
}

Outcome LmcLoad::sendBlock()
{
    const auto size = static_cast<std::uint32_t>(std::min<std::uint64_t>(m_sizes.blockSize, left()));
    auto bytes = makeSignal<OmlaVornLoadLmcDataS>(
        m_client.references(),
        [&](auto& data) {
            data.lmSeqNr = static_cast<std::uint16_t>(m_window.added() + 1);
            data.noOfBytes = size;
        },
        size);
    m_file.read(reinterpret_cast<char*>(bytes.data()) + sizeof(OmlaVornLoadLmcDataS), size);
    if (!m_file) {
        return unacknowledged(Verdict::failed, fmt::format("{} ends or can't be read before byte {} of {}",
                                                           m_settings.file, m_sent + size, m_toSend));
    }
    if (std::string hindrance = m_client.send(std::move(bytes)); !hindrance.empty()) {
        return unacknowledged(Verdict::noServer, hindrance);
    }
    if (m_window.isEmpty()) {
        m_oldestSince = Clock::now();
    }
    m_window.add(size);
    m_sent += size;
    ++m_summary.blocks;
    return {};
}

Outcome LmcLoad::awaitAcknowledgement()
{
    const auto timeout = m_context.options().answerTimeout;
    ClientHub& hub = m_context.hub();
    const auto hasNews = [&] { return takeAcknowledgements() || hub.serverLosses() != m_losses; };
    const WaitResult result = hub.waitUntil(hasNews, m_oldestSince + timeout, [&](auto) { showProgress(); });
    if (hub.serverLosses() != m_losses) {
        return unacknowledged(Verdict::noServer, fmt::format("\"{}\" went away", ClientHub::serverName));
    }
    if (result == WaitResult::interrupted) {
        return unacknowledged(Verdict::interrupted, "interrupted");
    }
    if (result == WaitResult::timedOut) {
        return unacknowledged(Verdict::timedOut,
                              fmt::format("block {} (lmSeqNr {}) wasn't acknowledged within {}", m_window.oldest(),
                                          static_cast<std::uint16_t>(m_window.oldest()), printSeconds(timeout)));
    }
    showProgress();
    return {};
}

/// Takes all that have come. Returns whether one of them was for a block in flight.
bool LmcLoad::takeAcknowledgements()
{
    const std::uint64_t oldest = m_window.oldest();
    const std::uint64_t before = m_summary.bytes;
    while (const auto signal = m_client.inbox().take(isAcknowledgement, m_mark)) {
        if (const auto acknowledgement = recordOf<OmlaVornLoadLmcAckS>(*signal)) {
            m_summary.bytes += m_window.acknowledge(acknowledgement->lmSeqNr);
        }
    }
    if (m_window.oldest() != oldest) {
        m_oldestSince = Clock::now();
    }
    return m_summary.bytes != before;
}

Outcome LmcLoad::end()
{
    Outcome outcome =
        m_context.request<OmlaVornLoadLmcEndReqS>({OmlaVornLoadLmcEndCfmS::number, OmlaVornLoadLmcEndRejS::number});
    m_summary.time = Clock::now() - m_begin;
    if (outcome.verdict != Verdict::ok) {
        return outcome;
    }
    m_isOpen = false;
    if (recordOf<OmlaVornLoadLmcEndCfmS>(*outcome.answer)->loadResult != isCompleted) {
        outcome.verdict = Verdict::failed;
        outcome.message = fmt::format("the unit has all {} bytes and says that the load has failed: {}",
                                      m_summary.bytes, outcome.answer->print());
    }
    return outcome;
}

Outcome LmcLoad::unacknowledged(Verdict verdict, const std::string& what) const
{
    return {verdict, fmt::format("{}; {} of {} bytes were acknowledged", what, m_summary.bytes, m_toSend), {}};
}

void LmcLoad::showProgress()
{
    constexpr std::chrono::milliseconds period{200};
    const Clock::time_point now = Clock::now();
    if (now >= m_nextProgress) {
        m_context.printer().progress(
            printLoadProgress(m_settings.loadModule, m_summary.bytes, m_toSend, now - m_begin));
        m_nextProgress = now + period;
    }
}

} // namespace VornClient
