#include "tools/boardsim/boardSim.h"

#include "tools/boardsim/dunl/dunlServer.h"
#include "tools/boardsim/fesk/feskServer.h"
#include "tools/boardsim/ganti/gantiServer.h"
#include "tools/boardsim/legacy/legacyServer.h"
#include "tools/boardsim/yarrowi/yarrowiServer.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <future>
#include <sstream>
#include <type_traits>

namespace boardsim {

namespace {

constexpr std::uint32_t defaultWait = 5000; // milliseconds

template <typename ServerType>
std::unique_ptr<Server> make(Board& board)
{
    if constexpr (std::is_constructible_v<ServerType, Board&>) {
        return std::make_unique<ServerType>(board);
    } else {
        return std::make_unique<ServerType>();
    }
}

/// The servers of the board. A further one, whatever transport it has, is a class derived from Server and a line here.
struct Entry {
    const char* name;
    std::unique_ptr<Server> (*make)(Board&);
};
constexpr Entry entries[] = {
    {"legacy", make<LegacyServer>},   {"dunl", make<DunlServer>},   {"fesk", make<FeskServer>},
    {"yarrowi", make<YarrowiServer>}, {"ganti", make<GantiServer>},
};

std::string scalarText(const Json& value)
{
    return value.is_string() ? value.get<std::string>() : value.is_null() ? "-" : value.dump();
}

std::string oneLine(const Json& value)
{
    if (!value.is_structured()) {
        return scalarText(value);
    }
    std::vector<std::string> parts;
    for (const auto& [key, member] : value.items()) {
        parts.push_back(value.is_object() ? key + '=' + oneLine(member) : oneLine(member));
    }
    return fmt::format("{}", fmt::join(parts, " "));
}

/// An object's members on lines of their own, as are those of a list that are objects.
void printTree(const Json& value, std::size_t depth, std::ostream& out)
{
    const std::string indent(2 * depth, ' ');
    for (const auto& [key, member] : value.items()) {
        const bool isList = member.is_array() && !member.empty() && member[0].is_object();
        if (member.is_object() && !member.empty()) {
            out << indent << key << ":\n";
            printTree(member, depth + 1, out);
        } else if (isList) {
            out << indent << key << ":\n";
            for (const Json& entry : member) {
                out << indent << "  " << oneLine(entry) << '\n';
            }
        } else {
            const std::string text = member.is_structured() && member.empty() ? "none" : oneLine(member);
            out << indent << key << ": " << text << '\n';
        }
    }
}

constexpr const char* helpNotes = R"(
A message goes by its name, SetUtcTimeReq or OMLA_VORN_CONN_ESTABLISH_REQ, a legacy signal without a name by its number,
0x1658100; "all" stands for every message without a rule of its own. A rule holds for the next <count> messages, without
a count until it is taken back, and replaces the message's earlier one. <fields> are those of the answer in protobuf's
text form, as in "reject_reason: MAX_NUMBER_OF_CONNECTIONS_EXCEEDED", or "none" for an answer without any; of the legacy
server, the reject's text. A protobuf message's count may stand behind the fields too. A message that the interface has no reject for is left unanswered by
"reject all".
Settings and rules outlive a stop of their server; they may be made while it is stopped.
)";

void printRow(const std::string& form, const std::string& text, std::ostream& out)
{
    constexpr std::size_t textColumn = 56;
    out << "  " << form
        << (form.size() + 3 > textColumn ? "\n" + std::string(textColumn, ' ')
                                         : std::string(textColumn - form.size() - 2, ' '))
        << text << '\n';
}

} // namespace

std::vector<std::string> BoardSim::serverNames()
{
    std::vector<std::string> names;
    for (const Entry& entry : entries) {
        names.emplace_back(entry.name);
    }
    return names;
}

BoardSim::BoardSim(const std::set<std::string>& leftOut)
{
    for (const Entry& entry : entries) {
        m_servers.push_back(
            std::make_unique<ServerThread>(entry.name, [this, &entry] { return entry.make(m_control); }));
        if (leftOut.count(entry.name) == 0) {
            m_servers.back()->call([](Server& server) { server.start(); });
        }
    }
    m_control.begin({[this] { wakeUp(); }, [this] { return takeDown(); }});
}

BoardSim::~BoardSim()
{
    m_control.end();
}

void BoardSim::wakeUp()
{
    findServer("yarrowi").call([](Server& server) {
        if (server.isRunning()) {
            std::ostringstream ignored;
            server.command({"wake"}, ignored);
        }
    });
}

/// What was stopped before, on command, stays so.
std::function<void()> BoardSim::takeDown()
{
    std::vector<ServerThread*> running;
    for (const auto& server : m_servers) {
        const bool wasRunning = server->call([](Server& target) {
            const bool isRunning = target.isRunning();
            target.stop();
            return isRunning;
        });
        if (wasRunning) {
            running.push_back(server.get());
        }
    }
    return [running = std::move(running)] {
        for (ServerThread* server : running) {
            try {
                server->call([](Server& target) { target.start(); });
            } catch (const std::exception& error) {
                fmt::print(stderr, "boardsim: {} isn't back: {}\n", server->name(), error.what());
            }
        }
    };
}

void BoardSim::stopAll()
{
    m_control.end();
    for (const auto& server : m_servers) {
        server->call([](Server& running) { running.stop(); });
    }
}

int BoardSim::command(const Words& words, std::ostream& out)
{
    try {
        run(words, out);
        return 0;
    } catch (const std::exception& error) {
        out << "board: " << error.what() << '\n';
        return 1;
    }
}

void BoardSim::run(const Words& words, std::ostream& out)
{
    const std::string first = words.size() > 1 ? words[1] : "--help";
    if (first == "--help" || first == "-h" || first == "help") {
        help(out);
        return;
    }
    if (first == "show") {
        show(Words(words.begin() + 2, words.end()), out);
        return;
    }
    ServerThread& server = findServer(first);
    if (words.size() > 2 && words[2] == "wait") {
        wait(server, Words(words.begin() + 3, words.end()));
        return;
    }
    server.call([&](Server& target) { target.command(Words(words.begin() + 2, words.end()), out); });
}

ServerThread& BoardSim::findServer(const std::string& name)
{
    const auto found =
        std::find_if(m_servers.begin(), m_servers.end(), [&](const auto& server) { return server->name() == name; });
    if (found == m_servers.end()) {
        throw CommandError(fmt::format("\"{}\" is none of: {}", name, fmt::join(serverNames(), ", ")));
    }
    return **found;
}

void BoardSim::show(const Words& args, std::ostream& out)
{
    Words names = args;
    const bool isJson = std::erase(names, "--json") != 0;
    expectWords(names, 0, 1);
    Json board;
    for (const std::string& name : names.empty() ? serverNames() : names) {
        board[name] = findServer(name).call([](const Server& server) { return server.show(); });
    }
    if (isJson) {
        out << (names.empty() ? board : board[names[0]]).dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    } else {
        printTree(board, 0, out);
    }
}

void BoardSim::wait(ServerThread& server, const Words& args)
{
    expectWords(args, 1, 3);
    const std::uint32_t count = args.size() > 1 ? parseNumber(args[1], "the count") : 1;
    const std::uint32_t timeout = args.size() > 2 ? parseNumber(args[2], "the time") : defaultWait;
    const auto result = std::make_shared<std::promise<bool>>();
    std::future<bool> future = result->get_future();
    const std::uint32_t waiter = server.call([&](Server& target) {
        return target.whenReceived(target.messageName(args[0]), count,
                                   [result](bool came) { result->set_value(came); });
    });
    if (future.wait_for(std::chrono::milliseconds(timeout)) != std::future_status::ready) {
        server.call([&](Server& target) { target.stopWaiting(waiter); });
        throw CommandError(fmt::format("{} hasn't come {} times in {} ms", args[0], count, timeout));
    }
    if (!future.get()) {
        throw CommandError(server.name() + " is stopped");
    }
}

void BoardSim::help(std::ostream& out)
{
    out << "Drives the simulated board. Servers: " << fmt::format("{}", fmt::join(serverNames(), ", ")) << "\n\n";
    printRow("board show [<server>] [--json]", "settings and state", out);

    std::vector<std::vector<CommandRow>> rows;
    for (const auto& server : m_servers) {
        rows.push_back(server->call([](const Server& target) { return target.commands(); }));
    }
    const auto isCommon = [&rows](const CommandRow& row) {
        return std::all_of(rows.begin(), rows.end(), [&](const auto& others) {
            return std::any_of(others.begin(), others.end(), [&](const CommandRow& other) {
                return other.form == row.form && other.text == row.text;
            });
        });
    };
    for (const CommandRow& row : rows.front()) {
        if (isCommon(row)) {
            printRow("board <server> " + row.form, row.text, out);
        }
    }
    printRow("board <server> wait <message> [<count> [<ms>]]",
             "until it has come so often since the server's start; 1 and 5000 at first", out);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        out << '\n';
        for (const CommandRow& row : rows[i]) {
            if (!isCommon(row)) {
                printRow("board " + m_servers[i]->name() + ' ' + row.form, row.text, out);
            }
        }
    }
    out << helpNotes;
}

} // namespace boardsim
