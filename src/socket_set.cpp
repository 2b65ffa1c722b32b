// Sockets to wait for: two parallel arrays, the handles in the form that a wait
// takes and the objects they belong to.
#include <stdkro/socket.h>

#include "platform.h"

#include <stdkro/xcpt.h>

#include <algorithm>

sockset::sockset() : sockets_() { set_.fd_count = 0; }

int sockset::find(unsigned handle) const
{
    for (unsigned i = 0; i < count(); ++i)
        if (set_.fd_array[i] == handle)
            return static_cast<int>(i);
    return -1;
}

int sockset::find(const Socket& socket) const
{
    for (unsigned i = 0; i < count(); ++i)
        if (sockets_[i] == &socket)
            return static_cast<int>(i);
    return -1;
}

void sockset::remove_at(unsigned i)
{
    std::copy(set_.fd_array + i + 1, set_.fd_array + count(), set_.fd_array + i);
    std::copy(sockets_ + i + 1, sockets_ + count(), sockets_ + i);
    --set_.fd_count;
}

int sockset::add(Socket& socket)
{
    if (count() >= max_count)
        return err::overflow;
    set_.fd_array[count()] = socket.get_socket();
    sockets_[count()] = &socket;
    ++set_.fd_count;
    return err::ok;
}

int sockset::remove(unsigned handle)
{
    const int i = find(handle);
    if (i < 0)
        return err::not_exist;
    remove_at(static_cast<unsigned>(i));
    return err::ok;
}

int sockset::remove(const Socket& socket)
{
    const int i = find(socket);
    if (i < 0)
        return err::not_exist;
    remove_at(static_cast<unsigned>(i));
    return err::ok;
}

bool sockset::test(const Socket& socket) const { return test(socket.get_socket()); }

bool sockset::test(unsigned handle) const { return find(handle) >= 0; }

int sockset::correct()
{
    unsigned kept = 0;
    const unsigned before = count();
    for (unsigned i = 0; i < before; ++i) {
        if (!sys_socket_is_open(set_.fd_array[i]))
            continue;
        set_.fd_array[kept] = set_.fd_array[i];
        sockets_[kept++] = sockets_[i];
    }
    set_.fd_count = kept;
    return static_cast<int>(before - kept);
}

Socket* sockset::get_socket(int& cursor) const
{
    if (cursor < 0 || static_cast<unsigned>(cursor) >= count())
        return nullptr;
    return sockets_[cursor++];
}

Socket* sockset::get_socket(const sock_fd_set& result, int& cursor) const
{
    if (cursor < 0 || static_cast<unsigned>(cursor) >= std::min<unsigned>(result.fd_count, max_count))
        return nullptr;
    const int i = find(result.fd_array[cursor++]);
    return i < 0 ? nullptr : sockets_[i];
}

void sockset::set_result(const sock_fd_set& result)
{
    const sockset before = *this;
    const unsigned n = std::min<unsigned>(result.fd_count, max_count);
    for (unsigned i = 0; i < n; ++i) {
        const int found = before.find(result.fd_array[i]);
        set_.fd_array[i] = result.fd_array[i];
        sockets_[i] = found < 0 ? nullptr : before.sockets_[found];
    }
    set_.fd_count = n;
}
