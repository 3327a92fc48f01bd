#include "tools/boardsim/fesk/feskCapabilities.h"

#include "fesk/fesk.pb.h"

namespace boardsim {

namespace {

using tolme::fesk::GetCapabilitiesCfm;

std::set<std::string> everyField()
{
    std::set<std::string> names;
    const auto* descriptor = GetCapabilitiesCfm::descriptor();
    for (int i = 0; i < descriptor->field_count(); ++i) {
        names.insert(descriptor->field(i)->name());
    }
    return names;
}

} // namespace

FeskCapabilities::FeskCapabilities() : m_fields(everyField()) {}

Verdict FeskCapabilities::get(const Connection&, const tolme::fesk::GetCapabilitiesReq&, GetCapabilitiesCfm& confirm,
                              tolme::fesk::GetCapabilitiesRej&)
{
    for (const std::string& name : m_fields) {
        // A capability is there when its field is, empty as it may be.
        confirm.GetReflection()->MutableMessage(&confirm, GetCapabilitiesCfm::descriptor()->FindFieldByName(name));
    }
    return Verdict::confirm;
}

std::vector<CommandRow> FeskCapabilities::commands()
{
    return {{"capabilities { all | none | <field>... }", "what it can do, by the confirm's fields",
             [this](const Words& args, std::ostream&) { set(args); }}};
}

void FeskCapabilities::set(const Words& names)
{
    expectWords(names, 1, names.size());
    std::set<std::string> wanted;
    for (const std::string& name : names) {
        if (name == "all") {
            wanted = everyField();
        } else if (GetCapabilitiesCfm::descriptor()->FindFieldByName(name) != nullptr) {
            wanted.insert(name);
        } else if (name != "none") {
            throw CommandError("there is no capability \"" + name + "\"");
        }
    }
    m_fields = std::move(wanted);
}

void FeskCapabilities::show(Json& server) const
{
    server["capabilities"] = m_fields;
}

} // namespace boardsim
