#include "ini_peer_inih.h"

#include <ini.h>

#include <cstring>

unsigned long inih_events(const char* text)
{
    unsigned long bytes = 0;
    const auto count = [](void* sum, const char*, const char* name, const char* value) {
        *static_cast<unsigned long*>(sum) += std::strlen(name) + std::strlen(value);
        return 1;
    };
    return ini_parse_string(text, count, &bytes) == 0 ? bytes : 0;
}
