#include <stdkro/xcpt.h>

#include <cstdio>

int main()
{
    try {
        throw xrterror(err::syntax, "line %d", 7);
    } catch (const xcpt& e) {
        std::printf("%s: %s\n", get_err_info(e.get_err()), e.what());
    }
    return 0;
}
