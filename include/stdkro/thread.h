// Locks, threads, tables of threads, and the stopwatch.
//
// A time limit is a pointer to a `timeval`, null meaning no limit; a negative
// limit counts as zero. Waiting follows the monotonic clock and goes on after
// an interruption. Strings of this library count their references without
// locks: do not let two threads share one buffer.
#ifndef STDKRO_THREAD_H
#define STDKRO_THREAD_H

#include <atomic>
#include <stdkro/config.h>

struct timeval;

/// What can be locked.
class KRO_API sync_object {
public:
    /// Waits at most `limit`. True when the lock was taken.
    virtual bool lock(const timeval* limit = nullptr) = 0;
    /// True when a lock was given back.
    virtual bool unlock() = 0;
    /// `lock` without a limit: it waits. There is no attempt without waiting.
    virtual bool trylock();
    virtual ~sync_object();

protected:
    sync_object() = default;
    sync_object(const sync_object&) = default;
    sync_object& operator=(const sync_object&) = default;
};

/// A counting semaphore with a maximum. A copy has the same handle: let only
/// one of the two close it.
class KRO_API sync_sem : public sync_object {
public:
    sync_sem() = default;
    /// Adopts a handle, as `get_handle` of another semaphore gives it.
    explicit sync_sem(void* handle) : handle_(handle) {}
    /// `create(initial, maximum)`; ask `is_valid` whether it succeeded.
    sync_sem(int initial, int maximum);
    sync_sem(const sync_sem&) = default;
    sync_sem& operator=(const sync_sem&) = default;
    ~sync_sem() override;

    /// Closes the present handle and makes an unnamed semaphore.
    /// False, and no handle, unless 0 <= initial <= maximum and 1 <= maximum.
    bool create(int initial, int maximum);
    /// Makes a semaphore that all processes of this user share by its name, or
    /// joins the one of that name, whose counts then stand. It lives until its
    /// last handle is closed. The present handle is forgotten, not closed.
    /// A null or empty name makes an unnamed semaphore.
    bool create(const char* name, int initial, int maximum);
    void close();
    bool is_valid() const { return handle_ != nullptr; }
    void* get_handle() const { return handle_; }

    /// Takes one count. The limit is `tv_sec` * 1000 + `tv_usec` milliseconds:
    /// the microseconds are counted as milliseconds.
    bool lock(const timeval* limit = nullptr) override;
    /// Gives one count back; false at the maximum.
    bool unlock() override;

private:
    void* handle_ = nullptr;
};

/// A critical section: the thread that holds it may enter again, and leaves as
/// often as it entered. A copy gets a free section of its own; assignment
/// keeps the own one.
class KRO_API sync_critical : public sync_object {
public:
    sync_critical();
    sync_critical(const sync_critical& other);
    sync_critical& operator=(const sync_critical&) { return *this; }
    ~sync_critical() override;

    /// Waits without limit, whatever `limit` says. Always true.
    bool lock(const timeval* limit = nullptr) override;
    /// Always true. A thread that does not hold the section changes nothing.
    bool unlock() override;

private:
    void* section_[6];
};

/// Holds a lock as long as it lives.
class KRO_API smart_lock {
public:
    /// Locks at once, without limit, when `lock_now` is set.
    explicit smart_lock(sync_object& object, bool lock_now = true);
    smart_lock(const smart_lock&) = delete;
    smart_lock& operator=(const smart_lock&) = delete;
    ~smart_lock();

    bool lock(const timeval* limit = nullptr);
    bool trylock();
    /// True when the guard no longer holds the lock.
    bool unlock();
    bool islocked() const { return locked_; }

private:
    sync_object& object_;
    bool locked_;
};

/// One worker thread.
///
/// Destroying the object kills a thread that still runs, and a killed thread
/// keeps its locks and unwinds nothing: let it end first. A derived class must
/// do so in its own destructor, because the thread may be inside `doExecute`.
/// A thread that is no longer tracked (after `set_freed`, or a `wait_done` that
/// timed out) still touches its object when it ends.
class KRO_API thread {
public:
    /// What a thread runs. Exceptions that leave it are swallowed.
    using function = void (*)(thread* self, void* first, void* second);

    /// State bits. The upper 16 bits of the states are the slot number.
    enum : unsigned { state_stop = 1, state_running = 2 };

    explicit thread(long tag = 0);
    thread(const thread&) = delete;
    thread& operator=(const thread&) = delete;
    virtual ~thread();

    /// Runs `run(this, first, second)` in a new thread. Id, handle and running
    /// bit are set before it runs; all other states, the slot number among
    /// them, are cleared. 0x80010001 when there is a thread already,
    /// 0x80020001 when the system gives none, 0x80010002 without memory,
    /// 0x80000007 for a null function.
    int start(void* first, function run, void* second);
    /// Runs `doExecute(argument)` in a new thread.
    int start(void* argument = nullptr);
    /// Ends the calling thread, which must be this one, with an exit code.
    /// Nothing is unwound: destructors of its live objects do not run.
    void end(int exit_code);
    /// Kills the thread with exit code -1 and gives up the handle.
    void terminate();

    /// Waits for the end, then gives up the handle. Always 0.
    int wait_done();
    /// The same with a limit. When it passes, the handle is given up all the
    /// same: the thread runs on, no longer tracked. Always 0.
    int wait_done(const timeval* limit);
    /// Closes the handle; the thread runs on, no longer tracked.
    void set_freed();

    /// Whether a thread was started and its handle not given up.
    bool is_valid() const { return id_ > 0; }
    /// Whether there is a handle and its exit code reads 259, "still active".
    bool is_activated() const;

    /// Stops the thread where it is. Suspensions are counted: returns the count
    /// before, or -1 without a handle or for a finished thread.
    int suspend();
    /// Takes one suspension back. Returns the count before; at 0 nothing changes.
    int resume();

    /// The id of the calling thread.
    static int get_self_id();
    /// Waits until all of at most 63 threads have ended; closes nothing.
    /// 0x80000008 for 64 or more, 0x80020001 for none, for one without a handle
    /// or the same twice, 0x8002000C when the limit passes. The limit is
    /// `tv_sec` * 1000 + `tv_usec` milliseconds. For a single thread even a
    /// completed wait gives 0x80020001: use `wait_done`.
    static int wait_all_done(thread* const* list, unsigned count, const timeval* limit);

    int get_id() const { return id_; }
    long get_tag() const { return tag_; }
    /// Writes the four bytes of the tag and a zero; returns `text`.
    char* get_tag(char* text) const;

    unsigned get_states() const { return states_.load(std::memory_order_relaxed); }
    /// Whether any bit of `mask` is set.
    bool has_states(unsigned mask) const { return (get_states() & mask) != 0; }
    void set_states(unsigned mask) { states_.fetch_or(mask, std::memory_order_relaxed); }
    void clr_states(unsigned mask) { states_.fetch_and(~mask, std::memory_order_relaxed); }
    /// The slot in a `threads` table; 0 also when in none.
    unsigned get_no() const { return get_states() >> 16; }
    /// Numbers above 65,535 lose their upper bits.
    void set_no(unsigned no);

protected:
    /// The work of a derived class. Here it does nothing.
    virtual void doExecute(void* argument);

private:
    static void execute(thread* self, void* first, void* second);
    static void enter(void* record);

    int id_ = 0;
    int tag_;
    std::atomic<unsigned> states_ { 0 };
    void* handle_ = nullptr;
};

/// A table of threads, which it owns. `attach`, `detach` and `stop_all` are
/// locked; the other functions are not.
class KRO_API threads {
public:
    threads() = default;
    /// `create(capacity)`.
    explicit threads(unsigned capacity);
    threads(const threads&) = delete;
    threads& operator=(const threads&) = delete;
    ~threads();

    /// Makes room for at most 65,536 threads; 0 makes no table and succeeds.
    /// 0x80010001 when there is a table, 0x80000007 when that is too many,
    /// 0x80010002 without memory.
    int create(unsigned capacity);
    /// Deletes all threads, killing those that run, and the table.
    void clear();

    /// Null when there is none.
    thread* get_thread(unsigned index) const;
    /// Puts a thread, which the table then owns, into the next free slot behind
    /// the last one given out. Returns the slot; 0x80010003 when all are
    /// taken, 0x80000007 for null.
    int attach(thread* t);
    /// Takes the thread out of its slot and gives it back; null when none.
    thread* detach(unsigned index);

    /// A new thread in a slot; null when there is no room.
    thread* alloc_thread(long tag);
    thread* alloc_thread(int tag) { return alloc_thread(static_cast<long>(tag)); }
    /// The tag is made of the first four characters of `name`.
    thread* alloc_thread(const char* name);
    /// Takes a thread out and deletes it, killing it when it runs.
    void free_thread(unsigned index);
    void free_thread(int index) { free_thread(static_cast<unsigned>(index)); }
    /// The same for a thread of this table, unless its number is 0: a thread in
    /// slot 0, or one started after it was attached, is not freed this way.
    void free_thread(thread* t);

    /// Sets the stop bit of every thread, which are to ask `has_states`. Always 0.
    int stop_all();
    /// Does nothing. Always 0.
    int stop_thread(unsigned index, const timeval* limit);
    /// `thread::wait_done` of that slot; 0x80020004 when it is empty.
    int wait_done(unsigned index, const timeval* limit);
    /// `thread::wait_all_done` over all slots, each of which must be taken.
    int wait_all_done(const timeval* limit);

    unsigned count() const { return count_; }
    unsigned capacity() const { return capacity_; }

private:
    unsigned find_free(unsigned begin, unsigned end) const;

    thread** table_ = nullptr;
    unsigned capacity_ = 0;
    unsigned count_ = 0;
    unsigned next_ = 0;
    sync_critical lock_;
    unsigned* taken_ = nullptr; // one bit for each slot
};

/// A stopwatch, running from its construction.
class KRO_API timer {
public:
    timer();
    void reset() { start_ = current(); }
    /// Milliseconds since the start.
    double spend() const { return span_to(current()); }
    /// The same, and starts again.
    double spend_reset();

    /// The high-resolution counter, and its ticks per second.
    static double current();
    static double get_freq();

private:
    double span_to(double now) const { return (now - start_) * 1000 / frequency_; }

    double start_;
    double frequency_;
};

#endif
