/// endurance: plays many clients against the server for a long time, kills clients and the servers behind it, and looks
/// at the end whether anything is left that shouldn't be.

#include "report.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <random>

using namespace Endurance;

namespace {

/// A private run-time directory.
class Folder
{
public:
    Folder()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "enduranceXXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no folder for the run");
        }
        m_path = pattern;
    }
    ~Folder()
    {
        std::error_code ignored;
        if (!m_isKept) {
            std::filesystem::remove_all(m_path, ignored);
        }
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    void keep() { m_isKept = true; }

private:
    std::filesystem::path m_path;
    bool m_isKept = false;
};

bool play(PlaySettings settings, const std::string& markdown, bool keep)
{
    Folder folder;
    if (keep) {
        folder.keep();
        fmt::print("in {}\n", folder.path().string());
    }
    settings.directory = folder.path();
    fmt::print("{} minutes, {} clients, seed {}\n", settings.minutes, settings.clients, settings.seed);
    const Result result = Play(settings).run();
    const std::string text = printResult(result);
    fmt::print("\n{}\n{}\n", text, result.holds() ? "All holds." : "Not all holds.");
    if (!markdown.empty() && !(std::ofstream(markdown) << text << std::flush)) {
        throw std::runtime_error("can't write " + markdown);
    }
    return result.holds();
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Plays many clients against the server for a long time and looks at what is left.", "endurance");
    PlaySettings settings;
    settings.seed = std::random_device()();
    std::string markdown;
    bool keep = false;
    app.add_option("--minutes", settings.minutes, "How long; parts of a minute too")
        ->check(CLI::Range(0.02, 1e5))
        ->capture_default_str();
    app.add_option("--clients", settings.clients, "Client processes at a time")
        ->check(CLI::Range(2, 1000))
        ->capture_default_str();
    app.add_option("--seed", settings.seed, "Of what happens at random; by default a new one, which is printed");
    app.add_flag("--smoke", settings.isSmoke, "For a run of seconds: memory isn't judged");
    app.add_flag("--keep", keep, "Leaves the run-time directory with the programs' output");
    app.add_option("--markdown", markdown, "Writes the tables to this file too");
    CLI11_PARSE(app, argc, argv);
    try {
        return play(settings, markdown, keep) ? 0 : 1;
    } catch (const std::exception& error) {
        fmt::print(stderr, "endurance: {}\n", error.what());
        return 2;
    }
}
