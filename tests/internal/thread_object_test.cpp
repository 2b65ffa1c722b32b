// Objects of threads that outlive what the runtime does at a thread's end.
#include "thread_object.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

struct counted {
    static int made, destroyed;
    int value = 0;
    counted() { ++made; }
    ~counted() { ++destroyed; }
};
int counted::made = 0;
int counted::destroyed = 0;

TEST(thread_object, is_one_for_each_thread_and_never_destroyed)
{
    counted& mine = thread_object<counted>();
    mine.value = 7;
    for (int i = 0; i < 20; ++i) {
        std::thread([&] {
            EXPECT_NE(&thread_object<counted>(), &mine);
            EXPECT_EQ(thread_object<counted>().value, 0);
            thread_object<counted>().value = 8;
            EXPECT_EQ(thread_object<counted>().value, 8);
        }).join();
        EXPECT_EQ(counted::made, 2 + i);
        EXPECT_EQ(counted::destroyed, 0);
    }
    EXPECT_EQ(&thread_object<counted>(), &mine);
    EXPECT_EQ(mine.value, 7);
}

} // namespace
