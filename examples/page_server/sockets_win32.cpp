#include <stdkro/platform_types.h>

extern void start_sockets();
void start_sockets()
{
    WSADATA data;
    WSAStartup(0x0202, &data);
}
