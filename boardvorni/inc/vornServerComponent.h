/// The base of all components.
#pragma once

#include "trace/trace.h"
#include "vornServerCommonData.h"
#include "vorni/access.h"
#include "vorni/signalTable.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

class VornSession;

/// Who is answered: a transaction, or a record with the same members.
template <typename T>
concept VornClientRecord = requires(const T& client)
{
    client.mboxId;
    client.clientRef;
    client.serverRef;
};

/// A feature of the server. All components are built once, initialised in list order on the server thread and told of
/// the clients' sessions by the hooks. They meet in VornServerCommonData, in the three static callbacks and in the
/// message subscription table, nowhere else.
class VornServerComponent
{
public:
    using MessagePtr = std::shared_ptr<kiv_msg>;

    explicit VornServerComponent(VornServerCommonData& commonData) : m_commonData(commonData) {}
    virtual ~VornServerComponent() = default;
    VornServerComponent(const VornServerComponent&) = delete;
    VornServerComponent& operator=(const VornServerComponent&) = delete;

    /// Registers the handlers. False stops the server's start.
    virtual bool init() = 0;
    /// The class's name.
    virtual std::string_view name() const = 0;
    /// Before a session is deleted.
    virtual void onVornSessionLost(const VornSession&) {}
    /// At the exit message.
    virtual void shutdown() {}
    /// When the legacy server has accepted a client, whose confirmation is held.
    virtual void onNewVornSession(VornSession&) {}
    /// A client announces a restart; `value` is the supervision time-out for it.
    virtual void onNotifyRestartReqReceived(const VornSession&, std::uint32_t /*value*/) {}
    /// Whether the DUNL server accepted that time-out.
    virtual void onSupervisionTimeoutResult(const VornSession&, bool /*accepted*/) {}
    /// A component that gets ready calls areComponentsReadyToPublish itself; nothing polls.
    virtual bool isReadyToPublish() const { return true; }

    // Set before any component is initialised. A caller checks that they are set.
    static std::function<bool()> areComponentsReadyToPublish;
    static std::function<void(const VornSession&, std::uint32_t)> notifyRestartReqReceived;
    static std::function<void(const VornSession&, bool)> supervisionTimeoutResult;

    /// Fills `size` bytes at `dest` with `src`, cut to size - 1 characters, and zeros; traces where it had to cut.
    static void copyErrorDescription(char* dest, std::uint32_t size, const std::string& src);
    /// The same for a text field of a signal.
    template <std::size_t Size>
    static void fillText(char (&field)[Size], const std::string& text)
    {
        copyErrorDescription(field, Size, text);
    }
    /// Whether a client is a GSM client: 100 <= serverRef < 200.
    static bool isGsmServerRef(std::int32_t serverRef);

protected:
    /// Subscribes a signal to a member of the component.
    template <typename Component>
    void subscribe(std::uint32_t sigNo, void (Component::*handler)(const MessagePtr&))
    {
        addSubscription(sigNo,
                        [this, handler](const MessagePtr& msg) { (static_cast<Component*>(this)->*handler)(msg); });
    }

    /// Views a received signal as its record and traces it; null, with an "ABN:" trace, where it is too short.
    template <typename Record>
    static const Record* receiveSignal(const MessagePtr& msg)
    {
        const Record* record = viewSignal<Record>(msg);
        traceReceived(*msg, record != nullptr);
        return record;
    }

    /// Sends a signal to a client from the public mailbox. `fill` writes what stands behind the references, and the
    /// `sizeBehind` bytes behind the record.
    template <typename Record, typename Fill>
    void sendSignal(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef, Fill&& fill,
                    std::size_t sizeBehind = 0) const
    {
        NewSignal<Record> signal(clientRef, serverRef, sizeBehind);
        if (signal) {
            fill(*signal);
            traceSent(Record::number, mboxId, &*signal, sizeof(Record) + sizeBehind);
            signal.send(mboxId, m_commonData.getPublicMbox());
        }
    }

    /// The same for a signal that is its references alone.
    template <typename Record>
    void sendSignal(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef) const
    {
        sendSignal<Record>(mboxId, clientRef, serverRef, [](Record&) {});
    }

    /// Sends a reject signal of the usual form.
    template <typename Record>
    void sendReject(std::uint32_t mboxId, std::uint32_t clientRef, std::uint32_t serverRef, std::uint16_t errorCode,
                    const std::string& text) const
    {
        sendSignal<Record>(mboxId, clientRef, serverRef, [&](Record& reject) {
            reject.errorCode = errorCode;
            copyErrorDescription(reject.text(), vornRejectTextSize, text);
        });
    }

    // The same three to the client of a transaction.
    template <typename Record, VornClientRecord Client, typename Fill>
    void sendSignal(const Client& client, Fill&& fill, std::size_t sizeBehind = 0) const
    {
        sendSignal<Record>(client.mboxId, client.clientRef, client.serverRef, std::forward<Fill>(fill), sizeBehind);
    }
    template <typename Record, VornClientRecord Client>
    void sendSignal(const Client& client) const
    {
        sendSignal<Record>(client.mboxId, client.clientRef, client.serverRef);
    }
    template <typename Record, VornClientRecord Client>
    void sendReject(const Client& client, std::uint16_t errorCode, const std::string& text) const
    {
        sendReject<Record>(client.mboxId, client.clientRef, client.serverRef, errorCode, text);
    }

    VornServerCommonData& m_commonData;

private:
    static void addSubscription(std::uint32_t sigNo, std::function<void(const MessagePtr&)> handler);
    static void traceReceived(const kiv_msg& msg, bool isWhole);
    static void traceSent(std::uint32_t sigNo, std::uint32_t mboxId, const void* signal, std::size_t size);
};
