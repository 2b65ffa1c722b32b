// Shared memory.
#include <stdkro/process.h>

#include "platform.h"

#include <cstdint>
#include <stdkro/xcpt.h>

namespace {

constexpr unsigned read_and_write = sharemem::map_read | sharemem::map_write;

bool is_access(unsigned access)
{
    return access == sharemem::map_read || access == sharemem::map_write || access == read_and_write
        || access == sharemem::map_all_access;
}

} // namespace

void* sharemem::no_file() { return reinterpret_cast<void*>(~static_cast<std::uintptr_t>(0)); }

sharemem::sharemem(void* file) : file_(file) {}

sharemem::~sharemem() { close(); }

void* sharemem::file_of(std::FILE* stream) { return sys_file_of(stream); }

int sharemem::create(const char* name, unsigned size, unsigned protection)
{
    if (mapping_)
        return err::failed;
    if (size == 0 || (protection != page_readonly && protection != page_readwrite))
        return err::file_system;
    mapping_ = sys_memory_create(file_, name, size, protection);
    return mapping_ ? 0 : err::file_system;
}

int sharemem::open(const char* name, unsigned access)
{
    if (mapping_)
        return err::failed;
    if (!name || !*name || !is_access(access))
        return err::file_system;
    mapping_ = sys_memory_open(name, access);
    return mapping_ ? 0 : err::file_system;
}

void sharemem::close()
{
    sys_memory_close(mapping_);
    mapping_ = nullptr;
}

void* sharemem::attach(unsigned offset, unsigned size, unsigned access)
{
    constexpr unsigned view_alignment = 65536;
    if (!mapping_ || !is_access(access) || offset % view_alignment != 0)
        return nullptr;
    return sys_memory_map(mapping_, offset, size, access);
}

bool sharemem::detach(void* address) { return address && sys_memory_unmap(address) == 0; }
