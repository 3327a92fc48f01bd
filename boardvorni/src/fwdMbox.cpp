#include "fwdMbox.h"

#include "kiv/kiv.h"
#include "trace/trace.h"

#include <ios>
#include <ostream>

FwdMbox::FwdMbox(std::uint32_t parentMboxId, const std::string& name)
    : m_parentMboxId(parentMboxId), m_mboxName(name), m_mboxId(KIV_NO_MBOX)
{
}

FwdMbox::~FwdMbox()
{
    deleteMbox();
}

int FwdMbox::createMbox()
{
    if (m_mboxId != KIV_NO_MBOX) {
        return 0;
    }
    m_mboxId = kiv_clone_mailbox(m_parentMboxId, m_mboxName.c_str());
    if (m_mboxId == KIV_NO_MBOX) {
        TRACE_INFO("ABN: failed to create cloned mailbox {} for parent 0x{:x}", m_mboxName, m_parentMboxId);
        return 1;
    }
    TRACE_1("Published cloned mailbox: {} (0x{:x})", m_mboxName, m_mboxId);
    return 0;
}

int FwdMbox::deleteMbox()
{
    if (m_mboxId != KIV_NO_MBOX) {
        TRACE_1("Deleting clone mailbox: {} (0x{:x})", m_mboxName, m_mboxId);
        kiv_delete_mailbox(m_mboxId);
        m_mboxId = KIV_NO_MBOX;
    }
    return 0;
}

int FwdMbox::forward(kiv_msg*& msg, std::uint32_t destination)
{
    kiv_send(&msg, destination, m_mboxId);
    return 0;
}

std::ostream& operator<<(std::ostream& out, const FwdMbox& mbox)
{
    const std::ios_base::fmtflags flags = out.flags();
    out << "m_pFwdMbox:\n"
        << "    m_parentMboxId = 0x" << std::hex << mbox.getParentMboxId() << '\n'
        << "    m_mboxName = " << mbox.getMboxName() << '\n'
        << "    m_mboxId = 0x" << mbox.getMboxId() << '\n';
    out.flags(flags);
    return out;
}
