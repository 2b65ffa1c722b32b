// Runs a fuzz target over the files of a folder: its seeds, and every input that
// once broke it.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    unsigned replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::vector<char> input { std::istreambuf_iterator<char>(file), {} };
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()), input.size());
            ++replayed;
        }
    }
    std::printf("%u inputs replayed\n", replayed);
    return replayed == 0 ? 1 : 0;
}
