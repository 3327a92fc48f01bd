#include "deepSleepCommands.h"

#include "boardMessage.h"
#include "ostinel/postQueue.h"
#include "signalNames.h"
#include "ulmoQueue.h"
#include "yarrowi/if/yarrowIClient.h"
#include "yarrowi/numbers.h"
#include "yarrowi/yarrowi.pb.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <fmt/ostream.h>
#include <functional>
#include <future>
#include <ostream>
#include <string>
#include <vector>

namespace {

namespace MsgNo = yarrowi::MsgNo;
using google::protobuf::Message;
using Zephrin::CmdTableHelper::V2::CmdTable;

constexpr std::array helpRow{"deepsleep { -h | --help }", "Display deepsleep command usage"};

/// What differs between the commands.
struct Row {
    const char* form;
    const char* text;
    bool wantsConnection;
    const char* refusal; ///< where the connection isn't as it is wanted
    std::uint32_t request;
    std::uint32_t success;
    std::uint32_t failure; ///< 0: the server has none
    const char* successText;
    const char* failureText;
    std::uint32_t seconds; ///< of waiting for the server
};

constexpr std::array rows{
    Row{"deepsleep connect", "Open a ulmo session with deepsleep", false, "Ulmo session is already connected\n",
        MsgNo::ConnectionEstablishReq, MsgNo::ConnectionEstablishCfm, MsgNo::ConnectionEstablishRej,
        "Connection succeeded!\n", "Connection failed!\n", 1},
    Row{"deepsleep subscribe", "Subscribe to deepsleep", true, "You need to connect before you can subscribe\n",
        MsgNo::SubscribeDeepSleepStatusReq, MsgNo::SubscribeDeepSleepStatusCfm, MsgNo::SubscribeDeepSleepStatusRej,
        "Subscription succeeded!\n", "Subscription failed!\n", 1},
    Row{"deepsleep activate", "Request to activate deepsleep", true, "You need to connect before you can activate\n",
        MsgNo::ActivateDeepSleepReq, MsgNo::ActivateDeepSleepCfm, MsgNo::ActivateDeepSleepRej,
        "Activation succeeded!\n", "Activation failed!\n", 6},
    Row{"deepsleep deactivate", "Request to deactivate deepsleep", true,
        "You need to connect before you can deactivate\n", MsgNo::DeactivateDeepSleepReq, MsgNo::DeactivateDeepSleepCfm,
        MsgNo::DeactivateDeepSleepRej, "Deactivation succeeded!\n", "Deactivation failed!\n", 1},
    Row{"deepsleep disconnect", "Close ulmo session with deepsleep", true, "You are already not connected\n",
        MsgNo::ConnectionClosedownReq, MsgNo::ConnectionClosedownCfm, 0, "Disconnection succeeded!\n",
        "Disconnection failed!\n", 1},
};

/// An empty message of what the commands send and receive: of a number of the rows, or the status.
std::unique_ptr<Message> makeMessage(std::uint32_t msgNo)
{
    const auto found = std::find_if(yarrowi::messages.begin(), yarrowi::messages.end(),
                                    [msgNo](const MessageNumber& message) { return message.number == msgNo; });
    const auto* type = google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(found->name);
    return std::unique_ptr<Message>(google::protobuf::MessageFactory::generated_factory()->GetPrototype(type)->New());
}

/// What the commands share.
class DeepSleepCommands
{
public:
    DeepSleepCommands(YarrowIClient& client, std::uint32_t privateMbox, std::shared_ptr<UlmoQueue> queue)
        : m_client(client), m_privateMbox(privateMbox), m_queue(std::move(queue)),
          m_serverThread(Ostinel::currentLoopQueue())
    {
    }

    void run(const Row& row, std::ostream& out) const;
    void help(std::ostream& out) const;

private:
    /// Runs a function on the server thread and waits for what it returns. Throws where that thread has ended.
    template <typename Function>
    auto onServerThread(Function function) const
    {
        auto task = std::make_shared<std::packaged_task<decltype(function())()>>(std::move(function));
        auto result = task->get_future();
        m_serverThread->post([task = std::move(task)] { (*task)(); });
        return result.get();
    }

    bool isDeepSleepSupported(std::ostream& out) const;
    clientInfo& getUlmoClientInfo() const;
    void send(const Row& row) const;
    std::uint32_t waitForAnswer(const Row& row, std::ostream& out) const;
    void receive(const kiv_msg& msg, std::ostream& out) const;

    YarrowIClient& m_client; ///< on the server thread only
    std::uint32_t m_privateMbox;
    std::shared_ptr<UlmoQueue> m_queue;
    std::shared_ptr<Ostinel::PostQueue> m_serverThread;
};

bool DeepSleepCommands::isDeepSleepSupported(std::ostream& out) const
{
    const bool isSupported = onServerThread([this] { return m_client.isDeepSleepSupported(); });
    if (!isSupported) {
        out << "Deep Sleep Feature is not supported on this target\n";
    }
    return isSupported;
}

void DeepSleepCommands::help(std::ostream& out) const
{
    if (!isDeepSleepSupported(out)) {
        return;
    }
    out << "Deep Sleep command usage:\n";
    fmt::print(out, "\t{}\t\t{}\n", helpRow[0], helpRow[1]);
    for (const Row& row : rows) {
        fmt::print(out, "\t{}\t\t{}\n", row.form, row.text);
    }
}

/// The one record whose mailbox is the server's own. On the server thread.
clientInfo& DeepSleepCommands::getUlmoClientInfo() const
{
    clientInfo* found = m_client.findByMailbox(m_privateMbox);
    return found != nullptr ? *found : m_client.addClientInfo(m_privateMbox);
}

void DeepSleepCommands::run(const Row& row, std::ostream& out) const
{
    if (!isDeepSleepSupported(out)) {
        return;
    }
    const bool isConnected = onServerThread([this] { return getUlmoClientInfo().serverConnectionRef != 0; });
    if (isConnected != row.wantsConnection) {
        out << row.refusal;
        return;
    }
    send(row);
    const std::uint32_t answer = waitForAnswer(row, out);
    if (answer == row.success) {
        if (row.request == MsgNo::ConnectionClosedownReq) {
            onServerThread([this] { m_client.removeClientInfo(getUlmoClientInfo().clientConnectionRef); });
        }
        out << row.successText;
        return;
    }
    if (answer == 0) {
        out << "No response was received within 1 second(s)\n"; // whatever the wait was
    }
    out << row.failureText;
}

/// The answer comes to the sender, the server's own mailbox, and from there into the queue.
void DeepSleepCommands::send(const Row& row) const
{
    const std::shared_ptr<Message> request = makeMessage(row.request);
    if (auto* establish = dynamic_cast<yarrowi::ConnectionEstablishReq*>(request.get())) {
        establish->add_protocol_revision(1);
    }
    onServerThread([&] { m_client.send(row.request, *request, &getUlmoClientInfo(), m_privateMbox); });
}

/// The number of the answer, or 0 where none has come. Each status that is told begins the wait anew.
std::uint32_t DeepSleepCommands::waitForAnswer(const Row& row, std::ostream& out) const
{
    const bool isConnect = row.request == MsgNo::ConnectionEstablishReq;
    while (const auto msg = m_queue->wait(row.seconds)) {
        const std::uint32_t number = msg->number;
        if (number == row.success || number == row.failure) {
            receive(*msg, out);
            return number;
        }
        if (number == MsgNo::DeepSleepStatusInd && !isConnect) {
            receive(*msg, out);
        } else {
            fmt::print(out, "Discarding unexpected message {}\n", getSignalName(number));
        }
        out.flush();
    }
    return 0;
}

/// Prints a message; the confirm of the connection tells the server's reference. One that doesn't decode has not come
/// so far, unless the component changes.
void DeepSleepCommands::receive(const kiv_msg& msg, std::ostream& out) const
{
    const std::unique_ptr<Message> message = makeMessage(msg.number);
    BoardEnvelope envelope;
    if (!decodeBoardMessage(&msg, envelope, *message)) {
        fmt::print(out, "ERROR: {} could not be decoded. Its size is {} bytes.\n", message->GetTypeName(),
                   kiv_size(&msg));
        return;
    }
    const std::string fields = message->ShortDebugString();
    fmt::print(out, "Ulmo received {}{}{}\n", message->GetTypeName(), fields.empty() ? "" : " ", fields);
    if (msg.number == MsgNo::ConnectionEstablishCfm) {
        onServerThread([this, &envelope] { getUlmoClientInfo().serverConnectionRef = envelope.connectionRef; });
    }
}

} // namespace

CmdTable makeDeepSleepCommands(YarrowIClient& client, std::uint32_t privateMbox, std::shared_ptr<UlmoQueue> queue)
{
    using Words = std::vector<std::string>;
    const auto commands = std::make_shared<const DeepSleepCommands>(client, privateMbox, std::move(queue));
    const auto guarded = [](auto command) {
        return [command](const Words&, std::ostream& out) {
            try {
                command(out);
            } catch (const std::future_error&) {
                out << "The server thread has ended\n";
            }
            return 0;
        };
    };
    CmdTable table{{helpRow[0], helpRow[1], guarded([commands](std::ostream& out) { commands->help(out); })}};
    for (const Row& row : rows) {
        table.push_back(
            {row.form, row.text, guarded([commands, &row](std::ostream& out) { commands->run(row, out); })});
    }
    return table;
}
