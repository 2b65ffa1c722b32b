#include "sockets.h"

void start_sockets() {}

void use_binary_streams() {}
