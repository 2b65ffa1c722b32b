// Child processes, named shared memory, and dynamic modules.
//
// Handles are opaque pointers. The classes copy them as values and assume one
// owner: of two copies let only one close.
#ifndef STDKRO_PROCESS_H
#define STDKRO_PROCESS_H

#include <cstdio>
#include <stdkro/config.h>

/// The operating system's own error number of the last failure that a function
/// of process.h or thread.h met on this thread. Set by failures only.
KRO_API int last_system_error();

/// One child process. The destructor lets it run on.
///
/// The application is a file, found from our working directory and never in
/// PATH. The command line is whole: its first word becomes argument 0. Words
/// are separated by blanks and tabs; double quotes keep them together;
/// backslashes are literal except before a double quote. There is no shell.
/// The child gets our standard streams and no other descriptor.
class KRO_API process {
public:
    process() = default;
    process(const process&) = default;
    process& operator=(const process&) = default;
    virtual ~process();

    /// Starts `application` in the folder `directory` (null or empty: ours).
    /// A null or empty command line uses the application path instead.
    /// With `suspended` it waits, before its first instruction, for `resume`.
    /// Returns 1, or 0 when a process is held or the start fails.
    int start(const char* application, const char* directory, const char* command_line, bool suspended = false);
    /// The same with a pipe: mode "r" reads the child's standard output, "w"
    /// writes to its standard input; "rb" and "wb" are binary. Returns our
    /// end, which the caller closes with `fclose`, or null.
    /// Read to the end before `wait_done`: a full pipe stops the child. Writing
    /// to a child that has gone fails and raises no signal; to that end the
    /// stream of a writer may be without a descriptor.
    std::FILE* start(const char* application, const char* directory, const char* command_line, const char* mode,
                     bool suspended);

    /// Kills the child with exit code -1. Returns 1, also when there is none;
    /// 0 when it has finished already: it is kept then, its code can be read.
    int terminate();
    /// Whether the child has ended, or there is none. At the end stores the exit
    /// code, unless `exit_code` is null, and gives the process up.
    /// A child killed by a signal has exit code -1.
    bool is_done(int* exit_code = nullptr);
    /// Waits for the end, gives the process up and returns its exit code; 0
    /// when there is none, -1 when it cannot be read.
    int wait_done();

    /// Suspensions are counted, as those of a thread. Always 0.
    int suspend();
    int resume();

    int get_id() const { return id_; }
    /// Whether a process is held.
    bool is_valid() const { return id_ != 0; }

private:
    void close();

    void* process_ = none();
    void* main_thread_ = none();
    int id_ = 0;

    static void* none(); // all ones
};

/// Memory shared by name with other processes of this user. A name lives as
/// long as any process holds a handle to it.
class KRO_API sharemem {
public:
    /// The numbers of protections and accesses, the same on all platforms.
    enum : unsigned {
        page_readonly = 2,
        page_readwrite = 4,
        map_write = 2,
        map_read = 4,
        map_all_access = 0xF001F,
    };

    /// `file` is the file behind the memory, as `file_of` gives it; all ones, the
    /// default, for memory without a file. The caller keeps it open until `create`.
    explicit sharemem(void* file = no_file());
    sharemem(const sharemem&) = default;
    sharemem& operator=(const sharemem&) = default;
    virtual ~sharemem();

    /// The file of a stream as the platform knows it: its handle or descriptor.
    static void* file_of(std::FILE* stream);

    /// Makes `size` bytes, zero at first, or joins the memory of that name,
    /// whose size then stands. A null or empty name makes unnamed memory.
    /// 0x80020001 when memory is held already; 0x80020002 when it fails, also
    /// for size 0 and a `protection` other than `page_readonly` and `page_readwrite`.
    int create(const char* name, unsigned size, unsigned protection);
    /// Joins the memory of that name. The same codes.
    int open(const char* name, unsigned access);
    /// Views stay valid.
    void close();

    /// Maps `size` bytes at `offset`, which must be a multiple of 65,536; size 0
    /// maps to the end. Null when the access was not granted, or when the
    /// view would pass the end of the memory's last page.
    void* attach(unsigned offset, unsigned size, unsigned access);
    /// False unless `address` is a view.
    bool detach(void* address);

private:
    void* file_;
    void* mapping_ = nullptr;

    static void* no_file();
};

/// A library loaded while the program runs.
class KRO_API module {
public:
    /// Adopts a handle.
    explicit module(void* handle = nullptr) : handle_(handle) {}
    module(const module&) = default;
    module& operator=(const module&) = default;
    virtual ~module();

    /// Loads a library; the name goes to the platform's loader as it is. A
    /// library held before is forgotten, not unloaded: load once per object.
    /// 0x80020002 when it fails; the old library is kept then.
    int load(const char* name);
    /// Always 0.
    int unload();
    /// The address of an exported entry, or null.
    void* get_func(const char* name) const;

    void* get_handle() const { return handle_; }
    /// Adopts a handle; the one held before is forgotten.
    void set_handle(void* handle) { handle_ = handle; }
    bool is_valid() const { return handle_ != nullptr; }

    /// What the platform's loader said about the last failure of `load` or
    /// `get_func` on this thread; empty before the first.
    static const char* get_load_error();

private:
    void* handle_;
};

#endif
