// Log lines against spdlog: formatting alone, a file with a flush for each line, and
// four sinks at once.
#include <stdkro/logger.h>
#include <stdkro/writer.h>

#include <benchmark/benchmark.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

namespace {

using std::string;

class null_writer : public writer {
public:
    void write(const char* text) override { benchmark::DoNotOptimize(text); }
    bool is_valid() const override { return true; }
};

const string& padding(std::size_t length)
{
    static string texts[3];
    string& text = texts[length < 100 ? 0 : length < 400 ? 1 : 2];
    if (text.empty())
        text = string(length - 40, 'x'); // what is written beside it has some 40 characters
    return text;
}

const logctx app = { "bench" };

void print_ours(int i, const string& text)
{
    logger::print(app, lv_hint, "request %d from %s took %d us\n", i, text.c_str(), 1234);
}

void print_spdlog(spdlog::logger& log, int i, const string& text)
{
    log.info("request {} from {} took {} us", i, text, 1234);
}

// Ours in place of the program's writer while it lives.
class our_logger {
public:
    explicit our_logger(writer* sink)
    {
        to_.set_writer(sink);
        before_ = logger::set_writer(&to_);
    }
    our_logger(const our_logger&) = delete;
    our_logger& operator=(const our_logger&) = delete;
    ~our_logger() { logger::set_writer(before_); }

private:
    log_writer to_;
    log_writer* before_;
};

std::shared_ptr<spdlog::logger> their_logger(std::vector<spdlog::sink_ptr> sinks)
{
    auto log = std::make_shared<spdlog::logger>("bench", sinks.begin(), sinks.end());
    log->set_pattern("[%n] hint: %v");
    log->flush_on(spdlog::level::info);
    return log;
}

void format_ours(benchmark::State& state, std::size_t length)
{
    null_writer sink;
    const our_logger ours(&sink);
    int i = 100000;
    for (auto _ : state)
        print_ours(i, padding(length));
}

void format_spdlog(benchmark::State& state, std::size_t length)
{
    const auto log = their_logger({ std::make_shared<spdlog::sinks::null_sink_mt>() });
    int i = 100000;
    for (auto _ : state)
        print_spdlog(*log, i, padding(length));
}

const string path = (std::filesystem::temp_directory_path() / "stdkro_logger_bench.txt").string();
const string other_path = path + ".other";

// The lines of a file without banners.
string lines_of(const string& name)
{
    std::ifstream in(name);
    string text, line;
    while (std::getline(in, line))
        if (line.compare(0, 6, "******") != 0)
            text += line + "\n";
    return text;
}

void check_files()
{
    {
        file_writer sink(path.c_str(), "w");
        const our_logger ours(&sink);
        for (int i = 0; i < 10; ++i)
            print_ours(i, padding(200));
    }
    {
        const auto log = their_logger({ std::make_shared<spdlog::sinks::basic_file_sink_mt>(other_path, true) });
        for (int i = 0; i < 10; ++i)
            print_spdlog(*log, i, padding(200));
    }
    if (lines_of(path) == lines_of(other_path) && !lines_of(path).empty())
        return;
    std::fprintf(stderr, "logger_bench: spdlog's file differs\n");
    std::exit(1);
}

void file_ours(benchmark::State& state)
{
    check_files();
    file_writer sink(path.c_str(), "w");
    const our_logger ours(&sink);
    int i = 100000;
    for (auto _ : state)
        print_ours(i, padding(200));
}

void file_spdlog(benchmark::State& state)
{
    const auto log = their_logger({ std::make_shared<spdlog::sinks::basic_file_sink_mt>(other_path, true) });
    int i = 100000;
    for (auto _ : state)
        print_spdlog(*log, i, padding(200));
}

// Four sinks that keep nothing: what is measured is how often a line is formatted and
// handed on.
class taking_sink : public spdlog::sinks::base_sink<std::mutex> {
protected:
    void sink_it_(const spdlog::details::log_msg& message) override
    {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        benchmark::DoNotOptimize(line.data());
    }
    void flush_() override {}
};

void four_ours(benchmark::State& state)
{
    mixed_writer sinks(0);
    for (int slot = 0; slot < 4; ++slot)
        sinks.open(1 << slot, new null_writer);
    const our_logger ours(&sinks);
    int i = 100000;
    for (auto _ : state)
        print_ours(i, padding(200));
}

void four_spdlog(benchmark::State& state)
{
    std::vector<spdlog::sink_ptr> sinks;
    for (int i = 0; i < 4; ++i)
        sinks.push_back(std::make_shared<taking_sink>());
    const auto log = their_logger(sinks);
    int i = 100000;
    for (auto _ : state)
        print_spdlog(*log, i, padding(200));
}

const bool registered = [] {
    for (const std::size_t length : { 50u, 200u, 800u }) {
        const string name = "logger/" + std::to_string(length) + " characters";
        benchmark::RegisterBenchmark((name + "/ours").c_str(),
                                     [length](benchmark::State& state) { format_ours(state, length); });
        benchmark::RegisterBenchmark((name + "/spdlog").c_str(),
                                     [length](benchmark::State& state) { format_spdlog(state, length); });
    }
    return true;
}();

BENCHMARK(file_ours)->Name("logger/file/ours");
BENCHMARK(file_spdlog)->Name("logger/file/spdlog");
BENCHMARK(four_ours)->Name("logger/four sinks/ours");
BENCHMARK(four_spdlog)->Name("logger/four sinks/spdlog");

} // namespace
