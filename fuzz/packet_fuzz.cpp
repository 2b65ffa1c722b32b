// Operations of a packet against a model of its rules. Each byte pair of the input is one: what
// to do, and a length.
#include "../tests/packet_model.h"
#include "require.h"

#include <cstdint>
#include <numeric>

namespace {

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static char bytes[0x10100];
    std::iota(bytes, bytes + sizeof bytes, '\0');
    packet p;
    packet_model model;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        // The bits above the operation's make some lengths large.
        const unsigned n = static_cast<unsigned>(data[i + 1]) << (data[i] / 16 % 9);
        CHECK(model.step(p, data[i] % 16, n, bytes + i % 256));
        CHECK(model.is_like(p));
    }
    // Beyond 32 bits there is nothing to be had, and nothing changes.
    CHECK(p.count() == 0 || p.reserved(0xFFFFFFFFu) == 0);
    CHECK(model.is_like(p));
    return 0;
}
