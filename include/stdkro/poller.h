// Three interchangeable event loops over objects that own one socket each.
//
// Derive from `fdbase`, add objects to a loop, and call `wait` again and again: it
// calls back each object whose socket is ready. The loops have the same operations
// and differ in how they wait:
//
// selector  keeps descriptor sets, in the manner of select; calls `do_read`, `do_write` and
//           `do_error` in three passes over all objects
// poller    keeps a record for each object, in the manner of poll; calls `dispatch_events` of
//           every object after each wait
// epoller   keeps a list of what to watch, in the manner of epoll; calls only the objects
//           that are ready. At most 10 exist at a time.
//
// No loop owns its objects (but see `destroy`): remove an object before it dies, and
// before its socket is closed. Handlers may add and remove objects, and grow or
// empty the loop. A loop belongs to one thread; only `wake` may be called by others.
#ifndef STDKRO_POLLER_H
#define STDKRO_POLLER_H

#include <stdkro/config.h>

struct sock_fd_set;
struct timeval;
class watch_table;

/// What an object wants to be told of, and what it is told.
enum { EV_READ = 1, EV_WRITE = 2, EV_ERROR = 4 };

/// An object that a loop serves. Its descriptor is that of a socket (`Socket::get_socket`).
class KRO_API fdbase {
public:
    virtual ~fdbase();
    /// Stores the wanted event bits and returns the descriptor, negative when the object
    /// has none now. Asked by `refresh`.
    virtual int get_events(int& events) = 0;
    /// The descriptor.
    virtual int get_fd() = 0;
    /// Called when the socket is readable, writable, or has an exceptional condition. A
    /// negative result keeps `poller` and `epoller` from calling the others for this event.
    virtual int do_read();
    virtual int do_write();
    virtual int do_error();
    /// Calls the three for the bits in `events`, until one is negative.
    virtual void dispatch_events(int events);
};

/// A hook that `epoller` runs after every object it has served.
class KRO_API exec_object {
public:
    virtual ~exec_object();
    virtual int exec();
};

/// A table of objects by slot, with a free list. Does not own them.
class KRO_API fdset {
public:
    fdset() = default;
    explicit fdset(unsigned capacity);
    fdset(const fdset&) = delete;
    fdset& operator=(const fdset&) = delete;
    ~fdset();

    /// Starts afresh with that many slots. 0, or -1 for none and without memory.
    int create(unsigned capacity);
    /// Grows; a capacity that is not larger changes nothing and is a success. 0, or -1
    /// without memory.
    int expand(unsigned capacity);
    /// The new object's slot, the one that was freed last first; -1 when full.
    int add(fdbase& object);
    /// 0, or -1 for a free slot.
    int remove(int index);
    /// Forgets everything, without and with deleting the objects.
    void clear();
    void destroy();
    /// Frees all slots and keeps the table.
    void reset();
    /// The object in a slot; null for a free one.
    fdbase* get(int index) const;
    /// Puts an object into a slot that is in use.
    void set(int index, fdbase* object);
    unsigned count() const { return count_; }
    unsigned capacity() const { return capacity_; }

private:
    friend class served_objects;

    bool is_index(int index) const { return index >= 0 && static_cast<unsigned>(index) < capacity_; }

    unsigned count_ = 0;
    unsigned capacity_ = 0;
    fdbase** slots_ = nullptr;
    // Entries from count_ on are the free slots, the next one to use first.
    unsigned* free_ = nullptr;
};

/// Called before or after a wait with the argument it was set with.
typedef void (*poll_callback)(void* argument);

/// What every loop has: its objects by index.
class KRO_API served_objects {
public:
    served_objects(const served_objects&) = delete;
    served_objects& operator=(const served_objects&) = delete;

    /// The object of an index; null for a free slot.
    fdbase* get(int index) const { return objects_.get(index); }
    unsigned count() const { return objects_.count(); }
    unsigned capacity() const { return objects_.capacity(); }

protected:
    served_objects() = default;
    ~served_objects() = default;

    fdset objects_;

private:
    friend class poller;

    // What `get` gives for an index below the capacity, without a call.
    fdbase* at(unsigned index) const { return objects_.slots_[index]; }
};

/// What `selector` and `epoller` call besides their objects.
class KRO_API poll_hooks {
public:
    void set_before_poll_cb(poll_callback callback, void* argument);
    void set_after_poll_cb(poll_callback callback, void* argument);
    exec_object* get_exec_object() const { return exec_; }
    /// `epoller` calls it after every object that was served; `selector` only stores it.
    void set_exec_object(exec_object* object) { exec_ = object; }

protected:
    poll_hooks() = default;
    ~poll_hooks() = default;
    void call_before() const;
    void call_after() const;
    void call_exec() const;

private:
    poll_callback before_ = nullptr;
    void* before_argument_ = nullptr;
    poll_callback after_ = nullptr;
    void* after_argument_ = nullptr;
    exec_object* exec_ = nullptr;
};

/// A loop in the manner of select.
class KRO_API selector : public poll_hooks, public served_objects {
public:
    explicit selector(unsigned capacity = 1024);
    ~selector();

    /// Starts afresh with room for that many objects. 0 or negative.
    int create(unsigned capacity);
    /// Grows. 0 or negative; then nothing changed.
    int expand(unsigned capacity);
    /// Registers an object for event bits. Its index for the operations below, or negative
    /// when the loop is full. More than 1,024 descriptors for one event are not watched.
    int add(fdbase& object, int events);
    /// 0, or negative for a free slot.
    int remove(int index);
    /// 0, or -1 for a free slot.
    int set_events(int index, int events);
    /// Forgets every object, without and with deleting them.
    void clear();
    void destroy();
    /// Waits once and calls the objects that are ready. The number of ready items, 0 after the time
    /// limit (null: none) or when woken, or negative. A loop without any interest sleeps for the
    /// whole milliseconds of the time limit, 10 when it is null.
    int wait(const timeval* limit);
    /// Asks every object for its descriptor and events again.
    void refresh();
    /// Ends the present or the next wait; from any thread. 0 or -1.
    int wake();

private:
    struct interest_set;
    struct slot;

    void enter(int fd, int events);
    void take(int index, int fd, int events);
    void take_out(int fd);
    bool has_interest() const;
    void rebuild_watch();
    void dispatch(int n);

    slot* slots_ = nullptr;
    interest_set* sets_ = nullptr;
    watch_table* watch_ = nullptr;
    unsigned waker_;
    bool is_changed_ = true;
};

/// A loop in the manner of poll.
class KRO_API poller : public served_objects {
public:
    explicit poller(unsigned capacity = 1024);
    ~poller();

    /// As the operations of `selector`, with these differences: failures are -1; `wait` with
    /// nothing to wait for returns -1 at once.
    int create(unsigned capacity);
    int expand(unsigned capacity);
    int add(fdbase& object, int events);
    int remove(int index);
    int set_events(int index, int events);
    void clear();
    void destroy();
    /// Calls `dispatch_events` of every object with a descriptor, also with 0.
    int wait(const timeval* limit);
    void refresh();
    int wake();

    /// Called after each wait, before the objects are.
    void setwaitcallback(poll_callback callback, void* argument);

private:
    struct record;

    void rebuild_watch();
    void dispatch();

    poll_callback waited_ = nullptr;
    void* waited_argument_ = nullptr;
    record* records_ = nullptr;
    watch_table* watch_ = nullptr;
    unsigned waker_;
    bool is_changed_ = true;
};

/// A loop in the manner of epoll. At most 10 exist at a time: `create` fails then.
class KRO_API epoller : public poll_hooks, public served_objects {
public:
    explicit epoller(unsigned capacity = 1024);
    ~epoller();

    /// As the operations of `poller`, with these differences: an object never gets back at
    /// once the slot that it has just left; what `expand` adds is not watched, so
    /// give `create` the final size; the part of a time limit below a second counts as
    /// that many microseconds for each millisecond.
    int create(unsigned capacity);
    int expand(unsigned capacity);
    int add(fdbase& object, int events);
    int remove(int index);
    int set_events(int index, int events);
    void clear();
    void destroy();
    int wait(const timeval* limit);
    void refresh();
    int wake();

private:
    struct ready_record;
    struct shadow;

    bool is_current(const ready_record& record) const;
    void serve(const ready_record& record);
    void dispatch(int n);

    int list_ = -1;
    ready_record* results_ = nullptr;
    shadow* shadows_ = nullptr;
};

#endif
