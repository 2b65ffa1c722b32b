// The words of a command line.
#ifndef STDKRO_SRC_COMMAND_WORDS_H
#define STDKRO_SRC_COMMAND_WORDS_H

#include <string>
#include <vector>

/// Splits a command line by the rules of the Windows runtime, so that a program
/// sees the same arguments on every platform. Never empty: a line without words
/// has the empty word 0. Throws only std::bad_alloc.
std::vector<std::string> split_command_line(const char* line);

#endif
