#include "console.h"

#include <stdkro/platform_types.h>

#include <cstdio>
#include <io.h>
#include <windows.h>

bool is_typed_input() { return _isatty(_fileno(stdin)) != 0; }
bool is_shown_output() { return _isatty(_fileno(stdout)) != 0; }
bool is_shown_error() { return _isatty(_fileno(stderr)) != 0; }
bool is_piped_output() { return GetFileType(GetStdHandle(STD_OUTPUT_HANDLE)) == FILE_TYPE_PIPE; }

unsigned shown_columns()
{
    CONSOLE_SCREEN_BUFFER_INFO screen;
    const bool is_known = GetConsoleScreenBufferInfo(GetStdHandle(STD_ERROR_HANDLE), &screen) != 0;
    return is_known && screen.dwSize.X > 0 ? static_cast<unsigned>(screen.dwSize.X) : 80;
}
