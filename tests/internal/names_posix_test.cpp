// Names, and memory, that processes share when single system calls or allocations fail: what the
// POSIX side of the door gives back then, and that nothing is left behind.
#include "allocation_failure.h"
#include "call_failure.h"
#include "interruptions.h"
#include "platform.h"
#include "replaced_fcntl.h"

#include <stdkro/process.h>
#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// How many of the next files that are opened have lost their name by then, as when their last
// user left meanwhile.
int files_that_go = 0;

// Makes something else of what the system says about a folder; null: nothing.
void (*changed_folder)(struct stat& info) = nullptr;

} // namespace

// Waits for a lock are interrupted. Giving a lock back does not fail.
bool fcntl_fails(int command, const void* argument)
{
    if (command == F_OFD_SETLKW && is_interrupted())
        return true;
    const bool is_lock = command == F_OFD_SETLKW || command == F_OFD_SETLK;
    if (is_lock && static_cast<const struct flock*>(argument)->l_type != F_UNLCK && call_failure::strikes("lock"))
        return true;
    return command == F_DUPFD_CLOEXEC && call_failure::strikes("dup");
}

extern "C" {

int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...)
{
    va_list list;
    va_start(list, flags);
    const mode_t mode = va_arg(list, mode_t);
    va_end(list);
    const int fd = call_failure::strikes("open") ? -1 : __real_open(path, flags, mode);
    if (fd >= 0 && files_that_go > 0) {
        --files_that_go;
        unlink(path);
    }
    return fd;
}

int __real_fstat(int fd, struct stat* info);
int __wrap_fstat(int fd, struct stat* info) { return call_failure::strikes("fstat") ? -1 : __real_fstat(fd, info); }

int __real_lstat(const char* path, struct stat* info);
int __wrap_lstat(const char* path, struct stat* info)
{
    const int r = __real_lstat(path, info);
    if (changed_folder)
        changed_folder(*info);
    return r;
}

ssize_t __real_readlink(const char* path, char* text, size_t size);
ssize_t __wrap_readlink(const char* path, char* text, size_t size)
{
    return call_failure::strikes("readlink") ? -1 : __real_readlink(path, text, size);
}

void* __real_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset);
void* __wrap_mmap(void* address, size_t size, int protection, int flags, int fd, off_t offset)
{
    return call_failure::strikes("mmap") ? MAP_FAILED : __real_mmap(address, size, protection, flags, fd, offset);
}

int __real_ftruncate(int fd, off_t size);
int __wrap_ftruncate(int fd, off_t size) { return call_failure::strikes("ftruncate") ? -1 : __real_ftruncate(fd, size); }

int __real_posix_fallocate(int fd, off_t from, off_t size);
int __wrap_posix_fallocate(int fd, off_t from, off_t size)
{
    return call_failure::strikes("posix_fallocate") ? ENFILE : __real_posix_fallocate(fd, from, size);
}

int __real_memfd_create(const char* name, unsigned flags);
int __wrap_memfd_create(const char* name, unsigned flags)
{
    return call_failure::strikes("memfd_create") ? -1 : __real_memfd_create(name, flags);
}
}

namespace {

const char name[] = "stdkro-test-posix-name";

/// Where the name stands while somebody holds it.
std::string file_of_name() { return "/dev/shm/stdkro-" + std::to_string(geteuid()) + "/" + name; }

bool is_held() { return access(file_of_name().c_str(), F_OK) == 0; }

/// A file with a descriptor of its own that has gone when it dies.
class scratch_file {
public:
    scratch_file() : stream_(std::fopen(path(), "w+b")) { EXPECT_NE(stream_, nullptr); }
    ~scratch_file()
    {
        std::fclose(stream_);
        remove();
    }
    static void remove() { std::remove(path()); }
    void* handle() const { return sharemem::file_of(stream_); }

private:
    static const char* path() { return "stdkro_names_posix_test.tmp"; }
    std::FILE* stream_;
};

// ---- single calls fail --------------------------------------------------------------

TEST(memory_without_means, is_not_made_and_leaves_nothing)
{
    const scratch_file file;
    void* const no_file = sharemem::file_of(nullptr);
    static const struct { const char* name; bool over_file; const char* calls; } cases[] = {
        { "", false, "memfd_create posix_fallocate " },
        { "", true, "fstat ftruncate dup " },
        { name, false, "open lock fstat lock ftruncate posix_fallocate mmap lock " },
        { name, true, "fstat dup readlink open lock fstat lock ftruncate posix_fallocate mmap lock open " },
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.calls);
        const int before = open_descriptors();
        std::string calls;
        for (call_failure failure; failure.next();) {
            sharemem m(c.over_file ? file.handle() : no_file);
            failure.arm();
            const int r = m.create(c.name, 100000, sharemem::page_readwrite);
            failure.disarm();
            EXPECT_EQ(r, failure.happened() ? err::file_system : 0) << failure.name();
            if (!failure.happened())
                break;
            calls += std::string(failure.name()) + " ";
            const bool is_growing = c.over_file && !*c.name && failure.was("ftruncate");
            EXPECT_EQ(last_system_error(), is_growing ? ENOSPC : ENFILE) << failure.name();
            EXPECT_EQ(open_descriptors(), before) << failure.name();
            sharemem other;
            EXPECT_EQ(other.open(name, sharemem::map_read), err::file_system) << failure.name() << ": no half-made name";
        }
        EXPECT_EQ(calls, c.calls);
        EXPECT_EQ(open_descriptors(), before);
        EXPECT_FALSE(is_held());
    }
}

TEST(memory_without_means, is_not_mapped_or_joined)
{
    sharemem m;
    ASSERT_EQ(m.create(name, 100000, sharemem::page_readwrite), 0);
    const int before = open_descriptors();
    std::string calls;
    for (call_failure failure; failure.next();) {
        sharemem other;
        failure.arm();
        const int r = other.open(name, sharemem::map_read);
        failure.disarm();
        EXPECT_EQ(r, failure.happened() ? err::file_system : 0) << failure.name();
        if (failure.happened()) {
            calls += std::string(failure.name()) + " ";
            EXPECT_EQ(last_system_error(), ENFILE) << failure.name();
            EXPECT_EQ(open_descriptors(), before) << failure.name();
        }
    }
    EXPECT_EQ(calls, "open lock fstat lock mmap lock ");
    for (call_failure failure; failure.next();) {
        failure.arm();
        void* view = m.attach(0, 100, sharemem::map_write);
        failure.disarm();
        EXPECT_EQ(view == nullptr, failure.happened());
        EXPECT_EQ(m.detach(view), view != nullptr);
    }
    sharemem again;
    EXPECT_EQ(again.open(name, sharemem::map_read), 0) << "which took no harm";
}

TEST(a_semaphore_without_means, is_not_made_and_leaves_nothing)
{
    const int before = open_descriptors();
    for (call_failure failure; failure.next();) {
        sync_sem s;
        failure.arm();
        const bool made = s.create(name, 1, 1);
        failure.disarm();
        EXPECT_EQ(made, !failure.happened()) << failure.name();
        EXPECT_EQ(s.is_valid(), made);
        EXPECT_EQ(open_descriptors(), before + made) << failure.name();
    }
    EXPECT_FALSE(is_held());
}

TEST(a_lock, is_waited_for_through_interruptions)
{
    interruptions = 3;
    sync_sem s;
    EXPECT_TRUE(s.create(name, 1, 1));
    EXPECT_EQ(interruptions, 0);
}

// ---- memory over a file ---------------------------------------------------------------

TEST(memory_over_a_file, is_not_made_without_one)
{
    const int before = open_descriptors();
    void* const closed = reinterpret_cast<void*>(250);
    ASSERT_EQ(fcntl(250, F_GETFD, 0), -1);
    for (const char* n : { "", name }) {
        sharemem m(closed);
        EXPECT_EQ(m.create(n, 100, sharemem::page_readwrite), err::file_system);
        EXPECT_EQ(last_system_error(), EBADF);
    }
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_FALSE(is_held());
}

TEST(memory_over_a_file, is_not_joined_when_the_file_has_gone)
{
    const scratch_file file;
    sharemem m(file.handle());
    ASSERT_EQ(m.create(name, 100, sharemem::page_readwrite), 0);
    const int before = open_descriptors();
    scratch_file::remove();
    sharemem other;
    EXPECT_EQ(other.open(name, sharemem::map_read), err::file_system);
    EXPECT_EQ(last_system_error(), ENOENT);
    EXPECT_EQ(open_descriptors(), before);
    void* const view = m.attach(0, 100, sharemem::map_write);
    EXPECT_NE(view, nullptr) << "who has it keeps it";
    EXPECT_TRUE(m.detach(view));
    m.close();
    EXPECT_FALSE(is_held());
}

// ---- names ------------------------------------------------------------------------------

TEST(a_name, whose_last_user_leaves_just_now_is_made_anew_or_missing)
{
    const int before = open_descriptors();
    {
        files_that_go = 2;
        sharemem m;
        EXPECT_EQ(m.create(name, 100, sharemem::page_readwrite), 0);
        EXPECT_EQ(files_that_go, 0);
        EXPECT_TRUE(is_held());
        sharemem other;
        EXPECT_EQ(other.open(name, sharemem::map_read), 0) << "the one that was made";
        files_that_go = 1;
        sharemem late;
        EXPECT_EQ(late.open(name, sharemem::map_read), err::file_system);
        EXPECT_EQ(last_system_error(), ENOENT);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST(a_name, is_not_kept_in_a_folder_that_others_could_use)
{
    void (*const changes[])(struct stat&) = {
        [](struct stat& info) { info.st_uid += 1; },
        [](struct stat& info) { info.st_mode |= S_IWGRP; },
        [](struct stat& info) { info.st_mode |= S_IXOTH; },
        [](struct stat& info) { info.st_mode = (info.st_mode & ~static_cast<mode_t>(S_IFMT)) | S_IFLNK; },
    };
    const int before = open_descriptors();
    for (const auto change : changes) {
        changed_folder = change;
        sharemem m;
        EXPECT_EQ(m.create(name, 100, sharemem::page_readwrite), err::file_system);
        EXPECT_EQ(last_system_error(), EACCES);
        EXPECT_EQ(m.open(name, sharemem::map_read), err::file_system);
        sync_sem s;
        EXPECT_FALSE(s.create(name, 1, 1));
        EXPECT_EQ(last_system_error(), EACCES);
        changed_folder = nullptr;
        EXPECT_FALSE(is_held());
    }
    EXPECT_EQ(open_descriptors(), before);
}

// ---- allocations fail -------------------------------------------------------------------

TEST(without_memory, nothing_is_made_and_nothing_left)
{
    const scratch_file file;
    const int before = open_descriptors();
    for (allocation_failure failure; failure.next();) {
        sharemem m(file.handle());
        sync_sem s;
        failure.arm_from_there_on();
        const int r = m.create(name, 100, sharemem::page_readwrite);
        m.close();
        const bool made = s.create("stdkro-test-posix-semaphore", 1, 1);
        s.close();
        failure.disarm();
        EXPECT_EQ(r == 0 && made, !failure.happened()) << failure.nth();
        EXPECT_TRUE(r == 0 || r == err::file_system) << failure.nth();
        EXPECT_EQ(open_descriptors(), before) << failure.nth();
        EXPECT_FALSE(is_held()) << failure.nth();
    }
}

TEST(without_memory, for_a_handle_nothing_is_held)
{
    // Places of handles are used again: as many are held as were ever given back.
    sharemem memories[8];
    sync_sem semaphores[8];
    for (int i = 0; i < 8; ++i) {
        ASSERT_EQ(memories[i].create("", 100, sharemem::page_readwrite), 0);
        ASSERT_TRUE(semaphores[i].create(1, 1));
    }
    const int before = open_descriptors();
    for (allocation_failure failure; failure.next();) {
        sharemem m;
        failure.arm();
        const int r = m.create(name, 100, sharemem::page_readwrite);
        failure.disarm();
        EXPECT_EQ(r, failure.happened() ? err::file_system : 0) << failure.nth();
        m.close();
        EXPECT_EQ(open_descriptors(), before) << failure.nth();
        EXPECT_FALSE(is_held()) << failure.nth();
    }
    for (allocation_failure failure; failure.next();) {
        sync_sem s;
        failure.arm();
        const bool made = s.create(name, 1, 1);
        failure.disarm();
        EXPECT_EQ(made, !failure.happened()) << failure.nth();
        s.close();
        EXPECT_EQ(open_descriptors(), before) << failure.nth();
        EXPECT_FALSE(is_held()) << failure.nth();
    }
}

TEST(without_memory, names_are_given_back)
{
    sharemem m;
    sync_sem s;
    ASSERT_EQ(m.create(name, 100, sharemem::page_readwrite), 0);
    ASSERT_TRUE(s.create("stdkro-test-posix-semaphore", 1, 1));
    EXPECT_TRUE(is_held());
    const int before = open_descriptors();
    allocation_failure failure;
    ASSERT_TRUE(failure.next());
    failure.arm_from_there_on();
    m.close();
    s.close();
    failure.disarm();
    EXPECT_FALSE(failure.happened());
    EXPECT_FALSE(is_held());
    EXPECT_EQ(open_descriptors(), before - 2);
}

TEST(without_memory, nothing_is_joined)
{
    sharemem m;
    ASSERT_EQ(m.create(name, 100, sharemem::page_readwrite), 0);
    const int before = open_descriptors();
    for (allocation_failure failure; failure.next();) {
        sharemem other;
        failure.arm();
        const int r = other.open(name, sharemem::map_read);
        failure.disarm();
        EXPECT_EQ(r, failure.happened() ? err::file_system : 0) << failure.nth();
        if (failure.happened()) {
            EXPECT_EQ(last_system_error(), ENOMEM);
            EXPECT_EQ(open_descriptors(), before) << failure.nth();
        }
    }
}

TEST(without_memory, nothing_is_mapped)
{
    sharemem m;
    ASSERT_EQ(m.create("", 100, sharemem::page_readwrite), 0);
    for (allocation_failure failure; failure.next();) {
        failure.arm();
        void* const view = m.attach(0, 0, sharemem::map_write);
        failure.disarm();
        EXPECT_EQ(view == nullptr, failure.happened());
        EXPECT_EQ(m.detach(view), view != nullptr);
        if (failure.happened()) {
            EXPECT_EQ(last_system_error(), ENOMEM);
        }
    }
}

} // namespace
