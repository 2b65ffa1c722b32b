// The console: who reads and types there, and input as the interactive commands read it.
#ifndef STDKRO_KRO_CONSOLE_H
#define STDKRO_KRO_CONSOLE_H

#include <string>

/// Whether somebody types the input.
bool is_typed_input();
/// Whether somebody sees standard output, and standard error, at once: it is a terminal.
bool is_shown_output();
bool is_shown_error();
/// Whether another program reads standard output: it is a pipe.
bool is_piped_output();
/// How wide the terminal of standard error is at present, 80 where nobody knows; 0 while it
/// belongs to others, because this program works in the background.
unsigned shown_columns();

/// Reads a line of any length without its end, behind the prompt when somebody types.
/// False at the end of the input.
bool read_line(const char* prompt, std::string& line);

#endif
