/// What the software manager says that it can do.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

/// A plain record that begins with its type; those with more to tell derive from it.
struct PLOECapability {
    enum Type : std::uint16_t {
        Preinstalled = 0,
        SwCompList = 1,
        LockableResource = 2,
        LockableResourceSwStore = 3,
        BootSwInventory = 4,
        LoadingBlockSize = 5,
        SetSlotWorking = 6,
    };

    explicit PLOECapability(Type capabilityType) : type(capabilityType) {}

    std::uint16_t type;
};

struct PLOECapPreinstalled : PLOECapability {
    explicit PLOECapPreinstalled(bool isRunning) : PLOECapability(Preinstalled), running(isRunning) {}

    bool running; ///< preinstalled software is what runs
};

struct PLOECapSwCompList : PLOECapability {
    PLOECapSwCompList() : PLOECapability(SwCompList) {}
};

struct PLOECapLockableResource : PLOECapability {
    PLOECapLockableResource() : PLOECapability(LockableResource) {}
};

struct PLOECapLockableResourceSwStore : PLOECapability {
    PLOECapLockableResourceSwStore() : PLOECapability(LockableResourceSwStore) {}
};

struct PLOECapBootSwInventory : PLOECapability {
    /// Product number and product revision.
    using Entries = std::vector<std::pair<std::string, std::string>>;

    explicit PLOECapBootSwInventory(Entries inventory) : PLOECapability(BootSwInventory), entries(std::move(inventory))
    {
    }

    Entries entries;
};

struct PLOECapLoadingBlockSize : PLOECapability {
    explicit PLOECapLoadingBlockSize(std::int32_t size) : PLOECapability(LoadingBlockSize), blockSize(size) {}

    std::int32_t blockSize; ///< bytes, as the server gives it
};

struct PLOECapSetSlotWorking : PLOECapability {
    PLOECapSetSlotWorking() : PLOECapability(SetSlotWorking) {}
};
