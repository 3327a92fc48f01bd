/// The client end of the GANTI server, the software manager.
#pragma once

#include "gantclient/gantCapabilities.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

struct ploe_socket;
namespace google::protobuf {
class Message;
}

/// The one connection to the software manager: a message socket, the frame of the messages on it, their dispatch by
/// number, and what the server can do. What the messages are good for is their handlers' business. Nothing is retried,
/// and a connection that is closed stays closed. Server thread only.
///
/// A frame is the message number and a procedure reference, 4 bytes each and big-endian, and the protobuf encoding.
class GANTClient
{
public:
    using Body = std::span<const std::byte>;
    /// Gets the procedure reference of the frame and the encoding behind its header, which lives during the call only.
    using MsgHandler = std::function<void(std::uint32_t procRef, Body body)>;

    /// What the operations return.
    enum Result : std::uint32_t {
        ok = 0,
        notConnected = 1,
        notSent = 2,
        alreadyExists = 3,
        notFound = 4,
    };

    GANTClient() = default;
    virtual ~GANTClient();
    GANTClient(const GANTClient&) = delete;
    GANTClient& operator=(const GANTClient&) = delete;

    /// Enters the handlers of the connection's own messages.
    virtual void registerHandlers();
    virtual void handleConnEstablishCfm(std::uint32_t procRef, Body body);
    virtual void handleConnEstablishRej(std::uint32_t procRef, Body body);
    virtual void handleGetCapabilitiesCfm(std::uint32_t procRef, Body body);
    virtual void handleGetCapabilitiesRej(std::uint32_t procRef, Body body);

    /// Connects to `address` and offers the protocol revisions. `readyForPublicAccess` is called each time that the
    /// server's capabilities arrive. `ok` or `notConnected`.
    std::uint32_t connEstablishReq(std::function<void()> readyForPublicAccess, std::uint32_t procRef,
                                   const std::string& address, const std::vector<std::uint32_t>& protocolRevisions);

    // The requests. Each returns what sendMsg returns.
    std::uint32_t getCapabilitiesReq(std::uint32_t procRef);
    std::uint32_t acquireResourceReq(std::uint32_t procRef, std::uint32_t ticketRef, int resource);
    std::uint32_t releaseResourceReq(std::uint32_t procRef, std::uint32_t ticket);
    std::uint32_t pushLoadInitReq(std::uint32_t procRef, std::uint32_t ticket, const std::string& software);
    std::uint32_t pushLoadData(std::uint32_t procRef, std::uint32_t ticket, std::uint32_t seqNr, const void* data,
                               std::size_t size);
    std::uint32_t pushLoadEndReq(std::uint32_t procRef, std::uint32_t ticket);
    std::uint32_t deleteReq(std::uint32_t procRef, std::uint32_t ticket, const std::string& software);
    std::uint32_t getSwProductInvReq(std::uint32_t procRef, std::uint32_t ticket);
    std::uint32_t swCompListReq(std::uint32_t procRef, std::uint32_t ticket);
    std::uint32_t swCompListAck(std::uint32_t procRef, std::uint32_t ticket, bool abort);
    std::uint32_t getRunningSwReq(std::uint32_t procRef);
    std::uint32_t setCurrentSlotWorkingReq(std::uint32_t procRef);

    /// Frames and sends. `ok`; `notConnected`; `notSent` where the socket doesn't take it: it is lost then.
    std::uint32_t sendMsg(std::uint32_t msgNo, std::uint32_t procRef, const google::protobuf::Message& message);

    /// `ok`, or `alreadyExists` and no change.
    std::uint32_t addMsgHandler(std::uint32_t msgNo, MsgHandler handler);
    /// `ok` or `notFound`.
    std::uint32_t removeMsgHandler(std::uint32_t msgNo);

    bool isConnected() const { return m_selectedProtocolRevision != 0; }
    std::uint32_t getSelectedProtocolRevision() const { return m_selectedProtocolRevision; }
    /// Appends all records.
    void getCapabilities(std::vector<std::shared_ptr<const PLOECapability>>& records) const;

    /// Closes the connection; the capabilities stay.
    void disconnect();

private:
    template <typename Message>
    std::uint32_t send(std::uint32_t procRef, const Message& message);
    template <typename Write>
    std::uint32_t sendFrame(std::uint32_t msgNo, std::uint32_t procRef, std::size_t size, Write&& write);
    bool connect(const std::string& address);
    void closeConnection();
    void receiveHandler(int fd);
    void dispatch(std::span<const std::byte> frame);

    ploe_socket* m_connection = nullptr;
    std::uint64_t m_maxMsgSize = 0; ///< bytes; of the receive buffer
    std::uint32_t m_selectedProtocolRevision = 0;
    std::vector<std::shared_ptr<const PLOECapability>> m_capabilities;
    std::function<void()> m_readyForPublicAccess;
    std::unordered_map<std::uint32_t, MsgHandler> m_msgHandlers;
};
