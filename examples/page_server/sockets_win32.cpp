// Windows wants its socket library started before the first socket is made.
#include <stdkro/platform_types.h>

static WSADATA data;
extern const int sockets_started = WSAStartup(0x0202, &data);
