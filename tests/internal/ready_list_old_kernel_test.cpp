// The readiness lists on a kernel whose waits know milliseconds only.
#include "../net_fixture.h"
#include "platform.h"
#include "ready_list.h"

#include <cerrno>
#include <chrono>

extern "C" int __wrap_epoll_pwait2(int, void*, int, const void*, const void*)
{
    errno = ENOSYS;
    return -1;
}

TEST(ready_list_of_an_old_kernel, rounds_its_time_limit_up)
{
    Socket s;
    s.create(2, 2, 0);
    const int list = ep_create(2);
    const int fd = static_cast<int>(s.get_socket());
    ASSERT_EQ(0, ep_ctl(list, EP_ADD, fd, { EP_IN, 5, nullptr }));
    ep_record result = {};
    for (const timeval limit : { timeval { 0, 0 }, timeval { 0, 300 }, timeval { 0, 20001 }, timeval { 0, 120000 } }) {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(0, ep_wait(list, &result, 1, &limit));
        const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(waited.count(), static_cast<double>(limit.tv_usec) / 1e6);
        EXPECT_LT(waited.count(), 20);
    }
    EXPECT_EQ(0, ep_ctl(list, EP_MODIFY, fd, { EP_OUT, 6, nullptr }));
    EXPECT_EQ(1, ep_wait(list, &result, 1, nullptr));
    EXPECT_EQ(6, result.index);
    ep_close(list);
}
