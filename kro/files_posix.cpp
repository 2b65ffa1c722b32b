// What the tool asks of the file system of POSIX: new files that are nobody else's, and bytes on the disk.
#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

std::FILE* make_file(const char* path)
{
    const int made = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (made < 0)
        return nullptr;
    std::FILE* const file = fdopen(made, "wb");
    if (!file) {
        close(made);
        unlink(path);
    }
    return file;
}

bool give_permissions(std::FILE* file, const char* path)
{
    struct stat of;
    return stat(path, &of) == 0 && fchmod(fileno(file), of.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO)) == 0;
}

bool flush_to_disk(std::FILE* file) { return std::fflush(file) == 0 && fsync(fileno(file)) == 0; }
