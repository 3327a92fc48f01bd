/* The header as a C program sees it. */
#include "ploe/ploe.h"

#include <string.h>

int cClientRoundTrip(const char* address)
{
    ploe_socket* listener = ploe_listen(address, 1);
    ploe_socket* client = ploe_connect(address, 0);
    ploe_socket* server = ploe_accept(listener);
    char answer[8] = "";
    int ok = ploe_send(client, "ping", 5) == 0 && ploe_receive(server, answer, sizeof answer) == 5 &&
             strcmp(answer, "ping") == 0;

    ploe_close(server);
    ploe_close(client);
    ploe_close(listener);
    return ok;
}
