// What the tool asks of the file system of Windows: new files that are nobody else's, and bytes on the disk.
#include "files.h"

#include <fcntl.h>
#include <io.h>
#include <sys/stat.h>

std::FILE* make_file(const char* path)
{
    const int made = _open(path, _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY | _O_NOINHERIT, _S_IREAD | _S_IWRITE);
    if (made < 0)
        return nullptr;
    std::FILE* const file = _fdopen(made, "wb");
    if (!file) {
        _close(made);
        std::remove(path);
    }
    return file;
}

// The one permission is to write, which a file that can be replaced has, as a new one does.
bool give_permissions(std::FILE*, const char*) { return true; }

bool flush_to_disk(std::FILE* file) { return std::fflush(file) == 0 && _commit(_fileno(file)) == 0; }
