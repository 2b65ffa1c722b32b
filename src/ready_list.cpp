// The readiness lists: parallel arrays in the order of registration.
//
// A wait is made in one of two ways that give the same results. The watch table rebuilds descriptor
// sets in the order of the entries and always serves. The system's own list, where there is one, is
// kept in step with every change and gives only what is ready; it is used as long as it
// cannot be told from descriptor sets: no descriptor stands in two entries, no set is over-full, and
// every descriptor is still what it was when it was entered.
#include "ready_list.h"

#include "watch_table.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>

namespace {

constexpr int event_count = 3;
// The bits of the lists in the order of the event bits 1, 2, 4.            ORDER events
constexpr unsigned list_bits[event_count] = { EP_IN, EP_OUT, EP_ERR };

int events_of(unsigned bits)
{
    int events = 0;
    for (int k = 0; k < event_count; ++k)
        if (bits & list_bits[k])
            events |= 1 << k;
    return events;
}

// By the sum of event bits: each result of a wait is made with it.
constexpr unsigned char bits_by_events[1 << event_count]
    = { 0, EP_IN, EP_OUT, EP_IN | EP_OUT, EP_ERR, EP_IN | EP_ERR, EP_OUT | EP_ERR, EP_IN | EP_OUT | EP_ERR };

unsigned bits_of(int events) { return bits_by_events[events]; }

short conditions_of(unsigned bits)
{
    int conditions = 0;
    for (int k = 0; k < event_count; ++k)
        if (bits & list_bits[k])
            conditions |= watch_table::condition_of[k];
    return static_cast<short>(conditions);
}

class ready_list {
public:
    /// Null without memory.
    static ready_list* create(unsigned capacity);
    ready_list(const ready_list&) = delete;
    ready_list& operator=(const ready_list&) = delete;
    ~ready_list();

    int control(int operation, int fd, const ep_record& record);
    int wait(ep_record* results, unsigned most, const timeval* limit);
    int wake() const { return sys_waker_wake(waker_); }

private:
    explicit ready_list(unsigned capacity);
    bool has_memory() const { return table_ && is_indexed_ && conditions_ && is_ready_; }
    unsigned words() const { return capacity_ / 64 + 1; }

    int add(int fd, const ep_record& record);
    void modify(unsigned at, const ep_record& record);
    void remove(unsigned at);
    void count_members(unsigned bits, int step);
    void index_again();

    bool fits_system() const;
    bool is_in_system();
    void watch_in_system(unsigned at, short conditions);
    void leave_system();
    int wait_in_system(ep_record* results, unsigned most, timeval* limit);
    bool find_entries(sys_ready_event* found, sys_ready_event* end) const;
    ep_record result(unsigned at, short conditions) const;
    int results_in_order(ep_record* results, unsigned most, unsigned n);
    int wait_in_table(ep_record* results, unsigned most, const timeval* limit);

    unsigned capacity_;
    unsigned count_ = 0;
    std::unique_ptr<ep_record[]> records_;
    std::unique_ptr<sys_watch[]> watches_; // the descriptors, and how the system's list holds them
    descriptor_index first_;               // the first entry of each descriptor
    bool is_indexed_;
    unsigned repeated_ = 0;              // entries whose descriptor has an earlier one
    unsigned members_[event_count] = {}; // entries that want each event
    unsigned waker_;

    watch_table* table_;
    bool is_changed_ = true; // since the table was filled

    sys_ready_list* system_ = nullptr;
    bool is_refused_ = false;                   // the system has taken no list of these entries
    std::unique_ptr<sys_ready_event[]> found_;  // what it reports,
    std::unique_ptr<short[]> conditions_;       // the same by entry,
    std::unique_ptr<std::uint64_t[]> is_ready_; // and a bit for each entry
};

template <class element> element* allocate(bool is_wanted, unsigned n)
{
    return is_wanted ? new (std::nothrow) element[n]() : nullptr;
}

ready_list::ready_list(unsigned capacity)
    : capacity_(capacity), records_(allocate<ep_record>(true, capacity)),
      watches_(allocate<sys_watch>(records_ != nullptr, capacity)), is_indexed_(watches_ && first_.create(capacity)),
      waker_(sys_waker_open()), table_(watch_table::create(capacity, nullptr)),
      found_(allocate<sys_ready_event>(is_indexed_, std::min(capacity, watch_table::most_descriptors) + 1)),
      conditions_(allocate<short>(found_ != nullptr, capacity)),
      is_ready_(allocate<std::uint64_t>(conditions_ != nullptr, words()))
{
}

ready_list* ready_list::create(unsigned capacity)
{
    std::unique_ptr<ready_list> list(new (std::nothrow) ready_list(capacity));
    return list && list->has_memory() ? list.release() : nullptr;
}

ready_list::~ready_list()
{
    sys_ready_close(system_);
    watch_table::destroy(table_);
    sys_socket_close(waker_);
}

// ---- entries ---------------------------------------------------------------------

int ready_list::control(int operation, int fd, const ep_record& record)
{
    if (operation == EP_ADD)
        return add(fd, record);
    const int at = first_.find(fd);
    if (at < 0 || (operation != EP_MODIFY && operation != EP_DELETE))
        return -1;
    if (operation == EP_MODIFY)
        modify(static_cast<unsigned>(at), record);
    else
        remove(static_cast<unsigned>(at));
    return 0;
}

int ready_list::add(int fd, const ep_record& record)
{
    if (fd < 0 || count_ >= capacity_)
        return -1;
    records_[count_] = record;
    watches_[count_] = { fd, 0, 0 };
    if (!first_.add(fd, static_cast<int>(count_))) {
        ++repeated_;
        leave_system();
    }
    count_members(record.events, 1);
    watch_in_system(count_++, conditions_of(record.events));
    return 0;
}

void ready_list::modify(unsigned at, const ep_record& record)
{
    count_members(records_[at].events, -1);
    count_members(record.events, 1);
    records_[at] = record;
    watch_in_system(at, conditions_of(record.events));
}

// The last entry takes the place of the removed one.
void ready_list::remove(unsigned at)
{
    watch_in_system(at, 0);
    count_members(records_[at].events, -1);
    first_.erase(watches_[at].fd);
    --count_;
    if (at < count_) {
        records_[at] = records_[count_];
        watches_[at] = watches_[count_];
        first_.set(watches_[at].fd, static_cast<int>(at));
    }
    if (repeated_ > 0)
        index_again();
}

void ready_list::count_members(unsigned bits, int step)
{
    for (int k = 0; k < event_count; ++k)
        if (bits & list_bits[k])
            members_[k] += static_cast<unsigned>(step);
    is_changed_ = true;
}

void ready_list::index_again()
{
    first_.clear();
    repeated_ = 0;
    for (unsigned i = 0; i < count_; ++i)
        repeated_ += !first_.add(watches_[i].fd, static_cast<int>(i));
}

// ---- waiting in the system's list --------------------------------------------------

bool ready_list::fits_system() const
{
    const auto is_too_many = [](unsigned members) { return members > watch_table::set_limit; };
    const auto is_some = [](unsigned members) { return members > 0; };
    return repeated_ == 0 && std::none_of(members_, members_ + event_count, is_too_many)
        && std::any_of(members_, members_ + event_count, is_some);
}

// The system's list is made at a wait, of all entries at once; from then on every change goes into it.
bool ready_list::is_in_system()
{
    if (!fits_system())
        return false;
    if (system_ || is_refused_)
        return system_ != nullptr;
    system_ = sys_ready_open(std::min(capacity_, watch_table::most_descriptors), waker_);
    for (unsigned i = 0; system_ && i < count_; ++i)
        watch_in_system(i, conditions_of(records_[i].events));
    is_refused_ = !system_;
    return !is_refused_;
}

void ready_list::watch_in_system(unsigned at, short conditions)
{
    is_refused_ = false;
    if (system_ && sys_ready_set(system_, &watches_[at], conditions, at) < 0)
        leave_system();
}

void ready_list::leave_system()
{
    sys_ready_close(system_);
    system_ = nullptr;
    for (unsigned i = 0; i < count_; ++i)
        watches_[i].wanted = 0;
}

ep_record ready_list::result(unsigned at, short conditions) const
{
    ep_record made = records_[at];
    made.events = bits_of(watch_table::events_of(conditions));
    return made;
}

// Turns marks into the numbers of entries, which removals may have moved since; what a child that fork did
// not make has put into our list gets the highest number. True when they ascend, as they mostly do.
bool ready_list::find_entries(sys_ready_event* found, sys_ready_event* end) const
{
    bool is_ascending = true;
    int last = -1;
    for (sys_ready_event* p = found; p < end; ++p) {
        if (p->mark >= count_ || watches_[p->mark].fd != p->fd)
            p->mark = static_cast<unsigned>(first_.find(p->fd));
        const int at = static_cast<int>(p->mark);
        is_ascending &= at > last;
        last = at;
    }
    return is_ascending;
}

int ready_list::wait_in_system(ep_record* results, unsigned most, timeval* limit)
{
    sys_ready_event* const found = found_.get();
    const int n = sys_ready_wait(system_, watches_.get(), count_, found, limit);
    if (n <= 0)
        return n;
    if (!find_entries(found, found + n))
        return results_in_order(results, most, static_cast<unsigned>(n));
    const unsigned made = std::min(static_cast<unsigned>(n), most);
    for (unsigned i = 0; i < made; ++i)
        results[i] = result(found[i].mark, found[i].ready);
    return static_cast<int>(made);
}

// The bits bring what comes in any order into the order of the entries.
int ready_list::results_in_order(ep_record* results, unsigned most, unsigned n)
{
    unsigned begin = words();
    unsigned end = 0;
    for (const sys_ready_event* p = found_.get(); p < found_.get() + n; ++p) {
        const unsigned at = p->mark;
        if (at >= count_)
            continue;
        const unsigned word = at / 64;
        conditions_[at] = p->ready;
        is_ready_[word] |= std::uint64_t { 1 } << at % 64;
        begin = std::min(begin, word);
        end = std::max(end, word + 1);
    }
    unsigned made = 0;
    for (unsigned word = begin; word < end; ++word) {
        for (std::uint64_t left = is_ready_[word]; left != 0 && made < most; left &= left - 1) {
            const unsigned at = word * 64 + static_cast<unsigned>(__builtin_ctzll(left));
            results[made++] = result(at, conditions_[at]);
        }
        is_ready_[word] = 0;
    }
    return made > 0 ? static_cast<int>(made) : static_cast<int>(sys_ready_stale);
}

// ---- waiting in the table ----------------------------------------------------------

int ready_list::wait_in_table(ep_record* results, unsigned most, const timeval* limit)
{
    if (is_changed_) {
        table_->clear();
        for (unsigned i = 0; i < count_; ++i)
            table_->enter(watches_[i].fd, events_of(records_[i].events));
        is_changed_ = false;
    }
    const int n = table_->wait(limit, waker_);
    if (n <= 0)
        return n;
    unsigned made = 0;
    for (unsigned i = 0; i < count_ && made < most; ++i) {
        const unsigned bits = bits_of(table_->ready(table_->number_of(watches_[i].fd)));
        if (bits == 0)
            continue;
        results[made] = records_[i];
        results[made++].events = bits;
    }
    return static_cast<int>(made);
}

int ready_list::wait(ep_record* results, unsigned most, const timeval* limit)
{
    timeval left = limit ? *limit : timeval();
    int n = sys_ready_unsure;
    if (is_in_system())
        n = wait_in_system(results, most, limit ? &left : nullptr);
    if (n == sys_ready_stale)
        leave_system();
    return n >= 0 ? n : wait_in_table(results, most, limit ? &left : nullptr);
}

// ---- the lists of the process --------------------------------------------------------

constexpr int list_count = 10;
ready_list* lists[list_count];

ready_list* list_at(int number) { return number >= 0 && number < list_count ? lists[number] : nullptr; }

} // namespace

int ep_create(unsigned capacity)
{
    ready_list** const free = std::find(lists, lists + list_count, nullptr);
    if (free == lists + list_count || capacity > 0x7FFFFFF)
        return -1;
    *free = ready_list::create(capacity);
    return *free ? static_cast<int>(free - lists) : -1;
}

void ep_close(int number)
{
    if (ready_list* const list = list_at(number)) {
        delete list;
        lists[number] = nullptr;
    }
}

int ep_ctl(int number, int operation, int fd, const ep_record& record)
{
    ready_list* const list = list_at(number);
    return list ? list->control(operation, fd, record) : -1;
}

int ep_wait(int number, ep_record* results, unsigned most, const timeval* limit)
{
    ready_list* const list = list_at(number);
    return list ? list->wait(results, most, limit) : -1;
}

int ep_wake(int number)
{
    const ready_list* const list = list_at(number);
    return list ? list->wake() : -1;
}
