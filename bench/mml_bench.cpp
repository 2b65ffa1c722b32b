// Command records against a splitter as one would write it for a single program,
// with std::string; and one large record against many small ones.
#include <stdkro/mml_doc.h>

#include "growth.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

namespace {

using std::string;

const char* const line
    = "CELL.modify:id=1024,name=\"north gate 3\",power=43.5,state=\"in service\",note=\"first\\tsecond \\\"third\\\"\",";
const char* const line_end = "azimuth=120,tilt=4,owner=\"\",site=77;";

string make_line(int pairs)
{
    string made = line;
    for (int i = 0; i < pairs; ++i)
        made += "extra" + std::to_string(i) + "=\"value of pair " + std::to_string(i) + "\",";
    return made + line_end;
}

struct record {
    string interface_name, method;
    std::vector<std::pair<string, string>> pairs;
};

bool split(const char* p, record& to)
{
    const auto word = [&p] {
        const char* const begin = p;
        while (std::isalnum(static_cast<unsigned char>(*p)))
            ++p;
        return string(begin, p);
    };
    to.interface_name = word();
    if (*p++ != '.')
        return false;
    to.method = word();
    if (*p++ != ':')
        return false;
    for (;;) {
        string name = word();
        if (*p++ != '=')
            return false;
        string value;
        if (*p == '"') {
            for (++p; *p != '"'; ++p) {
                if (*p == '\0')
                    return false;
                if (*p == '\\') {
                    ++p;
                    value += *p == 'n' ? '\n' : *p == 'r' ? '\r' : *p == 't' ? '\t' : *p;
                } else {
                    value += *p;
                }
            }
            ++p;
        } else {
            while (std::isdigit(static_cast<unsigned char>(*p)) || *p == '.')
                value += *p++;
        }
        to.pairs.emplace_back(std::move(name), std::move(value));
        if (*p == ';')
            return true;
        if (*p++ != ',')
            return false;
    }
}

string join(const record& from)
{
    string out = from.interface_name + "." + from.method + ":";
    for (std::size_t i = 0; i < from.pairs.size(); ++i) {
        out += from.pairs[i].first;
        out += "=\"";
        for (const char c : from.pairs[i].second) {
            switch (c) {
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            default: out += c;
            }
        }
        out += i + 1 < from.pairs.size() ? "\"," : "\";";
    }
    return out;
}

void check(const string& text)
{
    mml_doc doc;
    record peer;
    bool same = doc.read(text.c_str()) == 0 && split(text.c_str(), peer) && doc.count() == peer.pairs.size();
    for (unsigned i = 0; same && i < doc.count(); ++i)
        same = doc[i].get_name() == peer.pairs[i].first.c_str() && doc[i].get_value() == peer.pairs[i].second.c_str();
    share_str out;
    doc.write(out);
    if (same && join(peer) == out.c_str())
        return;
    std::fprintf(stderr, "mml_bench: the splitter differs\n");
    std::exit(1);
}

void read_ours(benchmark::State& state, int pairs)
{
    const string text = make_line(pairs);
    check(text);
    for (auto _ : state) {
        mml_doc doc;
        benchmark::DoNotOptimize(doc.read(text.c_str()));
    }
}

void read_splitter(benchmark::State& state, int pairs)
{
    const string text = make_line(pairs);
    for (auto _ : state) {
        record peer;
        benchmark::DoNotOptimize(split(text.c_str(), peer));
    }
}

void write_ours(benchmark::State& state, int pairs)
{
    mml_doc doc;
    doc.read(make_line(pairs).c_str());
    for (auto _ : state) {
        share_str out;
        doc.write(out);
        benchmark::DoNotOptimize(out.length());
    }
}

void write_splitter(benchmark::State& state, int pairs)
{
    record peer;
    split(make_line(pairs).c_str(), peer);
    for (auto _ : state)
        benchmark::DoNotOptimize(join(peer).size());
}

BENCHMARK_CAPTURE(read_ours, short, 0)->Name("mml/read a record/ours");
BENCHMARK_CAPTURE(read_splitter, short, 0)->Name("mml/read a record/splitter");
BENCHMARK_CAPTURE(read_ours, long, 1000)->Name("mml/read a long record/ours");
BENCHMARK_CAPTURE(read_splitter, long, 1000)->Name("mml/read a long record/splitter");
BENCHMARK_CAPTURE(write_ours, short, 0)->Name("mml/write a record/ours");
BENCHMARK_CAPTURE(write_splitter, short, 0)->Name("mml/write a record/splitter");
BENCHMARK_CAPTURE(write_ours, long, 1000)->Name("mml/write a long record/ours");
BENCHMARK_CAPTURE(write_splitter, long, 1000)->Name("mml/write a long record/splitter");

// ---- growth: one record of 16 times the size against 16 of one time ----------

// Freed memory stays with the program: what the kernel takes for giving pages anew would
// be counted against whoever runs after a large record was destroyed.
const bool allocator_settled = mallopt(M_TRIM_THRESHOLD, 1 << 30) && mallopt(M_MMAP_THRESHOLD, 1 << 30);

const growth_shape shapes[] = {
    { "many pairs", [](int size) {
          string made = "IF.get:";
          for (int i = 0; i < size * 10; ++i) { // numbers of one width: bytes are what grows
              const string number = std::to_string(100000 + i);
              made += "extra" + number + "=\"value of pair " + number + "\",";
          }
          return made + "a=1;";
      } },
    { "pairs of one name", [](int size) { return "IF.get:" + repeated("a=\"value\",", size * 10) + "a=1;"; } },
    { "one long value", [](int size) { return "IF.get:a=\"" + repeated("a value without escapes ", size * 20) + "\";"; } },
    { "one value of escapes", [](int size) { return "IF.get:a=\"" + repeated("\\t\\\"\\n", size * 50) + "\";"; } },
    { "one long name", [](int size) { return "IF.get:" + repeated("name", size * 100) + "=1;"; } },
};

void read_records(benchmark::State& state, const string& from, int count)
{
    for (auto _ : state)
        for (int i = 0; i < count; ++i) {
            mml_doc doc;
            if (doc.read(from.c_str()) != 0)
                state.SkipWithError("the record was not read");
            benchmark::DoNotOptimize(doc.count());
        }
}

void write_records(benchmark::State& state, const string& from, int count)
{
    mml_doc doc;
    doc.read(from.c_str());
    for (auto _ : state)
        for (int i = 0; i < count; ++i) {
            share_str out;
            doc.write(out);
            benchmark::DoNotOptimize(out.length());
        }
}

const bool growth_registered = [] {
    register_growth("mml", shapes, ", read", read_records);
    register_growth("mml", shapes, ", write", write_records);
    return true;
}();

} // namespace
