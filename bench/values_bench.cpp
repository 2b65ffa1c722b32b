// Values beside std::variant, containers beside the standard library's.
#include <stdkro/base_var.h>
#include <stdkro/cycque.h>
#include <stdkro/hmap.h>

#include <benchmark/benchmark.h>

#include <deque>
#include <random>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

namespace {

constexpr int item_count = 1000;

// ---- values ------------------------------------------------------------------

// What a program without a value type of its own would write.
using variant = std::variant<std::monostate, std::string, int, double>;

struct adder {
    variant operator()(int a, int b) const { return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b)); }
    variant operator()(double a, double b) const { return a + b; }
    variant operator()(int a, double b) const { return a + b; }
    variant operator()(double a, int b) const { return a + b; }
    variant operator()(const std::string& a, const std::string& b) const { return a + b; }
    template <class A, class B> variant operator()(const A&, const B&) const { return variant(); }
};
variant add(const variant& a, const variant& b) { return std::visit(adder(), a, b); }

std::string text_of(int i) { return "a text of some length, " + std::to_string(i); }

// Kinds of operands: 'i' ints, 'd' doubles, 's' strings, 'm' one after another.
template <class VALUE> std::vector<VALUE> operands(char kind, int shift)
{
    std::vector<VALUE> all;
    for (int i = 0; i < item_count; ++i) {
        const char k = kind == 'm' ? "ids"[i % 3] : kind;
        if (k == 'i')
            all.push_back(VALUE(i * 3 + shift));
        else if (k == 'd')
            all.push_back(VALUE(i * 0.5 + shift));
        else
            all.push_back(VALUE(text_of(i + shift).c_str()));
    }
    return all;
}

std::string show(const base_var& v) { return v.to_string().c_str(); }
std::string show(const variant& v)
{
    if (const int* i = std::get_if<int>(&v))
        return std::to_string(*i);
    if (const double* d = std::get_if<double>(&v))
        return show(base_var(*d));
    return std::get<std::string>(v);
}

bool same_sums(char kind)
{
    const auto a = operands<base_var>(kind, 1);
    const auto b = operands<base_var>(kind, 2);
    const auto c = operands<variant>(kind, 1);
    const auto d = operands<variant>(kind, 2);
    for (unsigned i = 0; i < item_count; ++i) {
        if (show(a[i] + b[i]) != show(add(c[i], d[i])))
            return false;
    }
    return true;
}

void add_ours(benchmark::State& state, char kind)
{
    const auto a = operands<base_var>(kind, 1);
    const auto b = operands<base_var>(kind, 2);
    std::vector<base_var> sums(item_count);
    if (!same_sums(kind))
        state.SkipWithError("the sums differ");
    for (auto _ : state) {
        for (unsigned i = 0; i < item_count; ++i)
            sums[i] = a[i] + b[i];
        benchmark::ClobberMemory();
    }
}
void add_variant(benchmark::State& state, char kind)
{
    const auto a = operands<variant>(kind, 1);
    const auto b = operands<variant>(kind, 2);
    std::vector<variant> sums(item_count);
    for (auto _ : state) {
        for (unsigned i = 0; i < item_count; ++i)
            sums[i] = add(a[i], b[i]);
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(add_ours, ints, 'i')->Name("base_var/add/ours");
BENCHMARK_CAPTURE(add_variant, ints, 'i')->Name("base_var/add/variant");
BENCHMARK_CAPTURE(add_ours, doubles, 'd')->Name("base_var/add doubles/ours");
BENCHMARK_CAPTURE(add_variant, doubles, 'd')->Name("base_var/add doubles/variant");
BENCHMARK_CAPTURE(add_ours, texts, 's')->Name("base_var/concatenation/ours");
BENCHMARK_CAPTURE(add_variant, texts, 's')->Name("base_var/concatenation/variant");

// Copies as a stack or a table of variables makes them: construct, then destroy.
template <class VALUE, char kind> void copy(benchmark::State& state)
{
    const auto source = operands<VALUE>(kind, 1);
    for (auto _ : state) {
        for (const VALUE& v : source) {
            VALUE c(v);
            benchmark::DoNotOptimize(c);
        }
    }
}
BENCHMARK_TEMPLATE(copy, base_var, 's')->Name("base_var/copy/ours");
BENCHMARK_TEMPLATE(copy, variant, 's')->Name("base_var/copy/variant");
BENCHMARK_TEMPLATE(copy, base_var, 'm')->Name("base_var/copy mixed/ours");
BENCHMARK_TEMPLATE(copy, variant, 'm')->Name("base_var/copy mixed/variant");

// ---- maps --------------------------------------------------------------------

std::vector<std::string> names(unsigned count)
{
    std::mt19937 random(1);
    std::vector<std::string> all;
    for (unsigned i = 0; i < count; ++i) {
        std::string name;
        for (unsigned n = 3 + static_cast<unsigned>(random() % 12); n > 0; --n)
            name += static_cast<char>('a' + random() % 26);
        all.push_back(name + std::to_string(i));
    }
    return all;
}

template <class KEY> std::vector<KEY> keys_of(const std::vector<std::string>& all)
{
    std::vector<KEY> keys;
    for (const std::string& name : all)
        keys.push_back(KEY(name.c_str()));
    return keys;
}

// In another order than they were added in, as look-ups are.
template <class KEY> std::vector<KEY> shuffled(std::vector<KEY> keys)
{
    std::mt19937 random(2);
    for (std::size_t i = keys.size(); i > 1; --i)
        std::swap(keys[i - 1], keys[random() % i]);
    return keys;
}

using our_map = hmap<share_str, int>;
using their_map = std::unordered_map<std::string, int>;

void put(our_map& m, const share_str& key, int v) { m.set(key, v); }
void put(their_map& m, const std::string& key, int v) { m[key] = v; }
int get(const our_map& m, const share_str& key)
{
    const int* const v = m.find(key);
    return v ? *v : -1;
}
int get(const their_map& m, const std::string& key)
{
    const auto v = m.find(key);
    return v != m.end() ? v->second : -1;
}

template <class MAP, class KEY> void fill(MAP& m, const std::vector<KEY>& keys)
{
    for (unsigned i = 0; i < keys.size(); ++i)
        put(m, keys[i], static_cast<int>(i));
}

template <class MAP, class KEY> void hits(benchmark::State& state)
{
    const auto all = names(static_cast<unsigned>(state.range(0)));
    MAP m;
    fill(m, keys_of<KEY>(all));
    const auto asked = shuffled(keys_of<KEY>(all));
    our_map check;
    fill(check, keys_of<share_str>(all));
    for (const KEY& key : asked) {
        if (get(m, key) != get(check, share_str(key.c_str())))
            state.SkipWithError("the maps differ");
    }
    for (auto _ : state) {
        int sum = 0;
        for (const KEY& key : asked)
            sum += get(m, key);
        benchmark::DoNotOptimize(sum);
    }
}
template <class MAP, class KEY> void inserts(benchmark::State& state)
{
    const auto keys = keys_of<KEY>(names(static_cast<unsigned>(state.range(0))));
    for (auto _ : state) {
        MAP m;
        fill(m, keys);
        benchmark::DoNotOptimize(m);
    }
}
BENCHMARK(hits<our_map, share_str>)->Name("hmap/hit/ours")->Arg(1000);
BENCHMARK(hits<their_map, std::string>)->Name("hmap/hit/unordered_map")->Arg(1000);
BENCHMARK(hits<our_map, share_str>)->Name("hmap/hit many/ours")->Arg(100000);
BENCHMARK(hits<their_map, std::string>)->Name("hmap/hit many/unordered_map")->Arg(100000);
BENCHMARK(inserts<our_map, share_str>)->Name("hmap/insert/ours")->Arg(1000);
BENCHMARK(inserts<their_map, std::string>)->Name("hmap/insert/unordered_map")->Arg(1000);
BENCHMARK(inserts<our_map, share_str>)->Name("hmap/insert few/ours")->Arg(8);
BENCHMARK(inserts<their_map, std::string>)->Name("hmap/insert few/unordered_map")->Arg(8);

// ---- queues ------------------------------------------------------------------

template <class QUEUE> long long work(QUEUE& q)
{
    long long sum = 0;
    for (int i = 0; i < 100; ++i)
        q.push_back(i);
    for (int i = 0; i < item_count; ++i) {
        q.push_back(i);
        sum += q.front() + q[50];
        q.pop_front();
    }
    while (q.front() != item_count - 1) {
        sum += q.back();
        q.pop_front();
    }
    q.pop_back();
    return sum;
}
template <class QUEUE> void queue(benchmark::State& state)
{
    cycque<int> ours;
    std::deque<int> theirs;
    if (work(ours) != work(theirs))
        state.SkipWithError("the queues differ");
    QUEUE q;
    for (auto _ : state)
        benchmark::DoNotOptimize(work(q));
}
BENCHMARK(queue<cycque<int>>)->Name("cycque/queue/ours");
BENCHMARK(queue<std::deque<int>>)->Name("cycque/queue/deque");

// The arguments of a call: a fresh queue of a few values, filled from the front.
template <class QUEUE> void arguments(benchmark::State& state)
{
    for (auto _ : state) {
        QUEUE q;
        q.push_front(3);
        q.push_front(2);
        q.push_front(1);
        benchmark::DoNotOptimize(q);
    }
}
BENCHMARK(arguments<cycque<base_var>>)->Name("cycque/arguments/ours");
BENCHMARK(arguments<std::deque<base_var>>)->Name("cycque/arguments/deque");

} // namespace
