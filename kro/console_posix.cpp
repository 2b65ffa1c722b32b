#include "console.h"

#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

bool is_typed_input() { return isatty(STDIN_FILENO) == 1; }
bool is_shown_output() { return isatty(STDOUT_FILENO) == 1; }
bool is_shown_error() { return isatty(STDERR_FILENO) == 1; }

bool is_piped_output()
{
    struct stat about;
    return fstat(STDOUT_FILENO, &about) == 0 && S_ISFIFO(about.st_mode);
}

unsigned shown_columns()
{
    const pid_t owner = tcgetpgrp(STDERR_FILENO); // -1 where the terminal is not the one that controls us
    if (owner >= 0 && owner != getpgrp())
        return 0;
    winsize size = {};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}
