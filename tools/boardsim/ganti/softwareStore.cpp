#include "tools/boardsim/ganti/softwareStore.h"

#include "runDir.h"
#include "tools/boardsim/core/json.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fstream>
#include <span>
#include <stdexcept>
#include <sys/stat.h>

namespace boardsim {

namespace {

constexpr const char* folder = "boardsim/ganti";
constexpr const char* description = "slots.json";
constexpr std::size_t maxName = 255;

constexpr std::array statusNames{"VALID", "EMPTY", "ERASING", "WRITING"};
constexpr std::array typeNames{"AUAPPLIC", "AUBOOT", "PREINSTALLED"};
constexpr std::array accessNames{"READ_ONLY", "READ_WRITE"};

template <typename Value>
Value parse(std::span<const char* const> names, const std::string& name)
{
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        throw std::invalid_argument(fmt::format("\"{}\" is none of: {}", name, fmt::join(names, ", ")));
    }
    return static_cast<Value>(found - names.begin());
}

void report(const std::string& text)
{
    fmt::print(stderr, "boardsim: software store: {}\n", text);
}

std::vector<Slot> newBoard()
{
    const Slot free;
    const Slot boot{"TVM5048211/4", "R12C", SlotType::boot, SlotStatus::valid, SlotAccess::readOnly, false, 0, 0};
    const Slot preinstalled{
        "TVM5048227/31", "R83DN", SlotType::preinstalled, SlotStatus::valid, SlotAccess::readOnly, true, 0, 0};
    return {free, free, free, boot, preinstalled};
}

Json toJson(const Slot& slot)
{
    return {{"product", slot.product},
            {"revision", slot.revision},
            {"type", nameOf(slot.type)},
            {"status", nameOf(slot.status)},
            {"access", nameOf(slot.access)},
            {"running", slot.isRunning},
            {"size", slot.size},
            {"sequence", slot.sequence}};
}

Slot fromJson(const Json& json)
{
    Slot slot;
    slot.product = json.at("product").get<std::string>();
    slot.revision = json.at("revision").get<std::string>();
    slot.type = parseSlotType(json.at("type").get<std::string>());
    slot.status = parseSlotStatus(json.at("status").get<std::string>());
    slot.access = parseSlotAccess(json.at("access").get<std::string>());
    slot.isRunning = json.at("running").get<bool>();
    slot.size = json.at("size").get<std::uint64_t>();
    slot.sequence = json.at("sequence").get<std::uint32_t>();
    return slot;
}

void leave(Slot& slot)
{
    Slot empty;
    empty.type = slot.type;
    empty.access = slot.access;
    slot = empty;
}

} // namespace

const char* nameOf(SlotStatus status)
{
    return statusNames.at(static_cast<std::size_t>(status));
}

const char* nameOf(SlotType type)
{
    return typeNames.at(static_cast<std::size_t>(type));
}

const char* nameOf(SlotAccess access)
{
    return accessNames.at(static_cast<std::size_t>(access));
}

SlotStatus parseSlotStatus(const std::string& name)
{
    return parse<SlotStatus>(statusNames, name);
}

SlotType parseSlotType(const std::string& name)
{
    return parse<SlotType>(typeNames, name);
}

SlotAccess parseSlotAccess(const std::string& name)
{
    return parse<SlotAccess>(accessNames, name);
}

std::string Slot::software() const
{
    return product.empty() || revision.empty() ? product + revision : product + '_' + revision;
}

std::optional<Slot> parseSoftware(const std::string& name)
{
    const bool isPrintable = std::all_of(name.begin(), name.end(), [](char c) { return c > ' ' && c <= '~'; });
    if (name.empty() || name.size() > maxName || !isPrintable) {
        return std::nullopt;
    }
    Slot slot;
    const std::size_t underscore = name.rfind('_');
    slot.product = name.substr(0, underscore);
    slot.revision = underscore == std::string::npos ? "" : name.substr(underscore + 1);
    return slot.software() == name ? std::optional(slot) : std::nullopt;
}

void SoftwareStore::open()
{
    int error = 0;
    m_directory = makeRuDir(folder, error);
    if (error != 0) {
        throw std::runtime_error(fmt::format("no folder {}: {}", m_directory, std::strerror(error)));
    }
    try {
        read();
    } catch (const std::exception& problem) {
        const std::string file = m_directory + '/' + description;
        std::rename(file.c_str(), (file + ".damaged").c_str());
        report(fmt::format("{} is damaged, put aside and replaced: {}", file, problem.what()));
        clear();
    }
    m_isOpen = true;
}

void SoftwareStore::close()
{
    m_isOpen = false;
    m_slots.clear();
}

void SoftwareStore::read()
{
    std::ifstream file(m_directory + '/' + description);
    if (!file) {
        clear();
        return;
    }
    const Json slots = Json::parse(file);
    if (!slots.is_array() || slots.size() > maxSlots) {
        throw std::runtime_error("it is no list of slots");
    }
    m_slots.clear();
    for (const Json& slot : slots) {
        m_slots.push_back(fromJson(slot));
    }
    repair();
}

/// What the end of the process has left half done.
void SoftwareStore::repair()
{
    bool isAnyRunning = false;
    m_lastSequence = 0;
    for (std::size_t i = 0; i < m_slots.size(); ++i) {
        Slot& slot = m_slots[i];
        struct stat file {
        };
        const bool isThere = ::stat(path(i).c_str(), &file) == 0;
        const bool isWhole = isThere && static_cast<std::uint64_t>(file.st_size) == slot.size;
        if (slot.status != SlotStatus::empty && (slot.status != SlotStatus::valid || !isWhole)) {
            report(fmt::format("slot {} with {} was {}, is empty now", i + 1, slot.software(),
                               slot.status == SlotStatus::valid ? "without all of it" : nameOf(slot.status)));
            leave(slot);
        }
        if (slot.status == SlotStatus::empty) {
            ::unlink(path(i).c_str());
        }
        slot.isRunning = slot.isRunning && !isAnyRunning;
        isAnyRunning = isAnyRunning || slot.isRunning;
        m_lastSequence = std::max(m_lastSequence, slot.sequence);
    }
    save();
}

/// A reader finds the old description or the new one, whatever happens meanwhile.
void SoftwareStore::save() const
{
    Json slots = Json::array();
    for (const Slot& slot : m_slots) {
        slots.push_back(toJson(slot));
    }
    const std::string file = m_directory + '/' + description;
    const std::string next = file + ".new";
    std::ofstream out(next, std::ios::trunc);
    out << slots.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    out.close();
    if (!out || std::rename(next.c_str(), file.c_str()) != 0) {
        report(fmt::format("{} can't be written: {}", file, std::strerror(errno)));
    }
}

std::optional<std::size_t> SoftwareStore::findValid(const std::string& software) const
{
    const auto found = std::find_if(m_slots.begin(), m_slots.end(), [&](const Slot& slot) {
        return slot.status == SlotStatus::valid && slot.software() == software;
    });
    return found == m_slots.end() ? std::nullopt : std::optional(static_cast<std::size_t>(found - m_slots.begin()));
}

std::optional<std::size_t> SoftwareStore::findFree() const
{
    const auto found = std::find_if(m_slots.begin(), m_slots.end(), [](const Slot& slot) {
        return slot.status == SlotStatus::empty && slot.access == SlotAccess::readWrite &&
               slot.type == SlotType::application;
    });
    return found == m_slots.end() ? std::nullopt : std::optional(static_cast<std::size_t>(found - m_slots.begin()));
}

const Slot* SoftwareStore::running() const
{
    const auto found = std::find_if(m_slots.begin(), m_slots.end(), [](const Slot& slot) { return slot.isRunning; });
    return found == m_slots.end() ? nullptr : &*found;
}

std::string SoftwareStore::path(std::size_t slot) const
{
    return fmt::format("{}/slot{}", m_directory, slot + 1);
}

UniqueFd SoftwareStore::startWriting(std::size_t slot, const std::string& product, const std::string& revision)
{
    UniqueFd file(::open(path(slot).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (!file) {
        report(fmt::format("{} can't be written: {}", path(slot), std::strerror(errno)));
        return file;
    }
    m_slots.at(slot).product = product;
    m_slots.at(slot).revision = revision;
    m_slots.at(slot).status = SlotStatus::writing;
    save();
    return file;
}

void SoftwareStore::finishWriting(std::size_t slot, std::uint64_t size)
{
    m_slots.at(slot).status = SlotStatus::valid;
    m_slots.at(slot).size = size;
    m_slots.at(slot).sequence = ++m_lastSequence;
    save();
}

void SoftwareStore::startErasing(std::size_t slot)
{
    m_slots.at(slot).status = SlotStatus::erasing;
    save();
}

void SoftwareStore::makeEmpty(std::size_t slot)
{
    leave(m_slots.at(slot));
    save();
    ::unlink(path(slot).c_str());
}

void SoftwareStore::run(std::optional<std::size_t> slot)
{
    for (std::size_t i = 0; i < m_slots.size(); ++i) {
        m_slots[i].isRunning = slot && *slot == i;
    }
    save();
}

void SoftwareStore::set(std::size_t slot, const Slot& value)
{
    if (slot == m_slots.size()) {
        m_slots.emplace_back();
    }
    Slot& changed = m_slots.at(slot);
    const bool isSame = changed.status == SlotStatus::valid && changed.software() == value.software();
    const Slot before = std::exchange(changed, value);
    if (value.status == SlotStatus::empty) {
        makeEmpty(slot);
        return;
    }
    if (isSame) {
        changed.size = before.size;
        changed.sequence = before.sequence;
        changed.isRunning = before.isRunning && value.status == SlotStatus::valid;
    } else {
        changed.sequence = ++m_lastSequence;
        makeUpSoftware(slot);
    }
    save();
}

void SoftwareStore::makeUpSoftware(std::size_t slot)
{
    const std::string content = "This is " + m_slots.at(slot).software() + " of the simulated board.\n";
    std::ofstream file(path(slot), std::ios::trunc);
    file << content;
    m_slots.at(slot).size = content.size();
}

void SoftwareStore::clear()
{
    for (std::size_t i = 0; i < maxSlots; ++i) {
        ::unlink(path(i).c_str());
    }
    m_slots = newBoard();
    m_lastSequence = 0;
    for (std::size_t i = 0; i < m_slots.size(); ++i) {
        if (m_slots[i].status == SlotStatus::valid) {
            m_slots[i].sequence = ++m_lastSequence;
            makeUpSoftware(i);
        }
    }
    save();
}

} // namespace boardsim
