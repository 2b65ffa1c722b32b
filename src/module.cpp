// A library loaded while the program runs.
#include <stdkro/process.h>

#include "platform.h"

#include <stdkro/xcpt.h>

module::~module() { unload(); }

// KEEP: the old library is not unloaded. Programs keep functions of it.
int module::load(const char* name)
{
    void* loaded = name && *name ? sys_module_load(name) : nullptr;
    if (!loaded)
        return err::file_system;
    handle_ = loaded;
    return 0;
}

int module::unload()
{
    if (handle_)
        sys_module_unload(handle_);
    handle_ = nullptr;
    return 0;
}

void* module::get_func(const char* name) const { return handle_ && name ? sys_module_find(handle_, name) : nullptr; }

const char* module::get_load_error() { return sys_module_error(); }
