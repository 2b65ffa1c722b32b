// Takes the place of fcntl, which has one argument behind the command or none. Include this
// header in one file of a program; its NAME_test.wrap lists fcntl.
#ifndef STDKRO_TESTS_REPLACED_FCNTL_H
#define STDKRO_TESTS_REPLACED_FCNTL_H

#include <cstdarg>

/// The program's own: whether the call fails. The reason is in errno then.
bool fcntl_fails(int command, const void* argument);

extern "C" {

int __real_fcntl(int fd, int command, ...);
int __wrap_fcntl(int fd, int command, ...)
{
    va_list list;
    va_start(list, command);
    void* const argument = va_arg(list, void*);
    va_end(list);
    return fcntl_fails(command, argument) ? -1 : __real_fcntl(fd, command, argument);
}

} // extern "C"

#endif
