#include "fdfclient/fdfClient.h"

#include "sarna/handles.h"
#include "trace/trace.h"

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr int found = 0;
constexpr int notFound = 1;

/// A stored text; empty where there is none, and on every failure.
std::string readStored(const char* key)
{
    sarna_db_group_t group = nullptr;
    sarna_open_db_group("sys_bpar", &group);
    const SarnaGroup groupOwner(group);
    sarna_node_t node = nullptr;
    sarna_open_node(group, "/sys/vorn/", &node);
    return readSarnaText(SarnaNode(node), key).text; // null handles are refused
}

/// Nothing where it can't be opened, or may not be: a pipe would never end. A folder has nothing in it.
std::optional<std::string> readFile(const std::string& path)
{
    std::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    if (type == fs::file_type::directory) {
        return "";
    }
    std::ifstream file;
    if (type == fs::file_type::regular) {
        file.open(path, std::ios::binary);
    }
    if (!file.is_open()) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return std::move(text).str();
}

/// Takes an entry of the directory as the file of its kind; false where there is one already.
bool takeOnce(std::string& file, const std::string& entry, const char* kind)
{
    if (!file.empty()) {
        TRACE_INFO("ABN: FDF found more than one {} file when only one was expected", kind);
        return false;
    }
    file = entry;
    return true;
}

std::vector<std::string> splitIds(const std::string& text)
{
    constexpr std::string_view separators("\0\t\n ,", 5);
    std::vector<std::string> ids;
    for (std::size_t begin = text.find_first_not_of(separators); begin != std::string::npos;) {
        const std::size_t end = text.find_first_of(separators, begin);
        ids.push_back(text.substr(begin, end - begin));
        TRACE_INFO("FDFClient::readFdfDirectory found FDF_ID: {}", ids.back());
        begin = text.find_first_not_of(separators, end);
    }
    return ids;
}

std::shared_ptr<const FDFCapIdList> idList(const std::string& id)
{
    auto list = std::make_shared<FDFCapIdList>();
    list->ids.push_back(id);
    return list;
}

} // namespace

const char* const FDFClient::installedDirectory = VORN_FDF_DIR;

FDFClient::FDFClient(const std::string& directory)
{
    readFdfDirectory(directory);
}

int FDFClient::readFdfDirectory(const std::string& path)
{
    m_capabilities.clear();
    m_directory.clear();
    m_infoFile.clear();
    m_xmlFile.clear();
    return useStoredFile() || (findFiles(path) && readIds()) ? found : notFound;
}

/// The directory isn't looked at then. A file that was in force once stays so, also where it is gone from the store.
bool FDFClient::useStoredFile()
{
    const std::string id = readStored("fdf_id");
    const std::string file = readStored("fdf_file");
    if (id.empty() || file.empty()) {
        return false;
    }
    TRACE_INFO("FDFClient::readFdfDirectory got sarna fdfId: '{}', fdfFile: '{}...'", id, file.substr(0, 5));
    m_isOverridden = true;
    m_capabilities.push_back(idList(id));
    return true;
}

bool FDFClient::findFiles(const std::string& path)
{
    const std::unique_ptr<char, decltype(&std::free)> realPath(::realpath(path.c_str(), nullptr), std::free);
    if (realPath == nullptr) {
        return false;
    }
    m_directory = realPath.get();
    if (!sortEntries()) {
        m_directory.clear();
        m_infoFile.clear();
        m_xmlFile.clear();
        return false;
    }
    if (m_infoFile.empty()) {
        TRACE_INFO("ABN: no FDF info file found");
        return false;
    }
    if (m_xmlFile.empty()) {
        TRACE_INFO("ABN: no FDF XML file found");
        return false;
    }
    return true;
}

/// Whatever isn't an info file is taken as the XML file. False where there is a second one of either.
bool FDFClient::sortEntries()
{
    std::error_code error;
    for (fs::directory_iterator entry(m_directory, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        const bool isInfo = name.find(".info") != std::string::npos;
        if (!(isInfo ? takeOnce(m_infoFile, name, "info") : takeOnce(m_xmlFile, name, "XML"))) {
            return false;
        }
    }
    return true;
}

bool FDFClient::readIds()
{
    if (const auto text = readFile(m_directory + '/' + m_infoFile)) {
        const std::vector<std::string> ids = splitIds(*text);
        if (ids.empty()) {
            TRACE_INFO("ABN: FDF has no FDF_ID");
            return false;
        }
        if (ids.size() > 1) {
            TRACE_INFO("ABN: FDF has more than one FDF_ID when only one was expected");
            return false;
        }
        m_capabilities.push_back(idList(ids.front()));
    }
    if (m_capabilities.empty()) {
        TRACE_INFO("FDFClient::readFdfDirectory found no FDF_IDs");
        return false;
    }
    return true;
}

int FDFClient::getFruDescriptionFile(const std::string& fdfId, std::string& out) const
{
    TRACE_INFO("FDFClient::getFruDescriptionFile(fdfId={})", fdfId);
    if (m_capabilities.empty()) {
        TRACE_INFO("ABN: no FDF_ID to match against");
        return notFound;
    }
    if (fdfId != m_capabilities.front()->ids.front()) {
        TRACE_INFO("ABN: invalid FDF_ID");
        return notFound;
    }
    if (m_isOverridden) {
        TRACE_INFO("FDFClient::getFruDescriptionFile(fdfId={}) getting from sarna", fdfId);
        out = readStored("fdf_file");
        return found;
    }
    if (auto text = readFile(m_directory + '/' + m_xmlFile)) {
        out = std::move(*text);
        return found;
    }
    return notFound;
}

bool FDFClient::getCapabilities(std::vector<std::shared_ptr<const FDFCapIdList>>& records) const
{
    records.insert(records.end(), m_capabilities.begin(), m_capabilities.end());
    return m_isOverridden;
}
