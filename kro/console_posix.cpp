#include "console.h"

#include <unistd.h>

bool is_typed_input() { return isatty(STDIN_FILENO) == 1; }
bool is_shown_output() { return isatty(STDOUT_FILENO) == 1; }
bool is_shown_error() { return isatty(STDERR_FILENO) == 1; }
