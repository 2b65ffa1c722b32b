// Child processes against posix_spawn, libuv and popen.
#include <stdkro/process.h>

#include <benchmark/benchmark.h>
#include <uv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const char program[] = "/bin/true";

// Very short rounds, and many of them: on a busy machine some take ten times as long
// as others, and only a median of many tells the sides apart.
void often(benchmark::internal::Benchmark* b) { b->UseRealTime()->Iterations(3)->Repetitions(101); }

// Makes this process about so many MiB large, as far as a child is concerned: what lies
// beyond is none of a fork's business. Giving memory back and taking it again between the
// rounds would cost both sides more than what is measured.
void grow_to(long mib)
{
    constexpr std::size_t all = std::size_t(256) << 20;
    static char* const ballast = [] {
        char* const made = static_cast<char*>(
            mmap(nullptr, all, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (made == MAP_FAILED)
            std::abort();
        std::memset(made, 'x', all);
        return made;
    }();
    const std::size_t bytes = static_cast<std::size_t>(mib) << 20;
    if (madvise(ballast, all, MADV_DOFORK) != 0
        || (bytes < all && madvise(ballast + bytes, all - bytes, MADV_DONTFORK) != 0))
        std::abort();
}

void start_ours(benchmark::State& state)
{
    grow_to(state.range(0));
    for (auto _ : state) {
        process p;
        if (!p.start(program, nullptr, "true") || p.wait_done() != 0)
            state.SkipWithError("failed");
    }
}

void start_posix_spawn(benchmark::State& state)
{
    grow_to(state.range(0));
    char name[] = "true";
    char* arguments[] = { name, nullptr };
    for (auto _ : state) {
        pid_t id;
        int status = -1;
        if (posix_spawn(&id, program, nullptr, nullptr, arguments, environ) != 0 || waitpid(id, &status, 0) != id
            || status != 0)
            state.SkipWithError("failed");
    }
}

void start_libuv(benchmark::State& state)
{
    grow_to(state.range(0));
    char name[] = "true";
    char* arguments[] = { name, nullptr };
    uv_loop_t* loop = uv_default_loop();
    for (auto _ : state) {
        uv_process_t child;
        uv_process_options_t options {};
        options.file = program;
        options.args = arguments;
        options.exit_cb = [](uv_process_t* p, int64_t status, int) {
            if (status != 0)
                std::abort();
            uv_close(reinterpret_cast<uv_handle_t*>(p), nullptr);
        };
        if (uv_spawn(loop, &child, &options) != 0)
            state.SkipWithError("failed");
        uv_run(loop, UV_RUN_DEFAULT);
    }
}

// /bin/true from a process of this size.
const bool registered = [] {
    const struct { const char* who; void (*run)(benchmark::State&); } sides[]
        = { { "ours", start_ours }, { "posix_spawn", start_posix_spawn }, { "libuv", start_libuv } };
    for (long mib : { 16L, 256L }) {
        for (const auto& side : sides) {
            const std::string name = "process/true from " + std::to_string(mib) + " MiB/" + side.who;
            benchmark::RegisterBenchmark(name.c_str(), side.run)->Args({ mib })->ArgName("MiB")->Apply(often);
        }
    }
    return true;
}();

// ---- 16 MiB from a child ---------------------------------------------------

constexpr long amount = 16L << 20;

// A file of that size, for cat to write.
const std::string& file()
{
    static const std::string path = [] {
        const std::string made = "/tmp/stdkro-process-bench-" + std::to_string(getpid());
        std::FILE* f = std::fopen(made.c_str(), "wb");
        const std::string text(amount, 'x');
        if (!f || std::fwrite(text.data(), 1, text.size(), f) != text.size() || std::fclose(f) != 0)
            std::abort();
        std::atexit([] { std::remove(file().c_str()); });
        return made;
    }();
    return path;
}

// In pieces as a program takes them that looks at what it reads.
long read_all(std::FILE* f)
{
    static char block[1 << 10];
    long got = 0;
    for (std::size_t n; (n = std::fread(block, 1, sizeof block, f)) > 0;)
        got += static_cast<long>(n);
    return got;
}

void read_ours(benchmark::State& state)
{
    const std::string line = "cat " + file();
    for (auto _ : state) {
        process p;
        std::FILE* f = p.start("/bin/cat", nullptr, line.c_str(), "rb", false);
        if (!f || read_all(f) != amount)
            state.SkipWithError("failed");
        std::fclose(f);
        p.wait_done();
    }
}
BENCHMARK(read_ours)->Name("process/read 16 MiB/ours")->UseRealTime()->Iterations(5)->Repetitions(41);

void read_popen(benchmark::State& state)
{
    const std::string line = "exec /bin/cat " + file();
    for (auto _ : state) {
        std::FILE* f = popen(line.c_str(), "r");
        if (!f || read_all(f) != amount)
            state.SkipWithError("failed");
        pclose(f);
    }
}
BENCHMARK(read_popen)->Name("process/read 16 MiB/popen")->UseRealTime()->Iterations(5)->Repetitions(41);

} // namespace
