#include "sockets.h"

#include "words.h"

bool read_port(const std::string& word, int& port) { return read_number(word, port) && port >= 0 && port <= 65535; }
