/// Prints the signal reference, docs/signals.md, from the tables of the interfaces.

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
#include <fmt/format.h>
#include <google/protobuf/descriptor.h>
#include <span>
#include <string>

namespace {

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

void printSignalTable(Vorni::Protocol protocol)
{
    fmt::print("| Signal | Number | Bytes | Direction | By |\n|---|---|---|---|---|\n");
    for (const Vorni::SignalInfo& signal : Vorni::signals()) {
        if (signal.protocol != protocol) {
            continue;
        }
        fmt::print("| `{}` | 0x{:X} | {}{} | {} | `{}` |\n", signal.name, signal.number, signal.size,
                   signal.openEnded ? " or more" : "",
                   signal.direction == Vorni::Direction::toServer ? "to the server" : "to the client",
                   signal.answeredBy);
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

void printSignals(Vorni::Protocol protocol)
{
    printSignalTable(protocol);
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

int main()
{
    // The generated pool knows a file once the program has used a message of it.
    tolme::dunl::DunlServerMetadata::descriptor();
    tolme::fesk::ServerMetadata::descriptor();
    gant::ServerMetadata::descriptor();
    yarrowi::ServerMetadata::descriptor();

    fmt::print(
        "# Signals\n\nGenerated from the tables in `interfaces/` by `scripts/signals`. Don't edit.\n\n"
        "## VORNI\n\nA signal begins with its number (4 bytes, host order), `clientRef` and `serverRef` (4 bytes "
        "each, big-endian); its fields follow, big-endian. Bytes between the fields are reserved and zero.\n\n");
    printSignals(Vorni::Protocol::vorni);
    fmt::print("\n## RHUNE\n\nAs VORNI, but `procedureRef` and `connectionRef` behind the number. All signals to the "
               "server go to its private mailbox.\n\n");
    printSignals(Vorni::Protocol::rhune);
    fmt::print("\n## Board servers\n\nA message begins with its number (4 bytes, host order), `procedureRef` and "
               "`connectionRef` (4 bytes each, big-endian); its protobuf encoding follows.\n");
    printMessages("DUNL server", tolme::dunl::messages);
    printMessages("FESK server", tolme::fesk::messages);
    printMessages("yarrowi server", yarrowi::messages);
    fmt::print("\n## GANTI server\n\nA frame on its message socket begins with the number and `procRef` (4 bytes each, "
               "big-endian); the protobuf encoding follows.\n");
    printMessages("Software manager", gant::messages);
}
