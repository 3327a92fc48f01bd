#include "tools/boardsim/dunl/hardwareLogs.h"

#include "tools/boardsim/core/console.h"
#include "tools/boardsim/dunl/hardwareLogStore.h"

#include "dunl/dunl.pb.h"

#include <fmt/format.h>

namespace boardsim {

namespace {

constexpr std::uint32_t nodeConfigLog = 2;

// Why a log isn't read.
constexpr std::uint32_t noSuchLog = 0;
constexpr std::uint32_t readFailed = 1;

template <typename Req>
Verdict keep(const Req& request, const std::string& serverRef)
{
    std::vector<LogEntry> entries;
    for (const std::string& text : request.entry()) {
        entries.push_back({request.label(), serverRef, text});
    }
    try {
        HardwareLogStore::append(request.log_id(), entries);
        return Verdict::confirm;
    } catch (const std::exception& error) {
        console::traffic("dunl", fmt::format("log {}: {}", request.log_id(), error.what()));
        return Verdict::reject;
    }
}

void print(std::uint32_t log, std::ostream& out)
{
    const auto entries = HardwareLogStore::read(log);
    if (!entries) {
        throw CommandError(fmt::format("log {} was never written", log));
    }
    for (const LogEntry& entry : *entries) {
        const std::string client = entry.serverRef.empty() ? "" : ", serverRef " + entry.serverRef;
        out << printable(fmt::format("[{}{}] {}", entry.label, client, entry.text)) << '\n';
    }
}

void printOrClear(const Words& args, std::ostream& out)
{
    expectWords(args, 1, 2);
    const std::uint32_t log = parseNumber(args[0], "the log", HardwareLogStore::maxLog);
    if (args.size() == 1) {
        print(log, out);
    } else if (args[1] == "clear") {
        HardwareLogStore::clear(log);
    } else {
        throw CommandError(fmt::format("what does \"{}\" mean? clear, or nothing", args[1]));
    }
}

} // namespace

Verdict HardwareLogs::set(const Connection&, const tolme::dunl::HwLogSetReq& request, tolme::dunl::HwLogSetCfm&,
                          tolme::dunl::HwLogSetRej&)
{
    const bool isMine = request.has_log_id() && request.log_id() <= HardwareLogStore::maxLog;
    return isMine && request.log_id() != nodeConfigLog ? keep(request, "") : Verdict::reject;
}

Verdict HardwareLogs::storeNodeConfig(const Connection&, const tolme::dunl::StoreNodeConfigEntryReq& request,
                                      tolme::dunl::StoreNodeConfigEntryCfm&, tolme::dunl::StoreNodeConfigEntryRej&)
{
    return request.log_id() == nodeConfigLog
               ? keep(request, request.has_server_ref() ? std::to_string(request.server_ref()) : "")
               : Verdict::reject;
}

Verdict HardwareLogs::get(const Connection&, const tolme::dunl::HwLogGetReq& request, tolme::dunl::HwLogGetCfm& confirm,
                          tolme::dunl::HwLogGetRej& reject)
{
    reject.set_error_type(noSuchLog);
    if (!request.has_log_id() || request.log_id() > HardwareLogStore::maxLog) {
        return Verdict::reject;
    }
    try {
        const auto entries = HardwareLogStore::read(request.log_id());
        if (!entries) {
            return Verdict::reject;
        }
        for (const LogEntry& entry : *entries) {
            confirm.add_entry(entry.text);
        }
        return Verdict::confirm;
    } catch (const std::exception& error) {
        console::traffic("dunl", fmt::format("log {}: {}", request.log_id(), error.what()));
        reject.set_error_type(readFailed);
        return Verdict::reject;
    }
}

void HardwareLogs::prepareReject(Message& reject) const
{
    if (auto* get = dynamic_cast<tolme::dunl::HwLogGetRej*>(&reject)) {
        get->set_error_type(readFailed);
    }
}

std::vector<CommandRow> HardwareLogs::commands()
{
    return {{"log <id> [clear]", "a hardware log's entries, the oldest first; cleared, it was never written",
             printOrClear}};
}

void HardwareLogs::show(Json& server) const
{
    Json& logs = server["logEntries"] = Json::object();
    for (std::uint32_t log = 0; log <= HardwareLogStore::maxLog; ++log) {
        try {
            if (const auto entries = HardwareLogStore::read(log)) {
                logs[std::to_string(log)] = entries->size();
            }
        } catch (const std::exception&) {
            logs[std::to_string(log)] = "unreadable";
        }
    }
}

} // namespace boardsim
