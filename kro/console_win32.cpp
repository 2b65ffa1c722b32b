#include "console.h"

#include <cstdio>
#include <io.h>

bool is_typed_input() { return _isatty(_fileno(stdin)) != 0; }
