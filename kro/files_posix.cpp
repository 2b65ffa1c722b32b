#include "files.h"

#include <unistd.h>

bool flush_to_disk(std::FILE* file) { return std::fflush(file) == 0 && fsync(fileno(file)) == 0; }
