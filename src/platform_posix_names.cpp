// The door to the operating system: POSIX (Linux). Objects that processes share by name.
#include "platform_posix_names.h"
#include "platform_posix.h"

#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace posix;

namespace {

enum lock_byte : off_t { holder_byte = 0, gate_byte = 1 };

bool lock_file(int fd, lock_byte byte, int type, int command)
{
    struct flock range = {};
    range.l_type = static_cast<short>(type);
    range.l_whence = SEEK_SET;
    range.l_start = byte;
    range.l_len = 1;
    int r;
    do {
        r = fcntl(fd, command, &range);
    } while (r != 0 && errno == EINTR);
    return r == 0;
}

bool close_gate(int fd) { return lock_file(fd, gate_byte, F_WRLCK, F_OFD_SETLKW); }
void open_gate(int fd) { lock_file(fd, gate_byte, F_UNLCK, F_OFD_SETLK); }
bool is_alone(int fd) { return lock_file(fd, holder_byte, F_WRLCK, F_OFD_SETLK); }
bool hold(int fd) { return lock_file(fd, holder_byte, F_RDLCK, F_OFD_SETLK); }
void let_go(int fd) { lock_file(fd, holder_byte, F_UNLCK, F_OFD_SETLK); }

// The folder of this user's names, made when it is missing; empty when it is not ours alone.
std::string names_folder()
{
    const std::string folder = "/dev/shm/stdkro-" + std::to_string(geteuid());
    mkdir(folder.c_str(), S_IRWXU);
    struct stat info;
    const bool ours = lstat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid()
        && (info.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    return ours ? folder + "/" : std::string();
}

bool is_plain(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

// A name as a file name. Long ones are cut and get a hash; the head tells
// whether two of them met.
std::string file_name_of(const char* name)
{
    constexpr size_t longest_file_name = 200;
    std::string text;
    unsigned long long hash = 14695981039346656037u;
    for (const char* p = name; *p; ++p) {
        const unsigned byte = static_cast<unsigned char>(*p);
        hash = (hash ^ byte) * 1099511628211u;
        if (is_plain(*p)) {
            text += *p;
        } else {
            text += '%';
            text += "0123456789ABCDEF"[byte >> 4];
            text += "0123456789ABCDEF"[byte & 15];
        }
    }
    if (text.size() > longest_file_name) {
        text.resize(longest_file_name);
        text += '~' + std::to_string(hash);
    }
    return text;
}

// Opens the file of a name with its gate closed: -1 without success.
int open_object_file(const std::string& path, int flags)
{
    for (;;) {
        const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | flags, S_IRUSR | S_IWUSR);
        if (fd < 0)
            return fail();
        struct stat info;
        if (!close_gate(fd) || fstat(fd, &info) != 0) {
            fail();
            close(fd);
            return -1;
        }
        if (info.st_nlink > 0)
            return fd;
        close(fd); // its last holder left between the two calls
    }
}

object_head* map_head(int fd)
{
    void* p = mmap(nullptr, head_size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    return p == MAP_FAILED ? nullptr : static_cast<object_head*>(p);
}

// Gives the file its head and `size` bytes of zeros behind it.
object_head* make_object(int fd, const std::string& path, const object_head& wanted, size_t size)
{
    if (ftruncate(fd, 0) != 0)
        return nullptr;
    const int r = posix_fallocate(fd, 0, static_cast<off_t>(head_size + size));
    object_head* head = r == 0 ? map_head(fd) : nullptr;
    if (r != 0)
        errno = r;
    if (head) {
        head->kind = wanted.kind;
        std::strcpy(head->name, wanted.name);
        std::strcpy(head->file, wanted.file);
        std::strcpy(head->path, path.c_str());
        head->size = wanted.size;
        head->protection = wanted.protection;
        head->counts.count.store(wanted.counts.count.load());
        head->counts.likely_count.store(wanted.counts.count.load());
        head->counts.waiters.store(0);
        head->counts.maximum = wanted.counts.maximum;
    }
    return head;
}

object_head* join_object(int fd, const object_head& wanted)
{
    object_head* head = map_head(fd);
    if (head && (head->kind != wanted.kind || std::strcmp(head->name, wanted.name) != 0)) {
        munmap(head, head_size);
        head = nullptr;
        errno = EEXIST;
    }
    return head;
}

// The part of a name that counts; null for a bad name.
const char* name_proper(const char* name)
{
    constexpr char local[] = "Local\\";
    constexpr char global[] = "Global\\";
    if (std::strlen(name) > longest_name)
        return nullptr;
    if (std::strncmp(name, local, sizeof local - 1) == 0)
        name += sizeof local - 1;
    const bool is_global = std::strncmp(name, global, sizeof global - 1) == 0;
    return std::strchr(is_global ? name + sizeof global - 1 : name, '\\') ? nullptr : name;
}

} // namespace

bool posix::name_object(const char* name, object_kind kind, object_head* wanted)
{
    const char* const proper = name_proper(name);
    if (!proper) {
        fail_with(ENOENT);
        return false;
    }
    wanted->kind = kind;
    std::strcpy(wanted->name, proper);
    return true;
}

bool posix::open_object(const object_head& wanted, bool make, size_t size, named_object* object)
{
    const std::string folder = names_folder();
    if (folder.empty()) {
        fail_with(EACCES);
        return false;
    }
    const std::string path = folder + file_name_of(wanted.name);
    const int fd = open_object_file(path, make ? O_CREAT : 0);
    if (fd < 0)
        return false;
    const bool alone = is_alone(fd);
    object_head* head = nullptr;
    if (alone && make)
        head = make_object(fd, path, wanted, size);
    else if (alone)
        errno = ENOENT;
    else if (errno == EAGAIN) // somebody holds it
        head = join_object(fd, wanted);
    if (head && hold(fd)) {
        open_gate(fd);
        *object = { fd, head };
        return true;
    }
    fail();
    if (head)
        munmap(head, head_size);
    if (alone)
        unlink(path.c_str());
    close(fd);
    return false;
}

void posix::close_object(const named_object& object, bool keep_head)
{
    if (close_gate(object.fd) && is_alone(object.fd))
        unlink(object.head->path);
    // Closing alone would not do: a view keeps the open file, and its locks.
    let_go(object.fd);
    open_gate(object.fd);
    if (!keep_head)
        munmap(object.head, head_size);
    close(object.fd);
}
