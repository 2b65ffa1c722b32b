#include "sockets.h"

#include <stdkro/platform_types.h>

#include <fcntl.h>
#include <io.h>

void start_sockets()
{
    WSADATA data;
    WSAStartup(0x0101, &data);
}

void use_binary_streams()
{
    _setmode(0, _O_BINARY);
    _setmode(1, _O_BINARY);
}
