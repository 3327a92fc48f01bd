/// Who has asked to be told of something.
#pragma once

#include "tools/boardsim/core/protobufServer.h"

#include <memory>
#include <vector>

namespace boardsim {

/// Each request is a subscription of its own, a second one of a connection too, and is told in the request's procedure.
/// Belongs to the thread of its server.
class Subscriptions
{
public:
    /// `indicate`: of messages that belong to a request.
    explicit Subscriptions(Indicate indicate) : m_indicate(std::move(indicate)) {}

    /// To be called from the request's handler. False: there are too many. The same procedure again changes nothing.
    bool add(const Connection& connection);
    bool has(const Connection& connection) const;

    void drop(const Connection& lost);
    void clear();

    /// Tells all of them, from the loop: behind the answer that is being made.
    void tellSoon(const Message& indication);

    const std::vector<Connection>& all() const { return m_all; }
    /// The first of each connection, for what a connection is told once.
    std::vector<Connection> firstOfConnections() const;
    /// Tells these, at once.
    void tellFirstOfConnections(const Message& indication);
    Json shown() const;

private:
    void tellNews();

    Indicate m_indicate;
    std::vector<Connection> m_all;                ///< the oldest first
    std::vector<std::unique_ptr<Message>> m_news; ///< not told yet, the oldest first
    std::uint32_t m_timer = 0;                    ///< to tell them; 0: none
};

} // namespace boardsim
