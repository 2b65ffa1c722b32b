// One object for each thread, which is never destroyed.
//
// Where the compiler's runtime emulates thread-local memory it frees that memory before
// it destroys the thread's objects, as on 32-bit Windows: a destructor would then work on
// what is no longer there. So these have none. What the object holds when its thread ends
// is lost; keep such objects empty.
#ifndef STDKRO_SRC_THREAD_OBJECT_H
#define STDKRO_SRC_THREAD_OBJECT_H

#include <new>

/// The calling thread's object of this type, made by its default constructor at the first
/// call. Throws what that throws.
template <class object> object& thread_object()
{
    alignas(object) static thread_local unsigned char memory[sizeof(object)];
    static thread_local object* made = nullptr;
    if (!made)
        made = new (memory) object();
    return *made;
}

#endif
