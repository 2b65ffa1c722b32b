// Random operations on slot tables and sets of sockets, each beside a model that follows the
// rules in the plainest way.
#include "net_fixture.h"

#include <stdkro/poller.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <memory>
#include <random>
#include <vector>

namespace {

constexpr int operation_count = 1000000;

/// Random numbers with a fixed beginning.
class numbers {
public:
    explicit numbers(unsigned seed) : engine_(seed) {}
    /// 0 to `end` - 1.
    unsigned below(unsigned end) { return static_cast<unsigned>(engine_()) % end; }
    bool one_in(unsigned n) { return below(n) == 0; }

private:
    std::mt19937 engine_;
};

// ---- fdset -----------------------------------------------------------------------

int objects_alive = 0;

struct object : fdbase {
    object() { ++objects_alive; }
    ~object() override { --objects_alive; }
    int get_events(int&) override { return -1; }
    int get_fd() override { return -1; }
};

/// A table of slots, and the free ones in the order in which they will be used.
struct table_model {
    std::vector<object*> slots;
    std::deque<unsigned> free;

    bool is_used(int index) const
    {
        return index >= 0 && index < static_cast<int>(slots.size()) && slots[static_cast<unsigned>(index)];
    }
    unsigned count() const { return static_cast<unsigned>(slots.size() - free.size()); }

    int add(object* o)
    {
        if (free.empty())
            return -1;
        const unsigned index = free.front();
        free.pop_front();
        slots[index] = o;
        return static_cast<int>(index);
    }
    int remove(int index)
    {
        if (!is_used(index))
            return -1;
        slots[static_cast<unsigned>(index)] = nullptr;
        free.push_front(static_cast<unsigned>(index));
        return 0;
    }
    void expand(unsigned capacity)
    {
        for (unsigned i = static_cast<unsigned>(slots.size()); i < capacity; ++i) {
            slots.push_back(nullptr);
            free.push_back(i);
        }
    }
    void begin_again(unsigned capacity)
    {
        slots.clear();
        free.clear();
        expand(capacity);
    }
    void delete_objects()
    {
        for (object* const o : slots)
            delete o;
    }
};

/// A table and its model, and one operation with both.
class table_pair {
public:
    explicit table_pair(unsigned seed) : random_(seed) {}
    ~table_pair() { model_.delete_objects(); }

    unsigned choose() { return random_.one_in(500) ? 4 + random_.below(5) : random_.below(4); }

    bool step(unsigned operation)
    {
        const int index = static_cast<int>(random_.below(capacity() + 4)) - 2;
        switch (operation) {
        case 0:
        case 1:
            return add();
        case 2:
            return remove(index);
        case 3:
            return replace(index);
        case 4:
            return grow(random_.below(capacity() + 20));
        case 5:
            return start_afresh(random_.below(40));
        case 6:
            model_.delete_objects();
            table_.reset();
            model_.begin_again(capacity());
            return true;
        case 7:
            model_.delete_objects();
            table_.clear();
            model_.begin_again(0);
            return true;
        default:
            table_.destroy();
            model_.begin_again(0);
            return objects_alive == 0;
        }
    }

    bool is_like(int index) const
    {
        return table_.count() == model_.count() && table_.capacity() == capacity()
            && objects_alive == static_cast<int>(model_.count())
            && table_.get(index) == (model_.is_used(index) ? model_.slots[static_cast<unsigned>(index)] : nullptr);
    }

    bool is_like_everywhere() const
    {
        for (int i = -1; i <= static_cast<int>(capacity()); ++i)
            if (!is_like(i))
                return false;
        return true;
    }

    int any_index() { return static_cast<int>(random_.below(capacity() + 1)); }

private:
    unsigned capacity() const { return static_cast<unsigned>(model_.slots.size()); }

    bool add()
    {
        object* const o = new object;
        const int index = model_.add(o);
        const bool is_same = table_.add(*o) == index;
        if (index < 0)
            delete o;
        return is_same;
    }

    bool remove(int index)
    {
        object* const o = model_.is_used(index) ? model_.slots[static_cast<unsigned>(index)] : nullptr;
        const bool is_same = table_.remove(index) == model_.remove(index);
        delete o;
        return is_same;
    }

    bool replace(int index)
    {
        if (!model_.is_used(index))
            return true;
        object*& o = model_.slots[static_cast<unsigned>(index)];
        delete o;
        o = new object;
        table_.set(index, o);
        return true;
    }

    bool grow(unsigned most)
    {
        const unsigned wanted = std::min(most, 200u);
        model_.expand(wanted);
        return table_.expand(wanted) == 0;
    }

    // A capacity of 0 is refused, and nothing changes.
    bool start_afresh(unsigned wanted)
    {
        if (wanted == 0)
            return table_.create(0) == -1;
        model_.delete_objects();
        model_.begin_again(wanted);
        return table_.create(wanted) == 0;
    }

    numbers random_;
    fdset table_;
    table_model model_;
};

// ---- sockset ---------------------------------------------------------------------

/// Sockets with handles that nobody has opened, three with each, and some that are open.
class socket_pool {
public:
    socket_pool()
    {
        for (unsigned i = 0; i < made_up_count; ++i)
            sockets_.emplace_back(new Socket(first_made_up + i / 3 * 4));
        for (int i = 0; i < 8; ++i) {
            sockets_.emplace_back(new Socket);
            EXPECT_EQ(0, sockets_.back()->create(2, 2, 0));
        }
    }
    ~socket_pool()
    {
        for (unsigned i = 0; i < made_up_count; ++i)
            sockets_[i]->detach();
    }
    Socket& any(numbers& random) const
    {
        return *sockets_[random.one_in(16) ? made_up_count + random.below(8) : random.below(made_up_count)];
    }
    static bool is_open(unsigned handle) { return handle < first_made_up; }

private:
    static constexpr unsigned made_up_count = 900;
    static constexpr unsigned first_made_up = 0x40000000;
    std::vector<std::unique_ptr<Socket>> sockets_;
};

/// A set of sockets and its model: pairs of handle and socket in order.
class set_pair {
public:
    explicit set_pair(unsigned seed) : random_(seed) {}

    /// Whether members come faster than they go.
    bool is_growing = true;

    unsigned choose()
    {
        if (random_.one_in(is_growing ? 40000 : 400))
            return 8 + random_.below(3);
        return is_growing && random_.below(3) > 0 ? 0 : random_.below(8);
    }

    bool step(unsigned operation)
    {
        Socket& s = pool_.any(random_);
        switch (operation) {
        case 0:
            return set_.add(s) == add(s);
        case 1:
            return set_.remove(s) == remove(find(&s));
        case 2:
            return set_.remove(s.get_socket()) == remove(find(s.get_socket()));
        case 3:
            return set_.test(s) == (find(s.get_socket()) < members_.size());
        case 4:
            return set_.test(s.get_socket()) == (find(s.get_socket()) < members_.size());
        case 5:
            return walk(static_cast<int>(random_.below(count() + 3)) - 1);
        case 6:
        case 7:
            return look_up();
        case 8:
            return correct();
        case 9:
            take_result();
            return true;
        default:
            set_.clear();
            members_.clear();
            return true;
        }
    }

    bool is_like() const { return set_.count() == count() && set_.get_fdset().fd_count == count(); }

    bool is_like_everywhere() const
    {
        int cursor = 0;
        for (unsigned i = 0; i < count(); ++i) {
            if (set_.get_fdset().fd_array[i] != members_[i].handle || set_.get_socket(cursor) != members_[i].socket)
                return false;
        }
        return is_like() && !set_.get_socket(cursor) && cursor == static_cast<int>(count());
    }

    unsigned count() const { return static_cast<unsigned>(members_.size()); }

private:
    struct member {
        unsigned handle;
        Socket* socket;
    };

    std::size_t find(unsigned handle) const
    {
        const auto has_it = [=](const member& m) { return m.handle == handle; };
        return static_cast<std::size_t>(std::find_if(members_.begin(), members_.end(), has_it) - members_.begin());
    }
    std::size_t find(const Socket* socket) const
    {
        const auto is_it = [=](const member& m) { return m.socket == socket; };
        return static_cast<std::size_t>(std::find_if(members_.begin(), members_.end(), is_it) - members_.begin());
    }

    int add(Socket& s)
    {
        if (members_.size() == 1024)
            return err::overflow;
        members_.push_back({ s.get_socket(), &s });
        return 0;
    }

    int remove(std::size_t at)
    {
        if (at == members_.size())
            return err::not_exist;
        members_.erase(members_.begin() + static_cast<std::ptrdiff_t>(at));
        return 0;
    }

    bool walk(int cursor) const
    {
        const bool is_inside = cursor >= 0 && cursor < static_cast<int>(count());
        Socket* const expected = is_inside ? members_[static_cast<unsigned>(cursor)].socket : nullptr;
        const int after = cursor + is_inside;
        return set_.get_socket(cursor) == expected && cursor == after;
    }

    // The handles of members and strangers, some of them twice.
    sock_fd_set any_result(unsigned n)
    {
        sock_fd_set result;
        result.fd_count = n;
        for (unsigned i = 0; i < n; ++i) {
            const bool is_member = count() > 0 && !random_.one_in(8);
            result.fd_array[i] = is_member ? members_[random_.below(count())].handle : pool_.any(random_).get_socket();
        }
        return result;
    }

    bool look_up()
    {
        const sock_fd_set result = any_result(3);
        int cursor = 0;
        for (int i = 0; i < 3; ++i) {
            const std::size_t at = find(result.fd_array[i]);
            Socket* const expected = at < members_.size() ? members_[at].socket : nullptr;
            if (set_.get_socket(result, cursor) != expected || cursor != i + 1)
                return false;
        }
        return !set_.get_socket(result, cursor) && cursor == 3;
    }

    bool correct()
    {
        const std::size_t before = members_.size();
        const auto is_closed = [](const member& m) { return !socket_pool::is_open(m.handle); };
        members_.erase(std::remove_if(members_.begin(), members_.end(), is_closed), members_.end());
        return set_.correct() == static_cast<int>(before - members_.size());
    }

    // A count above 1,024 is cut.
    void take_result()
    {
        sock_fd_set result = any_result(random_.one_in(4) ? 1024 : random_.below(100));
        std::vector<member> kept;
        for (unsigned i = 0; i < result.fd_count; ++i) {
            const std::size_t at = find(result.fd_array[i]);
            kept.push_back({ result.fd_array[i], at < members_.size() ? members_[at].socket : nullptr });
        }
        if (result.fd_count == 1024)
            result.fd_count += random_.below(2) * 1000;
        members_ = kept;
        set_.set_result(result);
    }

    numbers random_;
    socket_pool pool_;
    sockset set_;
    std::vector<member> members_;
};

} // namespace

TEST(fdset, agrees_with_a_model_over_random_operations)
{
    {
        table_pair both(11);
        for (int i = 0; i < operation_count; ++i) {
            const unsigned operation = both.choose();
            ASSERT_TRUE(both.step(operation)) << i << ": operation " << operation;
            ASSERT_TRUE(both.is_like(both.any_index())) << i << ": after operation " << operation;
            ASSERT_TRUE(i % 64 != 0 || both.is_like_everywhere()) << i << ": after operation " << operation;
        }
    }
    EXPECT_EQ(0, objects_alive);
}

TEST(sockset, agrees_with_a_model_over_random_operations)
{
    set_pair both(12);
    unsigned most = 0;
    for (int i = 0; i < operation_count; ++i) {
        if (i % 10000 == 0)
            both.is_growing = i % 40000 == 0;
        const unsigned operation = both.choose();
        ASSERT_TRUE(both.step(operation)) << i << ": operation " << operation;
        ASSERT_TRUE(both.is_like()) << i << ": after operation " << operation;
        ASSERT_TRUE((i % 256 != 0 && operation < 8) || both.is_like_everywhere()) << i << ": after operation " << operation;
        most = std::max(most, both.count());
    }
    EXPECT_EQ(1024u, most) << "it was full at times";
}

namespace {

/// Datagram sockets that are all writable, and each third is readable.
struct known_sockets {
    static constexpr unsigned count = 12;
    Socket sockets[count];

    known_sockets()
    {
        Socket sender;
        EXPECT_EQ(0, sender.create(2, 2, 0));
        for (unsigned i = 0; i < count; ++i) {
            SockAddr address;
            EXPECT_EQ(0, sockets[i].create(2, 2, 0));
            EXPECT_EQ(0, sockets[i].bind(SockAddr("127.0.0.1", 0)));
            EXPECT_EQ(0, sockets[i].getself(address));
            if (i % 3 == 0) {
                EXPECT_EQ(1, sender.send_to(&address, "x", 1));
                EXPECT_EQ(0, sockets[i].select(1, nullptr));
            }
        }
    }
    static bool is_ready(unsigned i, unsigned condition) { return condition == 0 ? i % 3 == 0 : condition == 1; }
};

/// One of the three sets of a wait, perhaps absent, and what is to be left of it.
struct random_set {
    sock_fd_set set;
    bool is_present;
    std::vector<unsigned> ready;

    random_set(const known_sockets& all, numbers& random, unsigned condition) : is_present(!random.one_in(4))
    {
        set.fd_count = is_present ? random.below(20) : 0;
        for (unsigned i = 0; i < set.fd_count; ++i) {
            const unsigned n = random.below(known_sockets::count);
            const unsigned h = all.sockets[n].get_socket();
            set.fd_array[i] = h;
            if (known_sockets::is_ready(n, condition) && std::find(ready.begin(), ready.end(), h) == ready.end())
                ready.push_back(h);
        }
    }
    sock_fd_set* get() { return is_present ? &set : nullptr; }
    std::vector<unsigned> members() const { return { set.fd_array, set.fd_array + set.fd_count }; }
};

} // namespace

TEST(select, agrees_with_a_model_over_random_sets)
{
    const known_sockets all;
    numbers random(13);
    const timeval at_once = { 0, 0 };
    for (int i = 0; i < operation_count / 100; ++i) {
        random_set sets[3] = { { all, random, 0 }, { all, random, 1 }, { all, random, 2 } };
        const unsigned members = sets[0].set.fd_count + sets[1].set.fd_count + sets[2].set.fd_count;
        const int ready = static_cast<int>(sets[0].ready.size() + sets[1].ready.size() + sets[2].ready.size());
        const int expected = members == 0 ? err::network : ready == 0 ? err::timeout : ready;
        ASSERT_EQ(expected, Socket::select(sets[0].get(), sets[1].get(), sets[2].get(), &at_once)) << i;
        for (const random_set& s : sets)
            ASSERT_EQ(s.ready, s.members()) << i;
    }
}
