#include "tools/boardsim/dunl/restartHistory.h"

#include "runDir.h"

#include "dunl/dunl.pb.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace boardsim {

namespace {

using tolme::dunl::GetRestartHistoryCfm;
using tolme::dunl::RestartBoardNotificationInd;

constexpr const char* folder = "boardsim/dunl";

// More than a history can take; whatever stands there isn't read to its end.
constexpr std::size_t maxFile = RestartHistory::max * (2 * RestartHistory::maxText + 100);

std::string path()
{
    return ruDir(folder) + "/restarts";
}

void toItem(const RestartBoardNotificationInd& restart, GetRestartHistoryCfm::HistoryItem& item)
{
    if (restart.has_trace_information()) {
        item.set_trace_information(restart.trace_information().substr(0, RestartHistory::maxText));
    }
    if (restart.has_label()) {
        item.set_label(restart.label().substr(0, RestartHistory::maxText));
    }
    if (restart.has_restart_code()) {
        item.set_restart_code(restart.restart_code());
    }
    if (restart.has_restart_rank()) {
        item.set_restart_rank(restart.restart_rank());
    }
}

GetRestartHistoryCfm readOrNone()
{
    GetRestartHistoryCfm history;
    try {
        RestartHistory::read(history);
    } catch (const std::exception&) {
        history.Clear();
    }
    return history;
}

} // namespace

/// The file is the confirm that tells the whole history: texts stay what they are, byte by byte.
void RestartHistory::read(GetRestartHistoryCfm& history)
{
    std::error_code error;
    if (!std::filesystem::exists(path(), error) && !error) {
        return;
    }
    std::ifstream file(path(), std::ios::binary);
    std::string content(maxFile, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    content.resize(static_cast<std::size_t>(file.gcount()));
    if (!file.eof() || file.bad() || !history.ParseFromString(content)) {
        throw std::runtime_error(path() + " can't be read");
    }
}

void RestartHistory::add(const RestartBoardNotificationInd& restart)
{
    int error = 0;
    const std::string directory = makeRuDir(folder, error);
    if (error != 0) {
        throw std::runtime_error(fmt::format("no folder {}: {}", directory, std::strerror(error)));
    }
    GetRestartHistoryCfm history;
    toItem(restart, *history.add_history_item());
    const GetRestartHistoryCfm earlier = readOrNone();
    for (const auto& item : earlier.history_item()) {
        if (static_cast<std::size_t>(history.history_item_size()) < max) {
            *history.add_history_item() = item;
        }
    }
    const std::string next = path() + ".new";
    std::ofstream file(next, std::ios::binary | std::ios::trunc);
    file << history.SerializeAsString();
    file.close();
    if (!file || std::rename(next.c_str(), path().c_str()) != 0) {
        throw std::runtime_error(path() + " can't be written");
    }
}

void RestartHistory::clear()
{
    std::error_code error;
    std::filesystem::remove(path(), error);
    if (error) {
        throw std::runtime_error(path() + ": " + error.message());
    }
}

} // namespace boardsim
