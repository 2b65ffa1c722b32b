// Containers, values, readers and lexers when memory runs out: whichever allocation
// fails, nothing is lost, nothing leaks, and the status is `err::out_of_memory`.
#include "allocation_failure.h"

#include <stdkro/base_lexer.h>
#include <stdkro/dlist.h>
#include <stdkro/ini_doc.h>
#include <stdkro/str.h>

#include "gbk_texts.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>

namespace {

/// Runs `action` with the n-th allocation failing; its status, or that of what it threw.
template <class ACTION> int status_with(allocation_failure& failure, ACTION action)
{
    failure.arm();
    int status;
    try {
        status = action();
    } catch (const xcpt& e) {
        status = e.get_err();
    }
    failure.disarm();
    return status;
}

const char* const long_text = "a text that is long enough to need a block of memory";

struct language : base_lexer {
    language() : base_lexer(2) { set_symbol("+", 20); }
    explicit language(const base_lexer& like) : base_lexer(2, like) {}
};

// The first lexer of the process makes the table that all others share: this test
// stands first.
TEST(values_memory, a_lexer_is_made_or_is_out_of_memory)
{
    int failures = 0;
    for (allocation_failure failure; failure.next();) {
        std::unique_ptr<language> l;
        const int status = status_with(failure, [&] {
            l.reset(new (std::nothrow) language);
            return l ? 0 : err::out_of_memory;
        });
        ASSERT_EQ(status, failure.happened() ? err::out_of_memory : 0) << failure.nth();
        failures += failure.happened();
    }
    EXPECT_GT(failures, 5);
    language l;
    EXPECT_EQ(l.get_symbol_table().count(), 4u);
}

TEST(values_memory, a_container_keeps_what_it_had)
{
    for (allocation_failure failure; failure.next();) {
        cycque<int> q;
        hmap<int, int> m;
        dlist<int> l;
        int pushed = 0;
        const int status = status_with(failure, [&] {
            for (; pushed < 100; ++pushed) {
                q.push_back(pushed);
                m.set(pushed, pushed);
                l.push_back(pushed);
            }
            return 0;
        });
        ASSERT_EQ(status, failure.happened() ? err::out_of_memory : 0) << failure.nth();
        // Those of the last round may have got in.
        ASSERT_GE(q.count(), static_cast<unsigned>(pushed));
        ASSERT_EQ(l.count(), static_cast<unsigned>(pushed));
        for (int i = 0; i < pushed; ++i) {
            ASSERT_EQ(q[static_cast<unsigned>(i)], i);
            ASSERT_NE(m.find(i), nullptr);
            ASSERT_EQ(*m.find(i), i);
        }
        int at = 0;
        for (int v : l)
            ASSERT_EQ(v, at++);
    }
}

// A list of pairs is copied, not moved, and its copy needs memory.
TEST(values_memory, a_queue_of_lists_keeps_them_when_it_cannot_grow)
{
    attributes list;
    list.add_attr("name", "value");
    list.add_attr("other", long_text);
    for (const bool at_front : { false, true }) {
        int failures = 0;
        for (allocation_failure failure; failure.next();) {
            const long living = allocation_failure::living();
            {
                cycque<attributes> q;
                for (int i = 0; i < 8; ++i)
                    q.push_back(list);
                const int status = status_with(failure, [&] {
                    at_front ? q.push_front(list) : q.push_back(list);
                    return 0;
                });
                ASSERT_EQ(status, failure.happened() ? err::out_of_memory : 0) << failure.nth();
                ASSERT_EQ(q.count(), failure.happened() ? 8u : 9u);
                for (unsigned i = 0; i < q.count(); ++i) {
                    ASSERT_EQ(q[i].count(), 2u);
                    ASSERT_STREQ(q[i][1].get_value().c_str(), long_text);
                }
            }
            ASSERT_EQ(allocation_failure::living(), living);
            failures += failure.happened();
        }
        EXPECT_GT(failures, 9) << "each copy can fail";
    }
}

TEST(values_memory, an_item_stays_with_its_owner_when_a_container_cannot_take_it)
{
    for (int kind = 0; kind < 3; ++kind) {
        for (allocation_failure failure; failure.next();) {
            cycque<base_var> q;
            for (int i = 0; i < 8; ++i)
                q.push_back(i);
            dlist<base_var> l;
            base_var item(long_text);
            const int status = status_with(failure, [&] {
                switch (kind) {
                case 0:
                    q.push_back(std::move(item));
                    return 0;
                case 1:
                    q.push_front(std::move(item));
                    return 0;
                default:
                    l.push_back(std::move(item));
                    return 0;
                }
            });
            ASSERT_EQ(status, failure.happened() ? err::out_of_memory : 0);
            ASSERT_EQ(item.is_string(), failure.happened()) << kind;
            ASSERT_EQ(q.count() + l.count(), failure.happened() ? 8u : 9u);
        }
    }
}

TEST(values_memory, a_copy_of_a_container_is_whole_or_absent)
{
    cycque<int> q;
    hmap<int, int> m;
    dlist<int> l;
    for (int i = 0; i < 50; ++i) {
        q.push_front(i);
        m.set(i, i);
        l.push_front(i);
    }
    cycque<int> q2;
    hmap<int, int> m2;
    dlist<int> l2;
    for (allocation_failure failure; failure.next();) {
        const int status = status_with(failure, [&] {
            q2 = q;
            m2 = m;
            l2 = l;
            return 0;
        });
        ASSERT_EQ(status, failure.happened() ? err::out_of_memory : 0);
        ASSERT_TRUE(q2.count() == 0 || q2.count() == 50);
        ASSERT_TRUE(m2.count() == 0 || m2.count() == 50);
        ASSERT_TRUE(l2.count() == 0 || l2.count() == 50);
    }
    EXPECT_EQ(l2.count(), 50u);
}

TEST(values_memory, a_value_becomes_an_error_or_an_empty_string)
{
    for (allocation_failure failure; failure.next();) {
        base_var a(long_text);
        const base_var b(long_text);
        failure.arm();
        a += b;
        failure.disarm();
        ASSERT_EQ(a.get_err(), failure.happened() ? err::out_of_memory : 0);
        ASSERT_TRUE(failure.happened() || a.get_string().length() == 2 * b.get_string().length());
        ASSERT_STREQ(b.get_string().c_str(), long_text);
    }
    for (allocation_failure failure; failure.next();) {
        base_var number(12);
        failure.arm();
        base_var text(long_text);
        const base_var sum = text + text;
        number.from_string(long_text);
        failure.disarm();
        ASSERT_TRUE(text.is_string());
        ASSERT_TRUE(text.get_string().isempty() || text.get_string() == long_text);
        ASSERT_TRUE(number.is_string());
        ASSERT_TRUE(sum.is_string() || sum.get_err() == err::out_of_memory);
    }
}

TEST(values_memory, reading_a_value_gives_an_empty_string)
{
    for (allocation_failure failure; failure.next();) {
        base_var v;
        failure.arm();
        const char* const end = str::read_value("\"a text that is long enough to need memory\",rest", v);
        failure.disarm();
        ASSERT_STREQ(end, ",rest");
        ASSERT_TRUE(v.is_string());
        ASSERT_EQ(v.get_string().isempty(), failure.happened());
    }
}

TEST(values_memory, a_reader_keeps_its_text_when_a_load_fails)
{
    const std::string path = testing::TempDir() + "stdkro_values_memory";
    std::FILE* const file = std::fopen(path.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    std::fputs(long_text, file);
    std::fclose(file);
    std::string much;
    while (much.size() < 20000)
        much += long_text;
    reader other;
    other.load_string(long_text);

    for (int kind = 0; kind < 4; ++kind) {
        for (allocation_failure failure; failure.next();) {
            reader r;
            r.load_string("before\nit");
            r.eat_until('i');
            std::istringstream in(much);
            const int status = status_with(failure, [&] {
                switch (kind) {
                case 0:
                    return r.load_string(long_text);
                case 1:
                    return r.load_file(path.c_str(), "rb");
                case 2:
                    return r.load_stream(in);
                default:
                    return r.load_reader(other, true);
                }
            });
            if (status == 0) {
                // What the C library allocates for a file it may do without.
                ASSERT_STREQ(r.sread(0, 52).c_str(), long_text);
                continue;
            }
            ASSERT_TRUE(failure.happened());
            // A stream that cannot be opened for want of memory is a file that cannot be opened.
            ASSERT_TRUE(status == err::out_of_memory || (kind == 1 && status == err::file_system)) << status;
            ASSERT_STREQ(r.sread(0, 100).c_str(), "before\nit");
            ASSERT_EQ(r.get_pos(), 7u);
            ASSERT_EQ(r.get_line(), 2);
        }
    }
    std::remove(path.c_str());
}

TEST(values_memory, a_copy_of_a_reader_is_whole_or_empty)
{
    reader r;
    r.load_string(long_text);
    r.getch();
    for (allocation_failure failure; failure.next();) {
        failure.arm();
        const reader copy(r);
        reader assigned;
        assigned = r;
        failure.disarm();
        ASSERT_EQ(copy.get_size() != 0 && assigned.get_size() != 0, !failure.happened());
        ASSERT_EQ(copy.get_pos(), copy.get_size() ? 1u : 0u);
        ASSERT_EQ(assigned.get_line(), 1);
    }
}

TEST(values_memory, a_token_is_read_or_is_out_of_memory)
{
    static const char text[] = "a_name_of_some_length + \"a string of some length\" + \"with\\n escapes in it\" "
                               "\"\"\"three\"\"\" 1 2.5 'c' another_name_that_is_longer_than_any_of_the_names_that_a_lexer_keeps_for_later a";
    const char* const expected[] = { "a_name_of_some_length", "+", "a string of some length", "+", "with\n escapes in it", "three", "1",
                                     "2.5", "99", "another_name_that_is_longer_than_any_of_the_names_that_a_lexer_keeps_for_later", "a" };
    const language like;
    for (allocation_failure failure; failure.next();) {
        int got = 0;
        char values[11][100];
        const int status = status_with(failure, [&] {
            language l(like);
            token t;
            if (const int r = l.load_string(text, nullptr, false))
                return r;
            while (l.get_token(&t) != base_lexer::TK_EOF) {
                if (t.get_var().is_string())
                    std::strcpy(values[got++], t.get_text().c_str());
                else // without an allocation of our own
                    std::snprintf(values[got++], sizeof values[0], "%g", t.get_double());
            }
            return 0;
        });
        ASSERT_EQ(status, failure.happened() ? err::out_of_memory : 0) << failure.nth();
        for (int i = 0; i < got; ++i)
            ASSERT_STREQ(values[i], expected[i]);
        ASSERT_EQ(got == 11, !failure.happened());
    }
}

TEST(values_memory, a_lexer_keeps_its_symbols_and_its_text)
{
    for (allocation_failure failure; failure.next();) {
        language l;
        l.load_string("a + b");
        l.get_token(nullptr);
        std::unique_ptr<language> copy;
        const int status = status_with(failure, [&] {
            copy.reset(new (std::nothrow) language(l));
            if (!copy)
                return err::out_of_memory;
            l.set_symbol("another_symbol_of_some_length", 30);
            copy->set_symbol("b", 31);
            language assigned;
            assigned = l;
            l.set_cached(5);
            return 0;
        });
        ASSERT_TRUE(status == 0 || status == err::out_of_memory);
        ASSERT_TRUE(status == 0 || failure.happened());
        token t;
        ASSERT_EQ(l.get_token(&t), 20);
        ASSERT_EQ(l.get_token(&t), 6);
        ASSERT_STREQ(t.get_text().c_str(), "b");
        if (!copy)
            continue;
        // The copy of a text that found no memory is empty; the copy of a lexer goes on.
        const int code = copy->get_token(&t);
        ASSERT_TRUE(code == 20 || (failure.happened() && code == 11)) << code;
    }
}

// ---- what no operation makes -----------------------------------------------------

base_var with_tag(unsigned char tag)
{
    base_var v(5);
    // The flags stand behind the number and the text.
    reinterpret_cast<unsigned char*>(&v)[sizeof(std::uint64_t) + sizeof(void*)] = tag;
    return v;
}

TEST(values_memory, an_unknown_tag_is_an_internal_error)
{
    const base_var odd = with_tag(77);
    ASSERT_EQ(odd.get_type(), 77);
    EXPECT_STREQ(odd.to_string().c_str(), gbk::bad_type_flag);
    EXPECT_EQ(odd.to_int(), static_cast<int>(0x80000001));
    EXPECT_EQ(odd.to_double(), -2147483647.0);
    for (const base_var::type to : { base_var::string, base_var::integer, base_var::real }) {
        base_var v(odd);
        EXPECT_FALSE(v.cast(to));
        EXPECT_EQ(v.get_err(), static_cast<int>(0x80000001));
    }
    base_var v(odd);
    v += 1;
    EXPECT_EQ(v.get_err(), static_cast<int>(0x80000001));
    EXPECT_EQ((base_var(1) + odd).get_err(), static_cast<int>(0x80000001));
    EXPECT_EQ((odd + odd).get_type(), 77);
    EXPECT_EQ(base_var::cmp(odd, odd).get_type(), 77);
}

} // namespace
