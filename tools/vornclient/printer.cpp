#include "vornclient/printer.h"

#include "vornclient/clientHub.h"
#include "vornclient/faultNames.h"
#include "vornclient/screen.h"
#include "vorni/software.h"

#include <cstdio>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>
#include <variant>

namespace VornClient {

namespace {

using Clock = std::chrono::system_clock;

const char* const firstClient = "first"; ///< the one without a label

std::string nameOf(const Client& client)
{
    return client.settings().label.empty() ? firstClient : client.settings().label;
}

/// With blanks in their place, to every fourth column.
std::string withoutTabs(const std::string& line)
{
    constexpr std::size_t tab = 4;
    std::string text;
    for (const char character : line) {
        if (character == '\t') {
            text.append(tab - text.size() % tab, ' ');
        } else {
            text += character;
        }
    }
    return text;
}

class TextPrinter final : public Printer
{
public:
    explicit TextPrinter(const PrinterSettings& settings)
        : Printer(!settings.quiet && ::isatty(STDERR_FILENO) != 0), m_settings(settings)
    {
    }

    void onSent(const Client& client, const Signal& signal) override { printSignal("->", client, signal); }

    void onReceived(const Client& client, const Signal& signal) override { printSignal("<-", client, signal); }

    void onServerPublished(kiv_mbox_id_t server) override
    {
        print(fmt::format("-- {} is published ({:#x})", ClientHub::serverName, server));
    }

    void onServerGone(kiv_mbox_id_t server) override
    {
        print(fmt::format("-- {} is gone ({:#x})", ClientHub::serverName, server));
    }

    void step(const std::string& place, const std::string& command) override
    {
        print(fmt::format("== {}: {}", place, command));
    }

    void unitOutput(const std::string&, const std::string& output, int exitCode) override
    {
        printText(output);
        if (exitCode != 0) {
            print(fmt::format("   | exit code {}", exitCode));
        }
    }

    void status(const ClientHub& hub, const Client& inUse) override
    {
        const bool isPublished = hub.server() != KIV_NO_MBOX;
        const kiv_mbox_id_t privateMailbox = hub.serverFor(Vorni::Protocol::rhune).id;
        print(fmt::format("server  {}{}", isPublished ? fmt::format("{:#x}", hub.server()) : "not published",
                          privateMailbox != KIV_NO_MBOX ? fmt::format(", private mailbox {:#x}", privateMailbox) : ""));
        for (const auto& client : hub.clients()) {
            const ClientSettings& settings = client->settings();
            const auto names = Vorni::referenceNames(settings.protocol);
            print(fmt::format("client  {}{}: {}, mailbox {}, {}={}, {}={}, {} unread", nameOf(*client),
                              client.get() == &inUse ? " (in use)" : "",
                              client->isConnected() ? "connected" : "not connected", settings.mailboxName, names[0],
                              client->references().clientRef, names[1], client->references().serverRef,
                              client->inbox().signals().size()));
        }
    }

    void oamState(const Client&, const std::string& state) override { print("   | O&M state: " + state); }

    void loaded(const Client&, const LoadSummary& summary) override { print("   | " + printLoadSummary(summary)); }

    void softwareList(const Client&, const std::string& text) override { printText(text); }

    void runningModule(const Client&, const std::string& loadModule) override
    {
        print("   | running: " + printable(loadModule));
    }

    void productData(const Client&, const char*, const ShownFields& fields) override
    {
        for (const ShownField& field : fields) {
            print(fmt::format("   | {}: {}", field.name, printValue(field)));
        }
    }

    void logEntries(const Client&, std::uint32_t, const std::vector<std::string>& entries) override
    {
        for (const std::string& entry : entries) {
            print("   | " + printable(entry));
        }
    }

    void fruDescription(const Client&, const std::string& fdfId, const std::string& text,
                        const std::string& file) override
    {
        if (file.empty()) {
            printText(text);
        } else {
            print(fmt::format("   | {}: {} bytes written to {}", printable(fdfId), text.size(), file));
        }
    }

    void capabilities(const Client&, const std::vector<Capability>& capabilities) override
    {
        for (const std::string& line : printCapabilityTable(capabilities)) {
            print("   | " + line);
        }
    }

    void report(const Client&, const Report& report) override
    {
        for (const std::string& line : report.lines) {
            print("   | " + line);
        }
    }

    void live(const Client& client, const LiveReport& view) override
    {
        if (m_redraws) {
            draw(fmt::format("{}; client {}; Ctrl-C ends", view.title, nameOf(client)), view.report.lines);
            return;
        }
        for (const std::string& line : view.news) {
            print(line);
        }
    }

    void faults(const Client& client) override
    {
        for (const std::string& line : printFaultTable(client.faults())) {
            print("   | " + line);
        }
    }

    void beginWatch(const Client& client) override
    {
        setWatched(client);
        if (m_redraws) {
            drawFaults(client);
            return;
        }
        for (const auto& [faultId, fault] : client.faults().faults()) {
            onFaultChange(client, {FaultEvent::shown, fault});
        }
    }

    void onFaultChange(const Client& client, const FaultChange& change) override
    {
        if (&client != watched()) {
            return;
        }
        if (m_redraws) {
            drawFaults(client);
        } else {
            print(printFaultChange(change));
        }
    }

    void error(const std::string& text) override { writeLine(stderr, "vornclient: " + text); }

private:
    void printText(const std::string& text)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            print("   | " + printable(withoutTabs(line)));
        }
    }

    void drawFaults(const Client& client)
    {
        draw(fmt::format("faults shown to client {} at {}; Ctrl-C ends", nameOf(client), isoTime(Clock::now())),
             printFaultTable(client.faults()));
    }

    /// The whole screen, so that nothing of a longer table stays.
    void draw(const std::string& title, const std::vector<std::string>& lines)
    {
        if (m_settings.quiet) {
            return;
        }
        std::string screen = "\033[H\033[2J" + title + "\n";
        for (const std::string& line : lines) {
            screen += "\n" + line;
        }
        writeLine(stdout, screen);
    }

    void printSignal(const char* arrow, const Client& client, const Signal& signal)
    {
        if (isMuted(client, signal)) {
            return;
        }
        const std::string& label = client.settings().label;
        const std::string prefix = label.empty() ? "" : "[" + label + "] ";
        const std::string from = signal.peerIsServer          ? ""
                                 : signal.peerName != nullptr ? fmt::format(" (from {})", signal.peerName)
                                                              : fmt::format(" (from {:#x})", signal.peer);
        print(fmt::format("{}{} {}{}", prefix, arrow, signal.print(), from));
    }

    void print(const std::string& line)
    {
        if (!m_settings.quiet) {
            writeLine(stdout, m_settings.times ? isoTime(Clock::now()) + " " + line : line);
        }
    }

    PrinterSettings m_settings;
    bool m_redraws = currentScreen().isTerminal;
};

class JsonPrinter final : public Printer
{
public:
    explicit JsonPrinter(const PrinterSettings& settings)
        : Printer(!settings.quiet && ::isatty(STDERR_FILENO) != 0), m_quiet(settings.quiet)
    {
    }

    void onSent(const Client& client, const Signal& signal) override { printSignal("->", client, signal); }

    void onReceived(const Client& client, const Signal& signal) override { printSignal("<-", client, signal); }

    void onServerPublished(kiv_mbox_id_t server) override { print({{"event", "published"}, {"mailbox", server}}); }

    void onServerGone(kiv_mbox_id_t server) override { print({{"event", "gone"}, {"mailbox", server}}); }

    void step(const std::string& place, const std::string& command) override
    {
        print({{"event", "step"}, {"place", place}, {"command", command}});
    }

    void unitOutput(const std::string& command, const std::string& output, int exitCode) override
    {
        print({{"event", "ulmo"}, {"command", command}, {"output", output}, {"exitCode", exitCode}});
    }

    void status(const ClientHub& hub, const Client& inUse) override
    {
        Json clients = Json::array();
        for (const auto& client : hub.clients()) {
            const auto names = Vorni::referenceNames(client->settings().protocol);
            clients.push_back({{"client", client->settings().label},
                               {"inUse", client.get() == &inUse},
                               {"connected", client->isConnected()},
                               {"name", client->settings().mailboxName},
                               {"mailbox", mailboxOrNull(client->mailbox())},
                               {names[0], client->references().clientRef},
                               {names[1], client->references().serverRef},
                               {"unread", client->inbox().signals().size()}});
        }
        print({{"event", "status"},
               {"server", mailboxOrNull(hub.server())},
               {"private", mailboxOrNull(hub.serverFor(Vorni::Protocol::rhune).id)},
               {"clients", std::move(clients)}});
    }

    void oamState(const Client& client, const std::string& state) override
    {
        print({{"event", "oamState"}, {"client", client.settings().label}, {"state", state}});
    }

    void loaded(const Client& client, const LoadSummary& summary) override
    {
        print({{"event", "load"},
               {"client", client.settings().label},
               {"loadModule", summary.loadModule},
               {"result", loadResultName(summary.result)},
               {"bytes", summary.bytes},
               {"blocks", summary.blocks},
               {"seconds", summary.time.count()},
               {"bytesPerSecond", summary.bytesPerSecond()}});
    }

    void softwareList(const Client& client, const std::string& text) override
    {
        print({{"event", "software"}, {"client", client.settings().label}, {"text", text}});
    }

    void runningModule(const Client& client, const std::string& loadModule) override
    {
        print({{"event", "running"}, {"client", client.settings().label}, {"loadModule", loadModule}});
    }

    void productData(const Client& client, const char* kind, const ShownFields& fields) override
    {
        print({{"event", "productData"},
               {"client", client.settings().label},
               {"kind", kind},
               {"fields", toJson(fields)}});
    }

    void logEntries(const Client& client, std::uint32_t logId, const std::vector<std::string>& entries) override
    {
        print({{"event", "log"}, {"client", client.settings().label}, {"logId", logId}, {"entries", entries}});
    }

    void fruDescription(const Client& client, const std::string& fdfId, const std::string& text,
                        const std::string& file) override
    {
        Json line{{"event", "fruDescription"}, {"client", client.settings().label}, {"fdfId", fdfId}};
        if (file.empty()) {
            line["text"] = text;
        } else {
            line["file"] = file;
            line["bytes"] = text.size();
        }
        print(std::move(line));
    }

    void capabilities(const Client& client, const std::vector<Capability>& capabilities) override
    {
        Json list = Json::array();
        for (const Capability& capability : capabilities) {
            list.push_back(toJson(capability));
        }
        print({{"event", "capabilities"}, {"client", client.settings().label}, {"capabilities", std::move(list)}});
    }

    void report(const Client& client, const Report& report) override
    {
        Json line{{"event", report.event}, {"client", client.settings().label}};
        line.update(toJson(report.fields));
        if (report.rowsName != nullptr) {
            line[report.rowsName] = toJson(report.rows);
        }
        print(std::move(line));
    }

    void live(const Client& client, const LiveReport& view) override { report(client, view.report); }

    void faults(const Client& client) override
    {
        Json faults = Json::array();
        for (const auto& [faultId, fault] : client.faults().faults()) {
            faults.push_back(toJson(fault));
        }
        print({{"event", "faults"}, {"client", client.settings().label}, {"faults", std::move(faults)}});
    }

    void beginWatch(const Client& client) override
    {
        setWatched(client);
        for (const auto& [faultId, fault] : client.faults().faults()) {
            onFaultChange(client, {FaultEvent::shown, fault});
        }
    }

    void onFaultChange(const Client& client, const FaultChange& change) override
    {
        if (&client != watched()) {
            return;
        }
        Json line{{"event", "fault"}, {"change", faultEventName(change.event)}, {"client", client.settings().label}};
        if (change.event != FaultEvent::cleared) {
            line.update(toJson(change.fault));
        }
        print(std::move(line));
    }

    void error(const std::string& text) override { writeLine(stderr, dump({{"event", "error"}, {"text", text}})); }

private:
    using Json = nlohmann::ordered_json;

    static Json mailboxOrNull(kiv_mbox_id_t mailbox) { return mailbox == KIV_NO_MBOX ? Json() : Json(mailbox); }

    static Json toJson(const ShownFault& fault)
    {
        Json json{{"faultId", fault.faultId},
                  {"fault", printFaultId(fault.faultId)},
                  {"faultCase", fault.faultCase},
                  {"faultDescription", fault.description}};
        if (fault.recoveryTime) {
            json["recoveryTime"] = *fault.recoveryTime;
            json["hwFaultLabel"] = fault.label;
        }
        json["since"] = isoTime(fault.since);
        return json;
    }

    static Json toJson(const ShownFields& fields)
    {
        Json json = Json::object();
        for (const ShownField& field : fields) {
            std::visit([&](const auto& value) { json[field.name] = value; }, field.value);
        }
        return json;
    }

    static Json toJson(const std::vector<ShownFields>& rows)
    {
        Json json = Json::array();
        for (const ShownFields& row : rows) {
            json.push_back(toJson(row));
        }
        return json;
    }

    static Json toJson(const Capability& capability)
    {
        const char* name = capabilityName(capability.number);
        return {{"number", capability.number},
                {"name", name != nullptr ? Json(name) : Json()},
                {"parameters", toJson(capability.parameters)}};
    }

    static Json fieldsOf(const Vorni::DecodedSignal& signal)
    {
        Json fields = Json::object();
        for (const Vorni::FieldValue& field : signal.fields) {
            if (field.info->kind == Vorni::FieldKind::number) {
                fields[field.info->name] = field.number;
            } else {
                fields[field.info->name] = field.text;
            }
        }
        return fields;
    }

    void printSignal(const char* arrow, const Client& client, const Signal& signal)
    {
        if (isMuted(client, signal)) {
            return;
        }
        const Vorni::DecodedSignal decoded = signal.decode();
        Json line{{"time", isoTime(signal.time)},
                  {"direction", arrow},
                  {"client", client.settings().label},
                  {"number", decoded.number},
                  {"name", Vorni::signalName(decoded.number)}};
        for (const Vorni::ReferenceValue& reference : decoded.references) {
            line[reference.name] = reference.value;
        }
        line["fields"] = fieldsOf(decoded);
        if (!decoded.rest.empty()) {
            line["rest"] = decoded.rest;
        }
        if (decoded.truncated) {
            line["truncated"] = true;
        }
        if (!signal.peerIsServer) {
            line["from"] = signal.peer;
        }
        print(std::move(line));
    }

    void print(Json line)
    {
        if (m_quiet) {
            return;
        }
        if (!line.contains("time")) {
            line["time"] = isoTime(Clock::now());
        }
        writeLine(stdout, dump(line));
    }

    /// Texts come from peers and needn't be UTF-8.
    static std::string dump(const Json& line) { return line.dump(-1, ' ', false, Json::error_handler_t::replace); }

    bool m_quiet;
};

} // namespace

std::unique_ptr<Printer> Printer::create(const PrinterSettings& settings)
{
    if (settings.json) {
        return std::make_unique<JsonPrinter>(settings);
    }
    return std::make_unique<TextPrinter>(settings);
}

bool Printer::isMuted(const Client& client, const Signal& signal) const
{
    const std::uint32_t number = signal.number();
    return m_watched != nullptr || m_isLive ||
           (m_loading == &client && (number == OmlaVornLoadLmcDataS::number || number == OmlaVornLoadLmcAckS::number));
}

void Printer::progress(const std::string& text)
{
    if (m_showsProgress) {
        fmt::print(stderr, "\r\033[K{}", text);
        std::fflush(stderr);
        m_progressShown = true;
    }
}

void Printer::endProgress()
{
    if (std::exchange(m_progressShown, false)) {
        fmt::print(stderr, "\r\033[K");
        std::fflush(stderr);
    }
}

void Printer::writeLine(std::FILE* stream, const std::string& line)
{
    endProgress();
    fmt::print(stream, "{}\n", line);
    std::fflush(stream);
}

} // namespace VornClient
