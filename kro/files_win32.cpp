#include "files.h"

#include <io.h>

bool flush_to_disk(std::FILE* file) { return std::fflush(file) == 0 && _commit(_fileno(file)) == 0; }
