#include "ledger.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Endurance {

// A file of zeros is a ledger but for the open requests, which are cleared with their slot.
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<std::int64_t>::is_always_lock_free);

namespace {

void unmap(Ledger* ledger)
{
    ::munmap(ledger, sizeof(Ledger));
}

std::unique_ptr<Ledger, void (*)(Ledger*)> map(const std::string& path, int flags)
{
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC | flags, S_IRUSR | S_IWUSR);
    const bool isLarge = file >= 0 && ::ftruncate(file, sizeof(Ledger)) == 0;
    void* memory = isLarge ? ::mmap(nullptr, sizeof(Ledger), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) : MAP_FAILED;
    if (file >= 0) {
        ::close(file);
    }
    if (memory == MAP_FAILED) {
        throw std::runtime_error("the ledger can't be mapped: " + path);
    }
    return {static_cast<Ledger*>(memory), unmap};
}

} // namespace

std::int64_t now()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void Slot::clear()
{
    for (OpenRequest& request : open) {
        request.procedure = OpenRequest::none;
    }
    measuringSince = 0;
    isConnected = false;
}

void Ledger::add(const Entry& entry)
{
    const std::uint32_t index = entryCount++;
    if (index < maxEntries) {
        entries[index] = entry;
    }
}

std::uint32_t Ledger::entriesKept() const
{
    return std::min<std::uint32_t>(entryCount, maxEntries);
}

std::unique_ptr<Ledger, void (*)(Ledger*)> createLedger(const std::string& path)
{
    auto ledger = map(path, O_CREAT | O_EXCL);
    for (Slot& slot : ledger->slots) {
        slot.clear();
    }
    return ledger;
}

std::unique_ptr<Ledger, void (*)(Ledger*)> openLedger(const std::string& path)
{
    return map(path, 0);
}

} // namespace Endurance
