// What the commands on sockets have in common.
#ifndef STDKRO_KRO_SOCKETS_H
#define STDKRO_KRO_SOCKETS_H

#include <stdkro/socket.h>

#include <string>

/// Starts the socket library where the platform wants a program to do that.
void start_sockets();

/// Lets standard input and output pass bytes as they are.
void use_binary_streams();

/// Reads "HOST:PORT"; throws `usage_error`. Stricter than the library: a slip of the keyboard is
/// not to become a broadcast.
SockAddr read_address(const std::string& word);

#endif
