#include "console.h"

#include <unistd.h>

bool is_typed_input() { return isatty(STDIN_FILENO) == 1; }
