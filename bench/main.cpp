/// Measures kiv and vornserver beside bare sockets and ZeroMQ, the way of a fault to many subscribers, the load of
/// software, what many clients cost, how long the server takes to start, and the system calls of a message.

#include "mailbox.h"
#include "results.h"
#include "roles.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

using namespace Bench;

namespace {

constexpr std::size_t mebibyte = 1024 * 1024;

const Effort thorough{
    .rounds = 9,
    .roundTrips = 10'000,
    .messages = 40'000,
    .requests = 2'000,
    .signals = 30'000,
    .loadBlocks = 4'000,
    .loadBytes = 32 * mebibyte,
    .longLoadBytes = 1024 * mebibyte,
    .starts = 100,
    .countedRoundTrips = 2'000,
    .mailboxClients = {1, 10, 100, 1000},
    .groupClients = {1, 10'000},
    .processClients = {1, 200, 1000},
    .mailboxSubscribers = {1, 100, 1000},
    .processSubscribers = {100, 1000},
};
const Effort smoke{
    .rounds = 3,
    .roundTrips = 500,
    .messages = 2'000,
    .requests = 200,
    .signals = 1'000,
    .loadBlocks = 200,
    .loadBytes = 4 * mebibyte,
    .longLoadBytes = 64 * mebibyte,
    .starts = 5,
    .countedRoundTrips = 200,
    .mailboxClients = {1, 10, 100, 1000},
    .groupClients = {1, 2 * groupSize},
    .processClients = {1, 20},
    .mailboxSubscribers = {1, 100, 1000},
    .processSubscribers = {20},
};

/// What can be measured by itself, in the order in which it is measured. Scale comes last: a thousand processes that
/// end keep the machine busy for a while.
struct Part {
    const char* name;
    void (*measure)(const std::string& folder, const std::string& serverProgram, const Effort& effort,
                    Results& results);
};
constexpr std::array parts{
    Part{"transports", measureTransports}, Part{"faults", measureFanOuts}, Part{"loads", measureLoads},
    Part{"starts", measureStarts},         Part{"tap", measureTap},        Part{"calls", measureSystemCalls},
    Part{"scale", measureScale},
};

std::vector<std::string> namesOfParts()
{
    std::vector<std::string> names;
    std::transform(parts.begin(), parts.end(), std::back_inserter(names), [](const Part& part) { return part.name; });
    return names;
}

/// A private folder for the sockets of a run.
class Folder
{
public:
    Folder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "vornbenchXXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw Failed("no folder for the sockets");
        }
        m_path = pattern;
    }
    ~Folder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

void writeFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path);
    if (!(file << text << std::flush)) {
        throw Failed("can't write " + path);
    }
}

Results measureParts(const std::vector<std::string>& names, bool quick, const std::string& serverProgram)
{
    const Effort& effort = quick ? smoke : thorough;
    Results results;
    results.quick = quick;
    results.rounds = effort.rounds;
    ::getloadavg(&results.loadBefore, 1);
    const Folder folder;
    useRunDir(folder.path());
    createMailbox("bench");
    for (const Part& part : parts) {
        if (std::find(names.begin(), names.end(), part.name) != names.end()) {
            part.measure(folder.path(), serverProgram, effort, results);
        }
    }
    return results;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Measures kiv and vornserver beside bare sockets and ZeroMQ.", "vornbench");
    bool quick = false;
    std::vector<std::string> only = namesOfParts();
    std::string json;
    std::string markdown;
    std::string server = programFolder() + "/vornserver";
    std::vector<std::string> role;
    app.add_flag("--quick", quick, "A few seconds: whether it works, not how fast it is");
    app.add_option("--only", only, "Measures these parts alone")->delimiter(',')->check(CLI::IsMember(namesOfParts()));
    app.add_option("--json", json, "Writes all figures to this file");
    app.add_option("--markdown", markdown, "Writes the tables to figures.md and calls.md in this folder too");
    app.add_option("--server", server, "The server to measure")->check(CLI::ExistingFile);
    app.add_option("--role", role, "Plays a partner of a measurement")->group("");
    CLI11_PARSE(app, argc, argv);
    try {
        if (!role.empty()) {
            playRole(role);
            return 0;
        }
        const Results results = measureParts(only, quick, server);
        std::cout << printTables(results) << printSystemCalls(results);
        if (!json.empty()) {
            writeFile(json, printJson(results) + '\n');
        }
        if (!markdown.empty()) {
            writeFile(markdown + "/figures.md", printTables(results));
            writeFile(markdown + "/calls.md", printSystemCalls(results));
        }
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "vornbench: " << error.what() << '\n';
        return 1;
    }
}
