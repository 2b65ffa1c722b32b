// The containers, each beside a model made of the standard library's.
#include <stdkro/cycque.h>
#include <stdkro/dlist.h>
#include <stdkro/hmap.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <list>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

// An item that knows how many of its kind there are: none may be left over.
struct counted {
    static int alive;
    int value;
    counted(int v = 0) : value(v) { ++alive; }
    counted(const counted& other) : value(other.value) { ++alive; }
    counted& operator=(const counted& other) = default;
    ~counted() { --alive; }
    bool operator==(const counted& other) const { return value == other.value; }
};
int counted::alive = 0;

// An item that cannot be moved, and whose copying throws after so many copies.
struct fragile : counted {
    static int copies_left;
    fragile(int v = 0) : counted(v) {}
    fragile(const fragile& other) : counted(other)
    {
        if (copies_left-- == 0)
            throw xrterror(err::failed, "no more copies");
    }
    fragile& operator=(const fragile& other) = default;
};
int fragile::copies_left = -1;

// Does `change` with its copy `n` failing; whether it threw.
template <class CHANGE> bool fails_at(int n, const CHANGE& change)
{
    fragile::copies_left = n;
    bool thrown = false;
    try {
        change();
    } catch (const xrterror&) {
        thrown = true;
    }
    fragile::copies_left = -1;
    return thrown;
}

struct no_leftovers : testing::Test {
    void SetUp() override { ASSERT_EQ(counted::alive, 0); }
    void TearDown() override { EXPECT_EQ(counted::alive, 0); }
};
using cycque_test = no_leftovers;
using hmap_test = no_leftovers;
using dlist_test = no_leftovers;

template <class SEQUENCE> std::vector<int> values(const SEQUENCE& s)
{
    std::vector<int> v;
    for (const auto& item : s)
        v.push_back(item.value);
    return v;
}

template <class T> std::vector<int> values(const cycque<T>& q)
{
    std::vector<int> v;
    for (unsigned i = 0; i < q.count(); ++i)
        v.push_back(q[i].value);
    return v;
}

// ---- cycque ------------------------------------------------------------------

TEST_F(cycque_test, an_empty_queue_has_nothing_to_pop)
{
    cycque<counted> q;
    EXPECT_EQ(q.count(), 0u);
    EXPECT_TRUE(q.isempty());
    EXPECT_FALSE(q.pop_front());
    EXPECT_FALSE(q.pop_back());
    q.clear();
    EXPECT_TRUE(q.isempty());
}

TEST_F(cycque_test, both_ends_agree_with_a_deque)
{
    std::mt19937 random(1);
    for (int round = 0; round < 20; ++round) {
        cycque<counted> q;
        std::deque<int> model;
        for (int step = 0; step < 2000; ++step) {
            // Growing and shrinking phases, so that the ring wraps at many sizes.
            const bool grow = random() % 100 < (step / 400 % 2 ? 35u : 65u);
            const bool at_front = random() % 2 != 0;
            if (grow && at_front) {
                q.push_front(counted(step));
                model.push_front(step);
            } else if (grow) {
                const counted item(step);
                q.push_back(item);
                model.push_back(step);
            } else if (at_front) {
                ASSERT_EQ(q.pop_front(), !model.empty());
                if (!model.empty())
                    model.pop_front();
            } else {
                ASSERT_EQ(q.pop_back(), !model.empty());
                if (!model.empty())
                    model.pop_back();
            }
            ASSERT_EQ(q.count(), model.size());
            ASSERT_EQ(q.isempty(), model.empty());
            if (!model.empty()) {
                ASSERT_EQ(q.front().value, model.front());
                ASSERT_EQ(q.back().value, model.back());
                const unsigned i = static_cast<unsigned>(random() % model.size());
                ASSERT_EQ(q[i].value, model[i]);
            }
        }
        ASSERT_EQ(values(q), std::vector<int>(model.begin(), model.end()));
    }
}

TEST_F(cycque_test, an_item_of_the_queue_can_be_pushed_again_while_it_grows)
{
    cycque<counted> q;
    q.push_back(counted(7));
    for (int i = 0; i < 40; ++i) {
        q.push_back(q.front());
        q.push_front(q.back());
    }
    EXPECT_EQ(values(q), std::vector<int>(81, 7));
}

TEST_F(cycque_test, a_copy_is_independent)
{
    cycque<counted> q;
    for (int i = 0; i < 10; ++i)
        q.push_back(counted(i));
    q.pop_front();
    cycque<counted> copy(q);
    cycque<counted> assigned;
    assigned.push_back(counted(99));
    assigned = q;
    assigned = *&assigned;
    q.clear();
    const std::vector<int> expected = { 1, 2, 3, 4, 5, 6, 7, 8, 9 };
    EXPECT_EQ(values(copy), expected);
    EXPECT_EQ(values(assigned), expected);
    EXPECT_TRUE(q.isempty());
    cycque<counted> moved(std::move(copy));
    EXPECT_EQ(values(moved), expected);
    moved.swap(q);
    EXPECT_EQ(values(q), expected);
    EXPECT_TRUE(moved.isempty());
    moved = std::move(q);
    EXPECT_EQ(values(moved), expected);
}

TEST_F(cycque_test, a_copy_that_throws_leaves_the_queue_as_it_was)
{
    for (const bool at_front : { false, true }) {
        bool is_failing = true;
        for (int n = 0; is_failing; ++n) {
            // A full ring that begins in its middle.
            cycque<fragile> q;
            for (int i = 0; i < 11; ++i) {
                q.push_back(i);
                if (i < 3)
                    q.pop_front();
            }
            std::vector<int> expected = { 3, 4, 5, 6, 7, 8, 9, 10 };
            const fragile item(99);
            is_failing = fails_at(n, [&] { at_front ? q.push_front(item) : q.push_back(item); });
            ASSERT_EQ(is_failing, n < 9) << "nine copies, no more";
            if (!is_failing)
                expected.insert(at_front ? expected.begin() : expected.end(), 99);
            ASSERT_EQ(values(q), expected) << n;
            ASSERT_EQ(counted::alive, static_cast<int>(expected.size()) + 1) << n;
            q.push_back(100);
            expected.push_back(100);
            ASSERT_EQ(values(q), expected) << n;
        }
    }
}

TEST_F(cycque_test, a_full_queue_copies_what_it_has_when_moving_could_throw)
{
    // Moving an item that was copied would leave it empty when a later one throws.
    struct item {
        fragile copied;
        std::vector<int> moved;
        explicit item(int v) : copied(v), moved(1, v) {}
        item(const item& other) = default;
        item(item&& other) : copied(other.copied), moved(std::move(other.moved)) {}
    };
    cycque<item> q;
    for (int i = 0; i < 8; ++i)
        q.push_back(item(i));
    for (int n = 0; n < 8; ++n) {
        item added(99);
        ASSERT_TRUE(fails_at(n + 1, [&] { q.push_back(added); })) << n;
        for (unsigned i = 0; i < 8; ++i)
            ASSERT_EQ(q[i].moved, std::vector<int>(1, static_cast<int>(i))) << n;
    }
}

// ---- hmap --------------------------------------------------------------------

using text_map = hmap<share_str, counted>;

std::string order_of(const text_map& m)
{
    std::string text;
    for (const text_map::entry& e : m)
        text += std::string(e.key.c_str()) + "=" + std::to_string(e.value.value) + " ";
    return text;
}

TEST_F(hmap_test, an_empty_map_finds_nothing)
{
    text_map m;
    EXPECT_EQ(m.find("a"), nullptr);
    EXPECT_EQ(m.find("", 0), nullptr);
    EXPECT_FALSE(m.remove("a"));
    EXPECT_EQ(m.count(), 0u);
    EXPECT_TRUE(m.isempty());
    EXPECT_EQ(m.begin(), m.end());
    m.clear();
    EXPECT_EQ(m.count(), 0u);
}

TEST_F(hmap_test, set_inserts_or_replaces_and_keeps_the_address)
{
    text_map m;
    counted& a = m.set("a", 1);
    counted& b = m.set("b", 2);
    EXPECT_EQ(&m.set("a", 3), &a);
    EXPECT_EQ(a.value, 3);
    EXPECT_EQ(&m["b"], &b);
    EXPECT_EQ(m["c"].value, 0);
    m["c"].value = 5;
    EXPECT_EQ(m.count(), 3u);
    EXPECT_EQ(order_of(m), "a=3 b=2 c=5 ");
}

TEST_F(hmap_test, iteration_follows_the_order_of_first_insertion)
{
    text_map m;
    for (const char* key : { "z", "y", "x", "w" })
        m.set(key, 0);
    m.set("y", 1);
    m.remove("x");
    m.remove("z");
    m.set("x", 2);
    EXPECT_EQ(order_of(m), "y=1 w=0 x=2 ");
    m.remove("x");
    EXPECT_EQ(order_of(m), "y=1 w=0 ");
    for (text_map::entry& e : m)
        e.value.value = 9;
    EXPECT_EQ(order_of(m), "y=9 w=9 ");
}

TEST_F(hmap_test, a_text_is_found_by_span)
{
    text_map m;
    const char text[] = "name and more";
    m.set("name", 1);
    m.set(share_str(text, text + 8), 2);
    m.set("", 3);
    ASSERT_NE(m.find(text, 4), nullptr);
    EXPECT_EQ(m.find(text, 4)->value, 1);
    EXPECT_EQ(m.find(text, 8)->value, 2);
    EXPECT_EQ(m.find(text, 0)->value, 3);
    EXPECT_EQ(m.find(text, 5), nullptr);
    const text_map& constant = m;
    EXPECT_EQ(constant.find(text, 4)->value, 1);
    EXPECT_EQ(constant.find("name")->value, 1);
    // A NUL inside belongs to the key.
    m.set(share_str("a\0b", "a\0b" + 3), 4);
    EXPECT_EQ(m.find("a\0b", 3)->value, 4);
    EXPECT_EQ(m.find("a", 1), nullptr);
}

TEST_F(hmap_test, every_length_of_text_hashes_alike_as_key_and_as_span)
{
    std::string text;
    std::set<unsigned> hashes;
    for (unsigned n = 0; n < 100; ++n) {
        const share_str key(text.data(), text.data() + n);
        const unsigned hash = hash_fun<share_str>()(key);
        EXPECT_EQ(hash, hash_fun<share_str>()(text.data(), n)) << n;
        hashes.insert(hash);
        // Each byte counts.
        for (unsigned i = 0; i < n; ++i) {
            std::string other = text;
            other[i] = static_cast<char>(other[i] ^ 1);
            EXPECT_NE(hash_fun<share_str>()(other.data(), n), hash) << n << " " << i;
        }
        text += static_cast<char>('a' + n % 26);
    }
    EXPECT_EQ(hashes.size(), 100u);
}

// The reference: a map for the values, a list for the order.
struct map_model {
    std::map<std::string, int> value;
    std::list<std::string> order;
    void set(const std::string& key, int v)
    {
        if (!value.count(key))
            order.push_back(key);
        value[key] = v;
    }
    bool remove(const std::string& key)
    {
        order.remove(key);
        return value.erase(key) != 0;
    }
    std::string text() const
    {
        std::string t;
        for (const std::string& key : order)
            t += key + "=" + std::to_string(value.at(key)) + " ";
        return t;
    }
};

TEST_F(hmap_test, random_changes_agree_with_a_standard_map_and_move_no_value)
{
    std::mt19937 random(2);
    for (const unsigned keys : { 3u, 50u, 700u }) {
        text_map m;
        map_model model;
        std::map<std::string, counted*> addresses;
        unsigned revision = m.revision();
        for (int step = 0; step < 6000; ++step) {
            const std::string key = "k" + std::to_string(random() % keys);
            const share_str name(key.c_str());
            const unsigned before = m.count();
            switch (random() % 4) {
            case 0:
            case 1:
                model.set(key, step);
                addresses[key] = &m.set(name, step);
                break;
            case 2:
                ASSERT_EQ(m.remove(name), model.remove(key));
                addresses.erase(key);
                break;
            default: {
                counted* const found = m.find(key.data(), static_cast<unsigned>(key.size()));
                ASSERT_EQ(found != nullptr, model.value.count(key) != 0);
                if (found) {
                    ASSERT_EQ(found->value, model.value[key]);
                    ASSERT_EQ(found, addresses[key]);
                }
            }
            }
            ASSERT_EQ(m.count(), model.value.size());
            ASSERT_EQ(m.revision() != revision, m.count() != before);
            revision = m.revision();
        }
        EXPECT_EQ(order_of(m), model.text());
        text_map copy(m);
        EXPECT_EQ(order_of(copy), model.text());
        m.clear();
        EXPECT_EQ(order_of(m), "");
        EXPECT_NE(m.revision(), revision);
        m.set("again", 1);
        EXPECT_EQ(order_of(m), "again=1 ");
        m = copy;
        EXPECT_EQ(order_of(m), model.text());
        text_map moved(std::move(copy));
        EXPECT_EQ(order_of(moved), model.text());
        EXPECT_EQ(copy.count(), 0u); // NOLINT: a moved-from map is empty and usable
        copy.set("x", 1);
        copy.swap(moved);
        EXPECT_EQ(order_of(moved), "x=1 ");
        EXPECT_EQ(order_of(copy), model.text());
    }
}

TEST_F(hmap_test, swapping_with_an_empty_map_works_both_ways)
{
    text_map empty;
    text_map full;
    full.set("a", 1);
    full.swap(empty);
    EXPECT_EQ(order_of(empty), "a=1 ");
    EXPECT_EQ(full.find("a"), nullptr);
    full.set("b", 2);
    EXPECT_EQ(order_of(full), "b=2 ");
    text_map none;
    none.swap(none);
    text_map other;
    none.swap(other);
    EXPECT_EQ(none.find("a"), nullptr);
    none = std::move(full);
    EXPECT_EQ(order_of(none), "b=2 ");
}

enum class colour { red, green };
struct every_key_alike {
    unsigned operator()(int) const { return 7; }
};

TEST_F(hmap_test, a_copy_that_throws_leaves_the_map_as_it_was_and_takes_no_room)
{
    hmap<int, fragile> m;
    m.set(1, 1);
    fragile* const first = m.find(1);
    const fragile item(2);
    for (int i = 0; i < 100; ++i) {
        ASSERT_TRUE(fails_at(0, [&] { m.set(2, item); }));
        ASSERT_EQ(m.count(), 1u);
        ASSERT_EQ(m.find(2), nullptr);
    }
    // Chunks hold at least four: the next one stands beside the first.
    fragile* const second = &m.set(2, item);
    EXPECT_EQ(m.find(1), first);
    EXPECT_LT(std::abs(reinterpret_cast<char*>(second) - reinterpret_cast<char*>(first)), 200);
    EXPECT_TRUE(fails_at(0, [&] { hmap<int, fragile> copy(m); }));
    EXPECT_TRUE(fails_at(1, [&] { hmap<int, fragile> copy(m); }));
}

TEST_F(hmap_test, integers_enumerations_and_pointers_are_keys)
{
    hmap<int, int> ints;
    hmap<unsigned long long, int> longs;
    for (int i = -500; i < 500; ++i) {
        ints.set(i * 1024, i);
        longs.set(static_cast<unsigned long long>(i) << 32, i);
    }
    for (int i = -500; i < 500; ++i) {
        ASSERT_EQ(*ints.find(i * 1024), i);
        ASSERT_EQ(*longs.find(static_cast<unsigned long long>(i) << 32), i);
    }
    hmap<colour, int> colours;
    colours[colour::green] = 3;
    EXPECT_EQ(colours.find(colour::red), nullptr);
    EXPECT_EQ(*colours.find(colour::green), 3);
    int a = 0;
    hmap<int*, int> pointers;
    pointers[&a] = 4;
    EXPECT_EQ(*pointers.find(&a), 4);
}

TEST_F(hmap_test, keys_with_one_hash_stay_apart)
{
    hmap<int, int, every_key_alike> m;
    for (int i = 0; i < 200; ++i)
        m.set(i, i * i);
    for (int i = 0; i < 200; i += 3)
        ASSERT_TRUE(m.remove(i));
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(m.find(i) != nullptr, i % 3 != 0) << i;
}

TEST_F(hmap_test, an_entry_can_be_removed_by_its_own_key)
{
    text_map m;
    m.set("a", 1);
    m.set("b", 2);
    EXPECT_TRUE(m.remove(m.begin()->key));
    EXPECT_EQ(order_of(m), "b=2 ");
}

// ---- dlist -------------------------------------------------------------------

TEST_F(dlist_test, an_empty_list_has_nothing_to_pop)
{
    dlist<counted> l;
    EXPECT_TRUE(l.isempty());
    EXPECT_EQ(l.begin(), l.end());
    EXPECT_FALSE(l.pop_front());
    EXPECT_FALSE(l.pop_back());
}

TEST_F(dlist_test, both_ends_and_the_middle_agree_with_a_list)
{
    std::mt19937 random(3);
    dlist<counted> l;
    std::list<int> model;
    for (int step = 0; step < 5000; ++step) {
        auto place = l.begin();
        auto model_place = model.begin();
        for (unsigned i = 0; model_place != model.end() && i < random() % 8; ++i) {
            ++place;
            ++model_place;
        }
        switch (random() % 8) {
        case 0:
            l.push_back(counted(step));
            model.push_back(step);
            break;
        case 1:
            l.push_front(counted(step));
            model.push_front(step);
            break;
        case 2:
        case 3:
            ASSERT_EQ(l.insert(place, counted(step))->value, step);
            model.insert(model_place, step);
            break;
        case 4:
            ASSERT_EQ(l.pop_back(), !model.empty());
            if (!model.empty())
                model.pop_back();
            break;
        case 5:
            ASSERT_EQ(l.pop_front(), !model.empty());
            if (!model.empty())
                model.pop_front();
            break;
        default:
            if (model_place != model.end()) {
                const auto next = l.remove(place);
                const auto model_next = model.erase(model_place);
                ASSERT_EQ(next == l.end(), model_next == model.end());
            }
        }
        ASSERT_EQ(l.count(), model.size());
        ASSERT_EQ(values(l), std::vector<int>(model.begin(), model.end()));
        if (!model.empty()) {
            ASSERT_EQ(l.front().value, model.front());
            ASSERT_EQ(l.back().value, model.back());
        }
    }
    std::vector<int> backwards;
    for (auto i = l.end(); i != l.begin();)
        backwards.push_back((*--i).value);
    EXPECT_EQ(backwards, std::vector<int>(model.rbegin(), model.rend()));
}

TEST_F(dlist_test, addresses_and_iterators_survive_changes_elsewhere)
{
    dlist<counted> l;
    l.push_back(1);
    const auto one = l.begin();
    counted* const address = &*one;
    for (int i = 0; i < 100; ++i) {
        l.push_front(i);
        l.push_back(i);
    }
    for (int i = 0; i < 100; ++i) {
        l.pop_front();
        l.pop_back();
    }
    EXPECT_EQ(one->value, 1);
    EXPECT_EQ(&l.front(), address);
    EXPECT_EQ(l.count(), 1u);
}

TEST_F(dlist_test, a_copy_is_independent)
{
    dlist<counted> l;
    for (int i = 0; i < 3; ++i)
        l.push_back(i);
    dlist<counted> copy(l);
    dlist<counted> assigned;
    assigned.push_back(9);
    assigned = l;
    l.clear();
    l.push_back(7);
    EXPECT_EQ(values(copy), (std::vector<int> { 0, 1, 2 }));
    EXPECT_EQ(values(assigned), (std::vector<int> { 0, 1, 2 }));
    dlist<counted> empty;
    copy.swap(empty);
    EXPECT_TRUE(copy.isempty());
    EXPECT_EQ(copy.begin(), copy.end());
    EXPECT_EQ(values(empty), (std::vector<int> { 0, 1, 2 }));
    dlist<counted> moved(std::move(empty));
    moved = std::move(l);
    EXPECT_EQ(values(moved), (std::vector<int> { 7 }));
}

TEST_F(dlist_test, a_copy_that_throws_leaves_the_list_as_it_was)
{
    dlist<fragile> l;
    l.push_back(1);
    l.push_back(2);
    const fragile item(3);
    EXPECT_TRUE(fails_at(0, [&] { l.push_front(item); }));
    EXPECT_TRUE(fails_at(0, [&] { l.insert(l.end(), item); }));
    EXPECT_TRUE(fails_at(1, [&] { dlist<fragile> copy(l); }));
    EXPECT_TRUE(fails_at(1, [&] {
        dlist<fragile> assigned;
        assigned = l;
    }));
    EXPECT_EQ(values(l), (std::vector<int> { 1, 2 }));
}

} // namespace
