/// A client's face towards the legacy server.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

struct kiv_msg;

/// A clone of the private mailbox through which one client's traffic to and from the legacy server runs.
class FwdMbox
{
public:
    FwdMbox(std::uint32_t parentMboxId, const std::string& name);
    ~FwdMbox();
    FwdMbox(const FwdMbox&) = delete;
    FwdMbox& operator=(const FwdMbox&) = delete;

    /// Makes the clone, once. Returns 0, or 1 where it can't be made.
    int createMbox();

    /// Deletes the clone if there is one. Returns 0.
    int deleteMbox();

    /// Sends a message to `destination` with the clone as the sender and clears the caller's pointer. Returns 0.
    int forward(kiv_msg*& msg, std::uint32_t destination);

    std::uint32_t getMboxId() const { return m_mboxId; }
    const std::string& getMboxName() const { return m_mboxName; }
    std::uint32_t getParentMboxId() const { return m_parentMboxId; }

private:
    std::uint32_t m_parentMboxId;
    std::string m_mboxName;
    std::uint32_t m_mboxId; ///< 0xFFFFFFFF while there is no clone
};

std::ostream& operator<<(std::ostream& out, const FwdMbox& mbox);
