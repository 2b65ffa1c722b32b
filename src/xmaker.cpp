// Compile and run in one call.
#include <stdkro/xpp.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <new>

namespace xpp {

namespace {

// The machine writes to another stream while this lives.
class output_to {
public:
    output_to(xmachine& m, std::ostream& os) : machine_(m), before_(m.set_ostream(&os)) {}
    ~output_to() { machine_.set_ostream(before_); }
    output_to(const output_to&) = delete;
    output_to& operator=(const output_to&) = delete;

private:
    xmachine& machine_;
    std::ostream* before_;
};

// A file that must not be read is there too: it may be one that can be written.
bool is_there(const char* path)
{
    std::FILE* const file = std::fopen(path, "rb");
    if (!file)
        return errno == EACCES;
    std::fclose(file);
    return true;
}

} // namespace

int xmaker::compile(const char* path)
{
    machine_.clear();
    const int r = compiler_.compile(machine_, path);
    machine_.set_src_fname(path);
    return r;
}

int xmaker::make(const char* path)
{
    const int r = compile(path);
    return r < 0 ? r : machine_.run();
}

int xmaker::make(const char* path, std::ostream& os)
{
    const int r = compile(path);
    if (r < 0)
        return r;
    const output_to here(machine_, os);
    return machine_.run();
}

int xmaker::make(const char* path, const char* out_path, bool keep_existing)
{
    const int r = compile(path);
    if (r < 0)
        return r;
    if (!out_path || !*out_path)
        return err::invalid_parameter;
    try {
        if (keep_existing && is_there(out_path))
            return err::overrun;
        std::fstream file(out_path, std::ios::in | std::ios::out | std::ios::trunc);
        if (!file)
            return err::file_system;
        const output_to here(machine_, file);
        const int ran = machine_.run();
        file.close();
        return ran >= 0 && !file ? err::file_system : ran;
    } catch (const std::bad_alloc&) {
        return err::out_of_memory;
    }
}

} // namespace xpp
