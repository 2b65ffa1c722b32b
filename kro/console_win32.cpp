#include "console.h"

#include <cstdio>
#include <io.h>

bool is_typed_input() { return _isatty(_fileno(stdin)) != 0; }
bool is_shown_output() { return _isatty(_fileno(stdout)) != 0; }
bool is_shown_error() { return _isatty(_fileno(stderr)) != 0; }
