/// The software store of the simulated board: its slots, kept on disk.
#pragma once

#include "uniqueFd.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace boardsim {

// With the interface's numbers.
enum class SlotStatus { valid, empty, erasing, writing };
enum class SlotType { application, boot, preinstalled };
enum class SlotAccess { readOnly, readWrite };

struct Slot {
    std::string product; ///< this and the revision: empty in an empty slot
    std::string revision;
    SlotType type = SlotType::application;
    SlotStatus status = SlotStatus::empty;
    SlotAccess access = SlotAccess::readWrite;
    bool isRunning = false;
    std::uint64_t size = 0;     ///< bytes
    std::uint32_t sequence = 0; ///< the higher, the later it was loaded

    /// "<product>_<revision>", without the underscore where one of the two is empty.
    std::string software() const;
};

/// The slots' description is one file, replaced as a whole whenever it changes; what a slot holds is a file of its own.
/// Both outlive the process. What was being written or erased when it ended is empty afterwards. A description that
/// can't be understood is put aside and replaced by that of a new board. All of that is told on standard error.
///
/// Slots are named by their place in slots(), from 0.
class SoftwareStore
{
public:
    static constexpr std::size_t maxSlots = 64;

    bool isOpen() const { return m_isOpen; }

    /// Reads the store, or makes a new board's. An open one is read anew. Throws std::runtime_error where its folder
    /// can't be made.
    void open();
    void close();

    const std::vector<Slot>& slots() const { return m_slots; }

    std::optional<std::size_t> findValid(const std::string& software) const;
    std::optional<std::size_t> findFree() const; ///< for a load
    const Slot* running() const;

    /// The file that holds the slot's software.
    std::string path(std::size_t slot) const;

    /// Takes an empty slot for a software; what is to be in it is written to the file that is returned, which is
    /// invalid on failure.
    UniqueFd startWriting(std::size_t slot, const std::string& product, const std::string& revision);
    void finishWriting(std::size_t slot, std::uint64_t size);

    void startErasing(std::size_t slot);
    void makeEmpty(std::size_t slot);

    /// Nothing: none runs.
    void run(std::optional<std::size_t> slot);

    /// Changes a slot, or adds one behind the last. Software that it didn't hold before is made up.
    void set(std::size_t slot, const Slot& value);

    /// A new board's slots.
    void clear();

private:
    void read();
    void repair();
    void save() const;
    void makeUpSoftware(std::size_t slot);

    bool m_isOpen = false;
    std::string m_directory;
    std::vector<Slot> m_slots;
    std::uint32_t m_lastSequence = 0;
};

/// "VALID", "AUAPPLIC", "READ_WRITE".
const char* nameOf(SlotStatus status);
const char* nameOf(SlotType type);
const char* nameOf(SlotAccess access);

/// Throw std::invalid_argument, with the names that there are.
SlotStatus parseSlotStatus(const std::string& name);
SlotType parseSlotType(const std::string& name);
SlotAccess parseSlotAccess(const std::string& name);

/// Splits at the last underscore. Nothing where it is no name of a software: the parts don't give it back, or there are
/// blanks or other than printable characters in it.
std::optional<Slot> parseSoftware(const std::string& name);

} // namespace boardsim
