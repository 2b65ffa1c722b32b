// The door to the operating system: POSIX (Linux). Shared memory and modules.
#include "handle_table.h"
#include "platform.h"
#include "platform_posix.h"
#include "platform_posix_names.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <map>
#include <mutex>
#include <new>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace posix;

namespace {

struct memory_record {
    int fd;
    size_t base; // of the memory in the file
    unsigned size;
    unsigned protection;
    unsigned rights;     // of this handle
    named_object object; // its descriptor is `fd` unless a file lies behind
};

enum memory_flags : unsigned { readable = 4, writable = 2, page_readwrite = 4 };

handle_table<memory_record> memories;

std::mutex views_lock;

// Sizes of the views, which outlive their handles. Lives until the process ends, and needs no memory
// before there is a view.
std::map<void*, size_t>& views()
{
    using map = std::map<void*, size_t>;
    alignas(map) static char place[sizeof(map)];
    static map& all = *new (place) map;
    return all;
}

unsigned rights_of(unsigned protection) { return protection == page_readwrite ? readable | writable : readable; }

bool is_no_file(void* file) { return file == handle_of(-1); }

// A descriptor of our own for the file behind the memory, made large enough; -1 without success.
int take_file(void* file, unsigned size, unsigned protection)
{
    const int fd = static_cast<int>(reinterpret_cast<std::intptr_t>(file));
    const int mode = fcntl(fd, F_GETFL) & O_ACCMODE;
    struct stat info;
    if (fstat(fd, &info) != 0)
        return fail();
    const bool granted = mode == O_RDWR || (mode == O_RDONLY && protection != page_readwrite);
    if (!granted || !S_ISREG(info.st_mode))
        return fail_with(EACCES);
    if (info.st_size < static_cast<off_t>(size) && (mode != O_RDWR || ftruncate(fd, size) != 0))
        return fail_with(ENOSPC);
    const int own = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    return own >= 0 ? own : fail();
}

int make_anonymous(unsigned size)
{
    const int fd = memfd_create("stdkro", MFD_CLOEXEC);
    if (fd < 0)
        return fail();
    const int r = posix_fallocate(fd, 0, size);
    if (r == 0)
        return fd;
    close(fd);
    return fail_with(r);
}

// The path of an open file, so that other processes can open it too.
bool read_path(int fd, char* path)
{
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = readlink(link.c_str(), path, PATH_MAX - 1);
    if (n <= 0) {
        fail();
        return false;
    }
    path[n] = '\0';
    return true;
}

// Closes a descriptor when it dies.
struct closing_descriptor {
    const int fd; // negative: none

    explicit closing_descriptor(int descriptor) : fd(descriptor) {}
    closing_descriptor(const closing_descriptor&) = delete;
    closing_descriptor& operator=(const closing_descriptor&) = delete;
    ~closing_descriptor()
    {
        if (fd >= 0)
            close(fd);
    }
};

void close_record(const memory_record& record)
{
    if (record.object.head)
        close_object(record.object, false);
    if (!record.object.head || record.fd != record.object.fd)
        close(record.fd);
}

void* add_memory(const memory_record& record)
{
    void* handle = memories.add(record);
    if (!handle) {
        close_record(record);
        fail_with(ENOMEM);
    }
    return handle;
}

// A handle for a named object that was joined or made.
void* add_named_memory(const named_object& object, unsigned rights)
{
    const object_head& head = *object.head;
    memory_record record = { object.fd, head_size, head.size, head.protection, rights, object };
    if (*head.file) {
        record.base = 0;
        record.fd = open(head.file, O_CLOEXEC | (head.protection == page_readwrite ? O_RDWR : O_RDONLY));
        if (record.fd < 0) {
            fail();
            close_object(object, false);
            return nullptr;
        }
    }
    return add_memory(record);
}

void* create_named_memory(void* file, const char* name, unsigned size, unsigned protection)
{
    object_head wanted {};
    if (!name_object(name, memory_object, &wanted))
        return nullptr;
    wanted.size = size;
    wanted.protection = protection;
    const bool has_file = !is_no_file(file);
    const closing_descriptor behind(has_file ? take_file(file, size, protection) : -1);
    if (has_file && (behind.fd < 0 || !read_path(behind.fd, wanted.file)))
        return nullptr;
    named_object object;
    const bool opened = open_object(wanted, true, has_file ? 0 : size, &object);
    return opened ? add_named_memory(object, rights_of(protection)) : nullptr;
}

void* open_named_memory(const char* name, unsigned access)
{
    object_head wanted {};
    named_object object;
    if (!name_object(name, memory_object, &wanted) || !open_object(wanted, false, 0, &object))
        return nullptr;
    return add_named_memory(object, access & (readable | writable));
}

void* create_anonymous_memory(void* file, unsigned size, unsigned protection)
{
    const int fd = is_no_file(file) ? make_anonymous(size) : take_file(file, size, protection);
    if (fd < 0)
        return nullptr;
    return add_memory({ fd, 0, size, protection, rights_of(protection), { -1, nullptr } });
}

// The length of a view, or 0 when it may not be.
size_t view_length(const memory_record& memory, unsigned offset, unsigned size, unsigned access)
{
    const size_t end = (static_cast<size_t>(memory.size) + page_size - 1) / page_size * page_size;
    const bool writes = (access & writable) != 0;
    const bool granted = writes ? (memory.rights & writable) && memory.protection == page_readwrite
                                : (memory.rights & readable) != 0;
    if (!granted || offset >= end || size > end - offset)
        return 0;
    return size ? size : memory.size - offset;
}

bool remember_view(void* address, size_t length)
{
    try {
        const std::lock_guard<std::mutex> guard(views_lock);
        views()[address] = length;
        return true;
    } catch (const std::bad_alloc&) {
        munmap(address, length);
        fail_with(ENOMEM);
        return false;
    }
}

thread_local char loader_text[512] = "";

// Keeps what the loader says of a failure; says nothing of a success.
void* keep_loader_text(void* result)
{
    const char* text = result ? nullptr : dlerror();
    if (!result) {
        std::snprintf(loader_text, sizeof loader_text, "%s", text ? text : "null entry");
        fail_with(errno ? errno : ENOENT);
    }
    return result;
}

} // namespace

void* sys_memory_create(void* file, const char* name, unsigned size, unsigned protection)
{
    try {
        return name && *name ? create_named_memory(file, name, size, protection)
                             : create_anonymous_memory(file, size, protection);
    } catch (const std::bad_alloc&) {
        fail_with(ENOMEM);
        return nullptr;
    }
}

void* sys_memory_open(const char* name, unsigned access)
{
    try {
        return open_named_memory(name, access);
    } catch (const std::bad_alloc&) {
        fail_with(ENOMEM);
        return nullptr;
    }
}

void sys_memory_close(void* memory)
{
    memory_record record;
    if (memories.remove(memory, &record))
        close_record(record);
}

void* sys_memory_map(void* memory, unsigned offset, unsigned size, unsigned access)
{
    const memory_record* found = memories.find(memory);
    const size_t length = found ? view_length(*found, offset, size, access) : 0;
    if (length == 0) {
        fail_with(found ? EACCES : EBADF);
        return nullptr;
    }
    const int protection = access & writable ? PROT_READ | PROT_WRITE : PROT_READ;
    void* address = mmap(nullptr, length, protection, MAP_SHARED, found->fd, static_cast<off_t>(found->base + offset));
    if (address == MAP_FAILED) {
        fail();
        return nullptr;
    }
    return remember_view(address, length) ? address : nullptr;
}

int sys_memory_unmap(void* address)
{
    const std::lock_guard<std::mutex> guard(views_lock);
    const auto found = views().find(address);
    if (found == views().end())
        return fail_with(EINVAL);
    munmap(address, found->second);
    views().erase(found);
    return 0;
}

void* sys_module_load(const char* name)
{
    errno = 0;
    return keep_loader_text(dlopen(name, RTLD_NOW | RTLD_LOCAL));
}

void sys_module_unload(void* module) { dlclose(module); }

void* sys_module_find(void* module, const char* name)
{
    errno = 0;
    return keep_loader_text(dlsym(module, name));
}

const char* sys_module_error() { return loader_text; }
