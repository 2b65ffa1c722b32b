// Threads of a program that has used up what threads are told apart by.
#include "platform.h"

#include <stdkro/thread.h>
#include <stdkro/xcpt.h>

#include <gtest/gtest.h>

#include <cerrno>

#include <pthread.h>

namespace {

bool no_keys = false;

} // namespace

extern "C" {

int __real_pthread_key_create(pthread_key_t* key, void (*destroy)(void*));
int __wrap_pthread_key_create(pthread_key_t* key, void (*destroy)(void*))
{
    return no_keys ? EAGAIN : __real_pthread_key_create(key, destroy);
}
}

TEST(without_thread_keys, no_thread_starts)
{
    no_keys = true;
    thread t;
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(t.start(nullptr, [](thread*, void*, void*) {}, nullptr), err::failed);
        EXPECT_EQ(sys_last_error(), EAGAIN);
        EXPECT_FALSE(t.is_valid());
        EXPECT_FALSE(t.is_activated());
    }
    no_keys = false;
    EXPECT_EQ(t.wait_done(), 0);
}
