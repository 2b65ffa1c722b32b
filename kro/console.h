// Standard input as the interactive commands read it.
#ifndef STDKRO_KRO_CONSOLE_H
#define STDKRO_KRO_CONSOLE_H

#include <string>

/// Whether somebody types the input.
bool is_typed_input();

/// Reads a line of any length without its end, behind the prompt when somebody types.
/// False at the end of the input.
bool read_line(const char* prompt, std::string& line);

#endif
