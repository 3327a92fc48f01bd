/// The throughput of loads, and whether the server's memory stays as it is during a long one.

#include "load.h"

#include "ploe/ploe.h"
#include "results.h"
#include "unit.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <vector>

namespace Bench {

void Load::run(const LoadShape& shape, unsigned blocks)
{
    const unsigned ahead = std::min(shape.window, blocks);
    for (unsigned sent = 0; sent < ahead; ++sent) {
        sendBlock(m_nextSent++, shape.blockSize);
    }
    for (unsigned acknowledged = 0; acknowledged < blocks; ++acknowledged) {
        awaitAck(m_nextAcknowledged++);
        if (acknowledged + ahead < blocks) {
            sendBlock(m_nextSent++, shape.blockSize);
        }
    }
}

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Close {
    void operator()(ploe_socket* socket) const { ploe_close(socket); }
};

constexpr std::size_t kibibyte = 1024;
constexpr LoadShape shapes[] = {{kibibyte, 1},      {kibibyte, 16},      {4 * kibibyte, 1},  {4 * kibibyte, 16},
                                {16 * kibibyte, 1}, {16 * kibibyte, 16}, {64 * kibibyte, 1}, {64 * kibibyte, 16}};

/// What the server's socket to the software manager doesn't take at once is lost, and its block not acknowledged. How
/// much it takes is the machine's to say.
bool isCarried(const LoadShape& shape)
{
    constexpr const char* address = "ux:loadProbe";
    constexpr std::size_t frameHeader = 32; // and more than that
    const std::unique_ptr<ploe_socket, Close> listener(ploe_listen(address, 1));
    const std::unique_ptr<ploe_socket, Close> socket(ploe_connect(address, 0));
    if (socket == nullptr) {
        throw Failed("no message socket");
    }
    ploe_set_blocking(socket.get(), false);
    const std::vector<std::byte> frame(frameHeader + shape.blockSize);
    for (unsigned sent = 0; sent < shape.window; ++sent) {
        if (ploe_send(socket.get(), frame.data(), frame.size()) != 0) {
            return false;
        }
    }
    return true;
}

void measure(Load& load, const LoadShape& shape, unsigned blocks, LoadFigures& figures)
{
    const auto processorBefore = load.processorTime();
    const auto begin = Clock::now();
    load.run(shape, blocks);
    const double seconds = Seconds(Clock::now() - begin).count();
    const double bytes = static_cast<double>(shape.blockSize) * blocks;
    figures.rate.push_back(bytes / 1e6 / seconds);
    figures.processor.push_back(Seconds(load.processorTime() - processorBefore).count() / (bytes / 1e9));
}

unsigned blocksOf(const LoadShape& shape, const Effort& effort)
{
    return static_cast<unsigned>(std::min<std::size_t>(effort.loadBlocks, effort.loadBytes / shape.blockSize));
}

/// Both ways stay there for the whole measurement, and take turns.
std::vector<LoadComparison> compare(Processors processors, Load& kiv, Load& sockets, const Effort& effort)
{
    std::vector<LoadComparison> comparisons;
    for (const LoadShape& shape : shapes) {
        if (!isCarried(shape)) {
            std::cerr << "this machine's sockets don't take " << shape.window << " blocks of " << shape.blockSize
                      << '\n';
            continue;
        }
        const unsigned blocks = blocksOf(shape, effort);
        LoadComparison& comparison = comparisons.emplace_back(LoadComparison{processors, shape, {}, {}});
        kiv.run(shape, blocks / 4); // warms up
        sockets.run(shape, blocks / 4);
        for (unsigned round = 0; round < effort.rounds; ++round) {
            measure(kiv, shape, blocks, comparison.kiv);
            measure(sockets, shape, blocks, comparison.sockets);
        }
    }
    return comparisons;
}

LongLoad measureLongLoad(const Unit& unit, Load& load, const Effort& effort)
{
    constexpr LoadShape shape{16 * kibibyte, 16};
    LongLoad figures;
    figures.bytes = effort.longLoadBytes;
    figures.memoryBefore = static_cast<double>(unit.residentMemory());
    load.run(shape, static_cast<unsigned>(effort.longLoadBytes / shape.blockSize));
    figures.memoryAfter = static_cast<double>(unit.residentMemory());
    return figures;
}

} // namespace

void measureLoads(const std::string& folder, const std::string& serverProgram, const Effort& effort, Results& results)
{
    for (const Processors processors : {Processors::one, Processors::all}) {
        runOn(processors);
        std::cerr << "loads ...\n";
        const std::string sockets = folder + (processors == Processors::one ? "/loadOne" : "/loadAll");
        std::filesystem::create_directory(sockets);
        const Unit unit(serverProgram);
        const auto kivLoad = openKivLoad(unit);
        const auto socketLoad = openSocketLoad(sockets);
        const auto comparisons = compare(processors, *kivLoad, *socketLoad, effort);
        results.loads.insert(results.loads.end(), comparisons.begin(), comparisons.end());
        if (processors == Processors::all) {
            results.longLoad = measureLongLoad(unit, *kivLoad, effort);
        }
    }
}

} // namespace Bench
