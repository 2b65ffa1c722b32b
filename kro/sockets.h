// What the commands on sockets have in common.
#ifndef STDKRO_KRO_SOCKETS_H
#define STDKRO_KRO_SOCKETS_H

#include <string>

/// Starts the socket library where the platform wants a program to do that.
void start_sockets();

/// Lets standard input and output pass bytes as they are.
void use_binary_streams();

/// Reads a port, 0..65535; false for anything else.
bool read_port(const std::string& word, int& port);

#endif
