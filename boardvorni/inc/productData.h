/// Product data as the board reports it.
#pragma once

#include <cstdint>
#include <string>

/// Product data of the hardware.
struct HwPid {
    std::string productionDate;
    std::string productName;
    std::string productNumber;
    std::string productRevision;
    std::string serialNumber;
    std::string market;          ///< the market name
    std::uint8_t allPidData = 0; ///< all but the market name are there
    std::uint8_t marketName = 0; ///< the market name is there
};

/// Product data of the container.
struct ContainerPid {
    std::string productionDate;
    std::string productName;
    std::string productNumber;
    std::string productRevision;
    std::string serialNumber;
    std::uint64_t allContainerData = 0; ///< all strings are there
};
