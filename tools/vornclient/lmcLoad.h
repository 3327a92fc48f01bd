/// Loading a module: the request, the file's blocks, the end.
///
/// The server acknowledges each block by its number and bounds nothing: how many blocks are under way is up to the
/// client. It keeps a window of them in flight, so that the file is read as the unit takes it and no more of it is in
/// memory than the window. The numbers have 16 bits and wrap; a window of less than half of them leaves no doubt which
/// block a number means. An unit that gives a load up says nothing: a block isn't acknowledged, and that is all.
#pragma once

#include "vornclient/command.h"
#include "vornclient/loadSummary.h"

#include <cstdint>
#include <deque>
#include <fstream>
#include <optional>
#include <string>

namespace VornClient {

/// The longest name of a load module, without its zero.
inline constexpr std::size_t longestLoadModule = 35;

/// The largest window, in blocks.
inline constexpr std::uint16_t widestWindow = UINT16_MAX / 2;

struct LoadSettings {
    std::string file;
    std::string loadModule;                     ///< the name it goes by
    std::optional<std::uint32_t> blockSize;     ///< by default what the unit wants
    std::optional<std::uint16_t> window;        ///< blocks; by default what goes well with the block size
    std::optional<std::uint64_t> breakOffAfter; ///< bytes, after which the load is left open
};

/// Settings of the words of a command: "FILE [--name PRODUCT_REV] [--block BYTES] [--window N] [--break-off-after
/// BYTES]". Throws BadUsage.
LoadSettings parseLoadSettings(Words words);

/// How a file is taken apart.
struct BlockSizes {
    std::uint32_t blockSize = 0;
    std::uint16_t window = 0; ///< blocks
};

/// The sizes of the settings, and those that they leave out: `unitBlockSize` is what the unit wants, any number, or
/// nothing where it isn't known.
BlockSizes chooseSizes(const LoadSettings& settings, std::optional<std::int64_t> unitBlockSize);

/// The blocks that are sent and not acknowledged, with acknowledged ones among them that older ones hold back.
class BlockWindow
{
public:
    explicit BlockWindow(std::uint16_t size) : m_size(size) {}

    bool isFull() const { return m_blocks.size() >= m_size; }
    bool isEmpty() const { return m_blocks.empty(); }
    /// Blocks that were ever added, and so the last one's place in the file, from 1 on.
    std::uint64_t added() const { return m_added; }
    /// The place in the file of the oldest block that isn't acknowledged; of the next one where there is none.
    std::uint64_t oldest() const { return m_added - m_blocks.size() + 1; }
    /// Takes the next block in. Returns its number.
    std::uint16_t add(std::uint32_t bytes);
    /// Returns how many bytes this acknowledges: none for a number that isn't, or isn't any longer, in flight.
    std::uint32_t acknowledge(std::uint16_t number);

private:
    struct Block {
        std::uint32_t bytes;
        bool isAcknowledged;
    };

    std::uint16_t m_size;
    std::deque<Block> m_blocks; ///< by number, without gaps
    std::uint64_t m_added = 0;
};

/// One load by the client in use, which must be allowed to load. From its first block to the end of this object the
/// printer shows progress rather than blocks and acknowledgements.
class LmcLoad
{
public:
    /// Opens the file. Throws BadUsage where there is nothing in it to be loaded.
    LmcLoad(CommandContext& context, LoadSettings settings);
    ~LmcLoad();
    LmcLoad(const LmcLoad&) = delete;
    LmcLoad& operator=(const LmcLoad&) = delete;

    Outcome run();
    /// Whether the server may still take this load for one that goes on.
    bool isOpen() const { return m_isOpen; }
    const LoadSummary& summary() const { return m_summary; }

private:
    using Clock = ClientHub::Clock;

    Outcome settleSizes();
    Outcome begin();
    Outcome sendAll();
    Outcome sendBlock();
    Outcome awaitAcknowledgement();
    bool takeAcknowledgements();
    Outcome end();
    /// Bytes that are to be sent still.
    std::uint64_t left() const { return m_toSend - m_sent; }
    Outcome unacknowledged(Verdict verdict, const std::string& what) const;
    void showProgress();

    CommandContext& m_context;
    Client& m_client;
    LoadSettings m_settings;
    std::ifstream m_file;
    std::uint64_t m_toSend = 0; ///< bytes
    std::uint64_t m_sent = 0;
    BlockSizes m_sizes;
    BlockWindow m_window{0};
    bool m_isOpen = false;
    std::uint64_t m_mark = UINT64_MAX; ///< of the inbox: acknowledgements from before aren't this load's
    unsigned m_losses = 0;             ///< the hub's server losses at the load's start
    Clock::time_point m_begin;         ///< of the first block
    Clock::time_point m_oldestSince;   ///< since when the oldest block is the one that is waited for
    Clock::time_point m_nextProgress;  ///< not before this
    LoadSummary m_summary;
};

} // namespace VornClient
