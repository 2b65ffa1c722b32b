// Rows that show how the cost grows: one text of 16 times the size beside 16 texts of one time.
#ifndef STDKRO_BENCH_GROWTH_H
#define STDKRO_BENCH_GROWTH_H

#include <benchmark/benchmark.h>

#include <string>

struct growth_shape {
    const char* name;
    std::string (*make)(int size);
};

inline std::string repeated(const char* piece, int times)
{
    std::string made;
    for (int i = 0; i < times; ++i)
        made += piece;
    return made;
}

/// Registers "SUBJECT/16 times SHAPE/ours" and ".../single" for each shape; `verb`, such as
/// ", read", stands behind its name. `run` does the work on a text that many times in a round.
template <int COUNT>
void register_growth(const std::string& subject, const growth_shape (&shapes)[COUNT], const std::string& verb,
                     void (*run)(benchmark::State& state, const std::string& text, int times))
{
    for (const growth_shape& s : shapes) {
        const std::string name = subject + "/16 times " + s.name + verb;
        benchmark::RegisterBenchmark((name + "/ours").c_str(),
                                     [&s, run](benchmark::State& state) { run(state, s.make(1600), 1); });
        benchmark::RegisterBenchmark((name + "/single").c_str(),
                                     [&s, run](benchmark::State& state) { run(state, s.make(100), 16); });
    }
}

#endif
