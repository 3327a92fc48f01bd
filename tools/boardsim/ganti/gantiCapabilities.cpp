#include "tools/boardsim/ganti/gantiCapabilities.h"

#include "ganti/ganti.pb.h"

#include <algorithm>

namespace boardsim {

namespace {

constexpr std::uint32_t maxBlockSize = 0x7FFFFFFF;

} // namespace

Verdict GantiCapabilities::get(Call&, const gant::GetCapabilitiesReq&, gant::GetCapabilitiesCfm& confirm,
                               gant::GetCapabilitiesRej&)
{
    if (const auto runs = preinstalledRuns()) {
        confirm.mutable_preinstalled_support()->set_running(*runs);
    }
    if (m_hasSwCompList) {
        confirm.mutable_sw_comp_list_support();
    }
    if (m_hasLockableStore) {
        confirm.mutable_lockable_resource_sw_store_support();
    }
    if (const auto inventory = bootInventory()) {
        auto& boot = *confirm.mutable_boot_sw_inventory_support();
        for (const auto& [product, revision] : *inventory) {
            auto& entry = *boot.add_boot_sw_inventory();
            entry.set_product_number(product);
            entry.set_product_revision(revision);
        }
    }
    if (m_hasPullLoad) {
        confirm.mutable_pull_load_support();
    }
    if (m_blockSize) {
        confirm.mutable_loading_block_size_support()->set_block_size(static_cast<std::int32_t>(*m_blockSize));
    }
    if (m_hasSetSlotWorking) {
        confirm.mutable_set_slot_working_support();
    }
    return Verdict::confirm;
}

std::optional<bool> GantiCapabilities::preinstalledRuns() const
{
    if (m_preinstalledRuns) {
        return *m_preinstalledRuns;
    }
    const Slot* running = m_store.running();
    return running != nullptr && running->type == SlotType::preinstalled;
}

std::optional<GantiCapabilities::BootSoftware> GantiCapabilities::bootInventory() const
{
    if (m_bootInventory) {
        return *m_bootInventory;
    }
    BootSoftware inventory;
    for (const Slot& slot : m_store.slots()) {
        if (slot.type == SlotType::boot && slot.status == SlotStatus::valid) {
            inventory.emplace_back(slot.product, slot.revision);
        }
    }
    return inventory;
}

std::vector<CommandRow> GantiCapabilities::commands()
{
    const auto row = [this](const char* values, const char* text) {
        return CommandRow{std::string("capability ") + values, text,
                          [this](const Words& args, std::ostream&) { set(args); }};
    };
    return {
        row("preinstalled { normal | running | idle | absent }", "as the slots say at first"),
        row("boot-inventory { normal | absent | <product> <revision>... }", "as the slots say at first"),
        row("block-size { <n> | absent }", "65536 at first"),
        row("{ sw-comp-list | lockable | set-slot-working | pull-load } { present | absent }",
            "all but the last present at first"),
    };
}

void GantiCapabilities::set(const Words& args)
{
    expectWords(args, 2, args.size());
    const Words values(args.begin() + 1, args.end());
    if (args[0] == "preinstalled") {
        setPreinstalled(values);
        return;
    }
    if (args[0] == "boot-inventory") {
        setBootInventory(values);
        return;
    }
    expectWords(values, 1, 1);
    if (args[0] == "block-size") {
        m_blockSize = values[0] == "absent" ? std::nullopt
                                            : std::optional(parseNumber(values[0], "the block size", maxBlockSize));
        return;
    }
    const std::pair<const char*, bool*> flags[] = {{"sw-comp-list", &m_hasSwCompList},
                                                   {"lockable", &m_hasLockableStore},
                                                   {"set-slot-working", &m_hasSetSlotWorking},
                                                   {"pull-load", &m_hasPullLoad}};
    const auto* flag = std::find_if(std::begin(flags), std::end(flags),
                                    [&](const auto& candidate) { return candidate.first == args[0]; });
    if (flag == std::end(flags)) {
        throw CommandError("there is no capability \"" + args[0] + "\"");
    }
    if (values[0] != "present" && values[0] != "absent") {
        throw CommandError("present or absent");
    }
    *flag->second = values[0] == "present";
}

void GantiCapabilities::setPreinstalled(const Words& values)
{
    expectWords(values, 1, 1);
    if (values[0] == "normal") {
        m_preinstalledRuns.reset();
    } else if (values[0] == "absent") {
        m_preinstalledRuns.emplace(std::nullopt);
    } else if (values[0] == "running" || values[0] == "idle") {
        m_preinstalledRuns.emplace(values[0] == "running");
    } else {
        throw CommandError("normal, running, idle or absent");
    }
}

void GantiCapabilities::setBootInventory(const Words& values)
{
    if (values[0] == "normal" || values[0] == "absent") {
        expectWords(values, 1, 1);
        m_bootInventory.reset();
        if (values[0] == "absent") {
            m_bootInventory.emplace(std::nullopt);
        }
        return;
    }
    BootSoftware inventory;
    for (std::size_t i = 0; i < values.size(); i += 2) {
        expectWords(values, i + 2, values.size());
        inventory.emplace_back(values[i], values[i + 1]);
    }
    m_bootInventory.emplace(std::move(inventory));
}

void GantiCapabilities::show(Json& server) const
{
    const auto presence = [](bool isThere) { return isThere ? "present" : "absent"; };
    Json& capabilities = server["capabilities"];
    const auto runs = preinstalledRuns();
    capabilities["preinstalled"] = runs ? *runs ? "running" : "idle" : "absent";
    capabilities["sw-comp-list"] = presence(m_hasSwCompList);
    capabilities["lockable"] = presence(m_hasLockableStore);
    if (const auto inventory = bootInventory()) {
        Json boot = Json::array();
        for (const auto& [product, revision] : *inventory) {
            boot.push_back({{"product", product}, {"revision", revision}});
        }
        capabilities["boot-inventory"] = std::move(boot);
    } else {
        capabilities["boot-inventory"] = "absent";
    }
    capabilities["pull-load"] = presence(m_hasPullLoad);
    capabilities["block-size"] = m_blockSize ? Json(*m_blockSize) : Json("absent");
    capabilities["set-slot-working"] = presence(m_hasSetSlotWorking);
}

} // namespace boardsim
