#include "tools/boardsim/ganti/softwareSlots.h"

#include "ganti/ganti.pb.h"
#include "ostinel/eventLoop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <limits>
#include <utility>

namespace boardsim {

namespace {

using gant::ProductInventory;
using Ostinel::EventLoop::V1::EventLoopIf;

static_assert(static_cast<int>(SlotStatus::writing) == ProductInventory::WRITING &&
              static_cast<int>(SlotStatus::erasing) == ProductInventory::ERASING &&
              static_cast<int>(SlotStatus::empty) == ProductInventory::EMPTY &&
              static_cast<int>(SlotType::boot) == ProductInventory::AUBOOT &&
              static_cast<int>(SlotType::preinstalled) == ProductInventory::PREINSTALLED &&
              static_cast<int>(SlotAccess::readWrite) == ProductInventory::READ_WRITE);

void fill(ProductInventory& entry, const Slot& slot)
{
    if (!slot.product.empty()) {
        entry.set_product_number(slot.product);
    }
    if (!slot.revision.empty()) {
        entry.set_revision(slot.revision);
    }
    entry.set_running(slot.isRunning);
    entry.set_software_type(static_cast<ProductInventory::SoftwareType>(slot.type));
    constexpr std::uint64_t maxSize = std::numeric_limits<std::uint32_t>::max();
    entry.set_size(static_cast<std::uint32_t>(std::min(slot.size, maxSize)));
    entry.set_status(static_cast<ProductInventory::Status>(slot.status));
    entry.set_access(static_cast<ProductInventory::Access>(slot.access));
    entry.set_sequence_number(slot.sequence);
}

/// As the running software is told: the product number with '%' for '/'.
std::string runningName(Slot slot)
{
    std::replace(slot.product.begin(), slot.product.end(), '/', '%');
    return slot.software();
}

std::ifstream openFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw CommandError(fmt::format("{}: {}", path, std::strerror(errno)));
    }
    return file;
}

std::string orDash(const std::string& text)
{
    return text.empty() ? "-" : text;
}

std::string dashAsEmpty(const std::string& word)
{
    return word == "-" ? "" : word;
}

} // namespace

Verdict SoftwareSlots::inventory(Call& call, const gant::GetSwProductInvReq& request, gant::GetSwProductInvCfm& confirm,
                                 gant::GetSwProductInvRej& reject)
{
    if (!m_tickets.admits(call, request, reject)) {
        return Verdict::reject;
    }
    for (const Slot& slot : m_store.slots()) {
        fill(*confirm.add_product_inventory(), slot);
    }
    return Verdict::confirm;
}

Verdict SoftwareSlots::runningSoftware(Call&, const gant::GetRunningSwReq&, gant::GetRunningSwCfm& confirm,
                                       gant::GetRunningSwRej& reject)
{
    const Slot* running = m_store.running();
    if (running == nullptr) {
        reject.set_reason(gant::GetRunningSwRej::NOT_FOUND);
        return Verdict::reject;
    }
    confirm.set_running_software(runningName(*running));
    return Verdict::confirm;
}

Verdict SoftwareSlots::setWorking(Call&, const gant::SetCurrentSlotWorkingReq&, gant::SetCurrentSlotWorkingCfm&,
                                  gant::SetCurrentSlotWorkingRej& reject)
{
    if (m_store.running() == nullptr) {
        reject.set_reason(gant::SetCurrentSlotWorkingRej::INTERNAL_ERROR);
        return Verdict::reject;
    }
    ++m_timesSetWorking;
    return Verdict::confirm;
}

Verdict SoftwareSlots::remove(Call& call, const gant::DeleteReq& request, gant::DeleteCfm&, gant::DeleteRej& reject)
{
    if (!m_tickets.admits(call, request, reject)) {
        return Verdict::reject;
    }
    const auto found = m_store.findValid(request.software());
    if (isErasing() || (found && m_store.slots()[*found].isRunning)) {
        reject.set_reason(gant::DeleteRej::BUSY);
        return Verdict::reject;
    }
    if (!found || m_store.slots()[*found].access == SlotAccess::readOnly) {
        reject.set_reason(gant::DeleteRej::ILLEGAL_SOFTWARE);
        return Verdict::reject;
    }
    erase(*found);
    call.sendBy = [this](std::function<void()> send) {
        if (m_erasure.timer == 0) {
            send();
        } else {
            m_erasure.atEnd.push_back(std::move(send));
        }
    };
    return Verdict::confirm;
}

bool SoftwareSlots::isErasing() const
{
    return std::any_of(m_store.slots().begin(), m_store.slots().end(),
                       [](const Slot& slot) { return slot.status == SlotStatus::erasing; });
}

void SoftwareSlots::erase(std::size_t slot)
{
    if (m_eraseTime.count() == 0) {
        m_store.makeEmpty(slot);
        return;
    }
    m_store.startErasing(slot);
    m_erasure.slot = slot;
    startTimer();
}

void SoftwareSlots::startTimer()
{
    EventLoopIf::getInstance().removeTimer(m_erasure.timer);
    m_erasure.timer = EventLoopIf::getInstance().addTimer(m_eraseTime, [this] { erased(); });
}

void SoftwareSlots::erased()
{
    const Erasure done = std::exchange(m_erasure, {});
    m_store.makeEmpty(done.slot);
    for (const auto& send : done.atEnd) {
        send();
    }
}

/// What was being erased is left so: the store empties it when it is opened again.
void SoftwareSlots::reset()
{
    EventLoopIf::getInstance().removeTimer(m_erasure.timer);
    m_erasure = {};
    m_timesSetWorking = 0;
}

std::vector<CommandRow> SoftwareSlots::commands()
{
    return {
        {"slots", "table of the slots",
         [this](const Words& args, std::ostream& out) {
             expectWords(args, 0, 0);
             printSlots(out);
         }},
        {"slot <n> { empty | <product> <revision> [<type> [<status> [<access>]]] }",
         "what a slot holds, \"-\" for nothing; one behind the last is added; AUAPPLIC VALID READ_WRITE at first",
         [this](const Words& args, std::ostream&) { setSlot(args); }},
        {"running { <software> | none }", "the software that runs, \"<product>_<revision>\"",
         [this](const Words& args, std::ostream&) { setRunning(args); }},
        {"compare <software> <file>", "whether a slot holds what the file does; exit code 1 where not",
         [this](const Words& args, std::ostream& out) { compare(args, out); }},
        {"clear", "the slots of a new board",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 0, 0);
             clear();
         }},
        {"erase-time <ms>", "how long a deletion takes, from now on for one that is going on",
         [this](const Words& args, std::ostream&) {
             expectWords(args, 1, 1);
             m_eraseTime = std::chrono::milliseconds(parseNumber(args[0], "the time"));
             if (m_erasure.timer != 0) {
                 startTimer();
             }
         }},
    };
}

SoftwareStore& SoftwareSlots::openStore()
{
    if (!m_store.isOpen()) {
        m_store.open();
    }
    return m_store;
}

void SoftwareSlots::expectIdle() const
{
    if (m_loading.isInProgress() || m_erasure.timer != 0) {
        throw CommandError("a load or a deletion is going on");
    }
}

void SoftwareSlots::printSlots(std::ostream& out)
{
    constexpr const char* columns = "{:>4}  {:<20} {:<10} {:<12} {:<8} {:<10} {:<7} {:>10} {:>8}\n";
    out << fmt::format(columns, "slot", "product", "revision", "type", "status", "access", "running", "size",
                       "sequence");
    const auto& slots = openStore().slots();
    for (std::size_t i = 0; i < slots.size(); ++i) {
        const Slot& slot = slots[i];
        out << fmt::format(columns, i + 1, orDash(slot.product), orDash(slot.revision), nameOf(slot.type),
                           nameOf(slot.status), nameOf(slot.access), slot.isRunning ? "yes" : "no", slot.size,
                           slot.sequence);
    }
}

void SoftwareSlots::setSlot(const Words& args)
{
    expectWords(args, 2, 6);
    expectIdle();
    SoftwareStore& store = openStore();
    const auto most = std::min(store.slots().size() + 1, SoftwareStore::maxSlots);
    const std::size_t number = parseNumber(args[0], "the slot", static_cast<std::uint32_t>(most));
    if (number == 0) {
        throw CommandError("the first slot is 1");
    }
    Slot slot;
    if (args[1] == "empty") {
        expectWords(args, 2, 2);
        if (number <= store.slots().size()) {
            slot.type = store.slots()[number - 1].type;
            slot.access = store.slots()[number - 1].access;
        }
    } else {
        expectWords(args, 3, 6);
        slot.product = dashAsEmpty(args[1]);
        slot.revision = dashAsEmpty(args[2]);
        slot.type = args.size() > 3 ? parseSlotType(args[3]) : SlotType::application;
        slot.status = args.size() > 4 ? parseSlotStatus(args[4]) : SlotStatus::valid;
        slot.access = args.size() > 5 ? parseSlotAccess(args[5]) : SlotAccess::readWrite;
    }
    store.set(number - 1, slot);
}

void SoftwareSlots::setRunning(const Words& args)
{
    expectWords(args, 1, 1);
    SoftwareStore& store = openStore();
    if (args[0] == "none") {
        store.run(std::nullopt);
        return;
    }
    const auto found = std::find_if(store.slots().begin(), store.slots().end(), [&](const Slot& slot) {
        return slot.status == SlotStatus::valid && (slot.software() == args[0] || runningName(slot) == args[0]);
    });
    if (found == store.slots().end()) {
        throw CommandError("no slot holds " + args[0]);
    }
    store.run(static_cast<std::size_t>(found - store.slots().begin()));
}

void SoftwareSlots::compare(const Words& args, std::ostream& out)
{
    expectWords(args, 2, 2);
    const auto slot = openStore().findValid(args[0]);
    if (!slot) {
        throw CommandError("no slot holds " + args[0]);
    }
    std::ifstream loaded = openFile(m_store.path(*slot));
    std::ifstream wanted = openFile(args[1]);
    std::uint64_t position = 0;
    std::vector<char> loadedPart(1U << 20U);
    std::vector<char> wantedPart(loadedPart.size());
    const auto next = [](std::ifstream& file, std::vector<char>& part) {
        file.read(part.data(), static_cast<std::streamsize>(part.size()));
        return file.gcount();
    };
    for (;;) {
        const auto loadedSize = next(loaded, loadedPart);
        const auto wantedSize = next(wanted, wantedPart);
        const auto difference = std::mismatch(loadedPart.begin(), loadedPart.begin() + loadedSize, wantedPart.begin(),
                                              wantedPart.begin() + wantedSize);
        position += static_cast<std::uint64_t>(difference.first - loadedPart.begin());
        const bool isLoadedAtEnd = difference.first == loadedPart.begin() + loadedSize;
        const bool isWantedAtEnd = difference.second == wantedPart.begin() + wantedSize;
        if (!isLoadedAtEnd || !isWantedAtEnd) {
            throw CommandError(fmt::format("{} and {} differ at byte {}{}", args[0], args[1], position,
                                           isLoadedAtEnd   ? ": the slot's ends there"
                                           : isWantedAtEnd ? ": the file ends there"
                                                           : ""));
        }
        if (loadedSize == 0) {
            out << fmt::format("{} bytes, equal\n", position);
            return;
        }
    }
}

void SoftwareSlots::clear()
{
    expectIdle();
    openStore().clear();
}

void SoftwareSlots::show(Json& server) const
{
    server["eraseTime"] = m_eraseTime.count();
    server["timesSetWorking"] = m_timesSetWorking;
    Json slots = Json::array();
    for (const Slot& slot : m_store.slots()) {
        slots.push_back({{"slot", slots.size() + 1},
                         {"software", slot.software()},
                         {"type", nameOf(slot.type)},
                         {"status", nameOf(slot.status)},
                         {"access", nameOf(slot.access)},
                         {"running", slot.isRunning},
                         {"size", slot.size},
                         {"sequence", slot.sequence}});
    }
    server["slots"] = std::move(slots);
}

} // namespace boardsim
