/// Prints the signal reference, docs/signals.md, from the tables of the interfaces and from what the tests have
/// covered: signaldoc DIRECTORY, the one that VORN_SIGNAL_COVERAGE named when they ran. A signal without a test is an
/// error.

#include "dunl/dunl.pb.h"
#include "dunl/numbers.h"
#include "fesk/fesk.pb.h"
#include "fesk/numbers.h"
#include "ganti/ganti.pb.h"
#include "ganti/numbers.h"
#include "messageNumber.h"
#include "vorni/signalTable.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <google/protobuf/descriptor.h>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>

namespace {

/// The tests that cover a signal, by its number.
using Coverage = std::map<std::uint32_t, std::set<std::string>>;

/// A file there holds a test's name and the numbers of its signals, a line each.
Coverage readCoverage(const std::filesystem::path& directory)
{
    Coverage coverage;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::ifstream file(entry.path());
        std::string test;
        std::getline(file, test);
        for (std::uint32_t number = 0; file >> number;) {
            coverage[number].insert(test);
        }
    }
    return coverage;
}

/// How much of its beginning a test's name shares with the name of a class.
std::size_t resemblance(std::string_view test, std::string_view className)
{
    const auto differs = std::mismatch(test.begin(), test.end(), className.begin(), className.end()).first;
    return static_cast<std::size_t>(differs - test.begin());
}

/// The first test of the class that answers the signal, or of what comes nearest to one.
std::string testOf(const Vorni::SignalInfo& signal, const Coverage& coverage)
{
    const auto found = coverage.find(signal.number);
    if (found == coverage.end()) {
        return {};
    }
    const auto& tests = found->second;
    const auto first = std::max_element(tests.begin(), tests.end(), [&signal](const auto& left, const auto& right) {
        return resemblance(left, signal.answeredBy) < resemblance(right, signal.answeredBy);
    });
    return fmt::format("`{}`", *first);
}

/// Whether each signal has a test; tells of the ones that have none.
bool isAllCovered(const Coverage& coverage)
{
    bool isAll = true;
    for (const Vorni::SignalInfo& signal : Vorni::signals()) {
        if (!coverage.contains(signal.number)) {
            fmt::print(stderr, "signaldoc: no test covers {}\n", signal.name);
            isAll = false;
        }
    }
    return isAll;
}

const char* kindName(Vorni::FieldKind kind)
{
    switch (kind) {
    case Vorni::FieldKind::number:
        return "number";
    case Vorni::FieldKind::text:
        return "text";
    case Vorni::FieldKind::bytes:
        break;
    }
    return "bytes";
}

void printSignalTable(Vorni::Protocol protocol, const Coverage& coverage)
{
    fmt::print("| Signal | Number | Bytes | Direction | By | Test |\n|---|---|---|---|---|---|\n");
    for (const Vorni::SignalInfo& signal : Vorni::signals()) {
        if (signal.protocol != protocol) {
            continue;
        }
        fmt::print("| `{}` | 0x{:X} | {}{} | {} | `{}` | {} |\n", signal.name, signal.number, signal.size,
                   signal.openEnded ? " or more" : "",
                   signal.direction == Vorni::Direction::toServer ? "to the server" : "to the client",
                   signal.answeredBy, testOf(signal, coverage));
    }
}

void printFields(const Vorni::SignalInfo& signal)
{
    fmt::print("\n### `{}`\n\n| Offset | Bytes | Field | Kind | Meaning |\n|---|---|---|---|---|\n", signal.name);
    for (const Vorni::FieldInfo& field : signal.fields) {
        fmt::print("| {} | {} | `{}` | {} | {} |\n", field.offset,
                   field.size != 0 ? std::to_string(field.size) : "to the end", field.name, kindName(field.kind),
                   field.meaning);
    }
}

void printSignals(Vorni::Protocol protocol, const Coverage& coverage)
{
    printSignalTable(protocol, coverage);
    for (const Vorni::SignalInfo& signal : Vorni::signals()) {
        if (signal.protocol == protocol && !signal.fields.empty()) {
            printFields(signal);
        }
    }
}

std::string fieldNames(const google::protobuf::Descriptor& message)
{
    std::string names;
    for (int i = 0; i < message.field_count(); ++i) {
        fmt::format_to(std::back_inserter(names), "{}`{}`", i == 0 ? "" : ", ", message.field(i)->name());
    }
    return names;
}

void printMessages(const char* server, std::span<const MessageNumber> messages)
{
    fmt::print("\n### {}\n\n| Message | Number | Fields |\n|---|---|---|\n", server);
    const auto* pool = google::protobuf::DescriptorPool::generated_pool();
    for (const MessageNumber& message : messages) {
        const auto* descriptor = pool->FindMessageTypeByName(message.name);
        fmt::print("| `{}` | 0x{:X} | {} |\n", message.name, message.number,
                   descriptor != nullptr ? fieldNames(*descriptor) : "");
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 || !std::filesystem::is_directory(argv[1])) {
        fmt::print(stderr, "Usage: signaldoc DIRECTORY    with what the tests have left there\n");
        return EXIT_FAILURE;
    }
    const Coverage coverage = readCoverage(argv[1]);
    if (!isAllCovered(coverage)) {
        return EXIT_FAILURE;
    }

    // The generated pool knows a file once the program has used a message of it.
    tolme::dunl::DunlServerMetadata::descriptor();
    tolme::fesk::ServerMetadata::descriptor();
    gant::ServerMetadata::descriptor();
    yarrowi::ServerMetadata::descriptor();

    fmt::print(
        "# Signals\n\nGenerated by `scripts/signals` from the tables in `interfaces/` and from what the tests covered "
        "when they ran. Don't edit. A signal's test is one that sends it to the server, or expects it and gets it.\n\n"
        "## VORNI\n\nA signal begins with its number (4 bytes, host order), `clientRef` and `serverRef` (4 bytes "
        "each, big-endian); its fields follow, big-endian. Bytes between the fields are reserved and zero.\n\n");
    printSignals(Vorni::Protocol::vorni, coverage);
    fmt::print("\n## RHUNE\n\nAs VORNI, but `procedureRef` and `connectionRef` behind the number. All signals to the "
               "server go to its private mailbox.\n\n");
    printSignals(Vorni::Protocol::rhune, coverage);
    fmt::print("\n## Board servers\n\nA message begins with its number (4 bytes, host order), `procedureRef` and "
               "`connectionRef` (4 bytes each, big-endian); its protobuf encoding follows.\n");
    printMessages("DUNL server", tolme::dunl::messages);
    printMessages("FESK server", tolme::fesk::messages);
    printMessages("yarrowi server", yarrowi::messages);
    fmt::print("\n## GANTI server\n\nA frame on its message socket begins with the number and `procRef` (4 bytes each, "
               "big-endian); the protobuf encoding follows.\n");
    printMessages("Software manager", gant::messages);
}
