/* The header as a C program sees it. */
#include "kiv/kiv.h"

#include <stddef.h>

int cClientRoundTrip(void)
{
    const uint32_t filter[] = {1, 77};
    struct kiv_msg* msg = kiv_alloc(16, 77);
    kiv_msg* received = NULL;
    int ok = 0;

    kiv_send(&msg, kiv_current_mbox(), KIV_CURRENT_MBOX);
    received = kiv_receive(filter, KIV_NO_WAIT, KIV_ANY_SENDER);
    ok = msg == NULL && received != NULL && received->number == 77 && kiv_size(received) == 16;
    kiv_free(received);
    return ok;
}
