#include "tools/boardsim/dunl/hardwareLogStore.h"

#include "runDir.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace boardsim {

namespace {

constexpr const char* folder = "boardsim/dunl";

// The texts of a log, each with its NUL, go to the client in an area of this size.
constexpr std::size_t maxTexts = 424;
constexpr std::size_t maxLabel = 255;
constexpr std::size_t maxFile = maxTexts * (maxTexts + maxLabel);

std::string pathOf(std::uint32_t log)
{
    return fmt::format("{}/log{}", ruDir(folder), log);
}

std::string contentOf(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string content(maxFile, '\0');
    file.read(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file.eof() || file.bad()) {
        throw std::runtime_error(path + " can't be read");
    }
    content.resize(static_cast<std::size_t>(file.gcount()));
    return content;
}

/// A log's file holds the members of its entries, each with its NUL.
std::vector<LogEntry> parsed(const std::string& content)
{
    std::vector<LogEntry> entries;
    for (std::size_t next = 0; next < content.size();) {
        LogEntry& entry = entries.emplace_back();
        for (std::string* member : {&entry.label, &entry.serverRef, &entry.text}) {
            const std::size_t end = content.find('\0', next);
            if (end == std::string::npos) {
                throw std::runtime_error("the log is damaged");
            }
            member->assign(content, next, end - next);
            next = end + 1;
        }
    }
    return entries;
}

void keepLast(std::vector<LogEntry>& entries)
{
    std::size_t size = 0;
    const auto tooOld = std::find_if(entries.rbegin(), entries.rend(), [&size](const LogEntry& entry) {
        size += entry.text.size() + 1;
        return size > maxTexts;
    });
    entries.erase(entries.begin(), tooOld.base());
}

void check(const LogEntry& entry)
{
    if (entry.text.size() >= maxTexts || entry.label.size() > maxLabel) {
        throw std::runtime_error("an entry is too long");
    }
    if ((entry.text + entry.label).find('\0') != std::string::npos) {
        throw std::runtime_error("an entry is no text");
    }
}

/// A reader finds the old log or the new one, whatever happens meanwhile.
void write(const std::string& path, const std::vector<LogEntry>& entries)
{
    const std::string next = path + ".new";
    std::ofstream file(next, std::ios::binary | std::ios::trunc);
    for (const LogEntry& entry : entries) {
        file << entry.label << '\0' << entry.serverRef << '\0' << entry.text << '\0';
    }
    file.close();
    if (!file || std::rename(next.c_str(), path.c_str()) != 0) {
        throw std::runtime_error(path + " can't be written");
    }
}

} // namespace

std::optional<std::vector<LogEntry>> HardwareLogStore::read(std::uint32_t log)
{
    std::error_code error;
    if (!std::filesystem::exists(pathOf(log), error) && !error) {
        return std::nullopt;
    }
    std::vector<LogEntry> entries = parsed(contentOf(pathOf(log)));
    keepLast(entries);
    return entries;
}

void HardwareLogStore::append(std::uint32_t log, const std::vector<LogEntry>& entries)
{
    int error = 0;
    const std::string directory = makeRuDir(folder, error);
    if (error != 0) {
        throw std::runtime_error(fmt::format("no folder {}: {}", directory, std::strerror(error)));
    }
    std::for_each(entries.begin(), entries.end(), check);
    std::vector<LogEntry> all = read(log).value_or(std::vector<LogEntry>());
    all.insert(all.end(), entries.begin(), entries.end());
    keepLast(all);
    write(pathOf(log), all);
}

void HardwareLogStore::clear(std::uint32_t log)
{
    std::error_code error;
    std::filesystem::remove(pathOf(log), error);
    if (error) {
        throw std::runtime_error(pathOf(log) + ": " + error.message());
    }
}

} // namespace boardsim
