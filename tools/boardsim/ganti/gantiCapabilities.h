/// What the GANTI server can do.
#pragma once

#include "tools/boardsim/ganti/gantiProcedures.h"
#include "tools/boardsim/ganti/softwareStore.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace boardsim {

/// At first all that it does do, with what the slots say; a confirm with anything else is given by a rule.
class GantiCapabilities : public GantiProcedures
{
public:
    explicit GantiCapabilities(const SoftwareStore& store) : m_store(store) {}

    Verdict get(Call&, const gant::GetCapabilitiesReq&, gant::GetCapabilitiesCfm& confirm, gant::GetCapabilitiesRej&);

    std::vector<CommandRow> commands() override;
    void reset() override {}
    void show(Json& server) const override;

private:
    using BootSoftware = std::vector<std::pair<std::string, std::string>>; ///< product numbers and revisions

    void set(const Words& args);
    void setPreinstalled(const Words& values);
    void setBootInventory(const Words& values);
    std::optional<bool> preinstalledRuns() const;
    std::optional<BootSoftware> bootInventory() const;

    const SoftwareStore& m_store;

    // Settings; of the optional ones in an optional the outer is empty where the slots decide.
    std::optional<std::optional<bool>> m_preinstalledRuns;
    std::optional<std::optional<BootSoftware>> m_bootInventory;
    std::optional<std::uint32_t> m_blockSize = 65536;
    bool m_hasSwCompList = true;
    bool m_hasLockableStore = true;
    bool m_hasSetSlotWorking = true;
    bool m_hasPullLoad = false;
};

} // namespace boardsim
