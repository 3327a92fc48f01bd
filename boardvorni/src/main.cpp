/// The board control server of a radio unit.

#include "kiv/kiv.h"
#include "trace/trace.h"
#include "vornServerStartup.h"

int main(int /*argc*/, char** argv)
{
    constexpr std::uint32_t expectedMailboxes = 16;
    kiv_init(expectedMailboxes, 0, 0);
    kiv_create_mailbox("vornServerStartup");
    TRACE_INFO("{} started", argv[0]);
    const VornServerStartup startup;
    for (;;) {
        kiv_free(kiv_receive(nullptr, KIV_WAIT_FOREVER, KIV_ANY_SENDER));
    }
}
