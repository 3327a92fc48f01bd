/// The board control server of a radio unit.

#include "kiv/kiv.h"
#include "trace/trace.h"
#include "vornServerStartup.h"

#include <unistd.h>

int main(int /*argc*/, char** argv)
{
    constexpr std::uint32_t expectedMailboxes = 16;
    kiv_init(expectedMailboxes, 0, 0);
    if (kiv_create_mailbox("vornServerStartup") == KIV_NO_MBOX) {
        TRACE_ERROR("ABN: no mailbox \"vornServerStartup\": is there another server in this unit?");
    }
    TRACE_INFO("{} started", argv[0]);
    const VornServerStartup startup;
    for (;;) {
        kiv_msg* msg = kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER);
        if (msg == nullptr) {
            ::pause(); // without a mailbox: alive and idle
        }
        kiv_free(msg);
    }
}
