/// The shape of a component's procedures towards a board server.
#pragma once

#include "tolmeClient.h"
#include "vornServerCommonData.h"
#include "vornSession.h"

#include <cstdint>
#include <optional>
#include <string>

/// Who has sent a signal and with which references, for the transaction of the request that it causes. The signal is at
/// least a header long.
TolmeClient::ProcedureTransaction clientOf(const kiv_msg& signal, std::uint32_t requestMsgNo);

/// An answer, decoded, with the transaction of its request and, once found, the session of the client.
template <typename Message>
struct TolmeAnswer {
    TolmeEnvelope envelope;
    Message message;
    TolmeClient::ProcedureTransaction transaction{};
    VornSession* session = nullptr;
    std::string name; ///< of the message, without its package
};

/// Sends a component's requests and receives the answers: decode, then the transaction, then the session, with a trace
/// that says why where one of them fails. Components differ in the words of these traces alone.
class TolmeProcedures
{
public:
    struct Words {
        const char* noTransaction = ""; ///< "No DUNL transaction", "ABN: No FESK transaction"
        const char* end = "";           ///< behind the message's name: "." or ""
    };

    /// Without words for a component that looks transactions and sessions up itself.
    TolmeProcedures(VornServerCommonData& commonData, TolmeClient& client) : m_commonData(commonData), m_client(client)
    {
    }
    TolmeProcedures(VornServerCommonData& commonData, TolmeClient& client, Words words)
        : m_commonData(commonData), m_client(client), m_words(words)
    {
    }

    /// Registers a member of the component as the handler of a message.
    template <typename Component>
    void registerHandler(std::uint32_t msgNo, Component* component, void (Component::*handler)(const TolmeMessagePtr&))
    {
        m_client.registerHandler(msgNo, [component, handler](const TolmeMessagePtr& m) { (component->*handler)(m); });
    }

    /// Sends a request for a client and notes the transaction. False where it couldn't be sent.
    bool request(std::uint32_t msgNo, const google::protobuf::Message& message, std::uint32_t mboxId,
                 std::uint32_t serverRef, std::uint32_t clientRef);
    bool request(std::uint32_t msgNo, const google::protobuf::Message& message, const VornSession& session);
    /// The same with any number in the transaction, such as that of the client's signal. Returns the procedureRef,
    /// which goes into the transaction too, or 0.
    std::uint32_t requestFor(TolmeClient::ProcedureTransaction client, std::uint32_t msgNo,
                             const google::protobuf::Message& message);

    /// Decodes a message and traces it as received by "handle" and its name.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> decode(const TolmeMessagePtr& message) const
    {
        TolmeAnswer<Message> answer;
        if (!TolmeClient::decode(message, answer.envelope, answer.message)) {
            return std::nullopt;
        }
        answer.name = traceReceived(answer.envelope, answer.message);
        return answer;
    }

    /// Decodes an answer and finds the transaction of its request, which stays.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> findTransaction(const TolmeMessagePtr& message) const
    {
        return withTransaction(decode<Message>(message));
    }

    /// The same for a message that is decoded already.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> withTransaction(std::optional<TolmeAnswer<Message>> answer) const
    {
        if (answer && !lookUpTransaction(answer->envelope.procedureRef, answer->name, answer->transaction)) {
            answer.reset();
        }
        return answer;
    }

    /// Decodes an answer, finds the transaction of its request and removes it.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> takeTransaction(const TolmeMessagePtr& message)
    {
        auto answer = findTransaction<Message>(message);
        if (answer) {
            m_client.removeTransaction(answer->transaction.procedureRef);
        }
        return answer;
    }

    /// The whole shape, the transaction kept.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> find(const TolmeMessagePtr& message) const
    {
        return withSession(findTransaction<Message>(message));
    }

    /// The whole shape, the transaction removed.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> take(const TolmeMessagePtr& message)
    {
        return withSession(takeTransaction<Message>(message));
    }

    /// Finds transaction and session of a message that is decoded already.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> withClient(std::optional<TolmeAnswer<Message>> answer) const
    {
        return withSession(withTransaction(std::move(answer)));
    }

    /// Finds the session of an answer's client; nothing, with a trace, where the client has gone.
    template <typename Message>
    std::optional<TolmeAnswer<Message>> withSession(std::optional<TolmeAnswer<Message>> answer) const
    {
        if (answer) {
            answer->session = findSession(answer->transaction.mboxId, answer->name);
            if (answer->session == nullptr) {
                answer.reset();
            }
        }
        return answer;
    }

private:
    static std::string traceReceived(const TolmeEnvelope& envelope, const google::protobuf::Message& message);
    bool lookUpTransaction(std::uint32_t procedureRef, const std::string& name,
                           TolmeClient::ProcedureTransaction& transaction) const;
    VornSession* findSession(std::uint32_t mboxId, const std::string& name) const;

    VornServerCommonData& m_commonData;
    TolmeClient& m_client;
    Words m_words;
};
