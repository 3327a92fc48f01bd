/// A server that is reached through a kiv mailbox.
#pragma once

#include "tools/boardsim/core/server.h"

#include "kiv/kiv.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace boardsim {

class KivServer : public Server
{
public:
    KivServer(std::string name, std::string mailboxName);

    /// KIV_NO_MBOX while it is stopped.
    kiv_mbox_id_t mailbox() const { return m_mailbox; }

protected:
    virtual void receive(const std::shared_ptr<kiv_msg>& msg) = 0;

    /// A watched client's mailbox has gone.
    virtual void clientLost(kiv_mbox_id_t client) = 0;

    virtual void dropState() = 0;

    /// Watches a client's mailbox; watching it again does nothing. False where that can't be done.
    bool watch(kiv_mbox_id_t client);
    void unwatch(kiv_mbox_id_t client);

    /// Sends the bytes behind the number.
    void send(kiv_mbox_id_t receiver, std::uint32_t number, const std::string& bytes);

    void showState(Json& server) const override;

private:
    void open() override;
    void close() override;
    void receiveOne();

    std::string m_mailboxName;
    kiv_mbox_id_t m_mailbox = KIV_NO_MBOX;
    int m_fd = -1;
    std::map<kiv_mbox_id_t, std::uint32_t> m_monitors; ///< by client
};

/// "0x1002a".
std::string mailboxText(kiv_mbox_id_t mbox);

} // namespace boardsim
