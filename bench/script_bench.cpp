// The script machine and compiler beside Lua, on the same programs, once with
// global and once with local variables on Lua's side.
#include <stdkro/xpp.h>

#include <benchmark/benchmark.h>
#include <lua.hpp>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

namespace {

[[noreturn]] void give_up(const std::string& what)
{
    std::fprintf(stderr, "script_bench: %s\n", what.c_str());
    std::exit(1);
}

/// One program in the three forms. Each defines `run`, which returns an int, or
/// writes a text that is compared.
struct program {
    const char* name;
    const char* ours;
    const char* globals;
    const char* locals;
};

const program programs[] = {
    { "loop",
      "$[proc run()]$[s = 0]$[for (i = 0; i < 60000; i += 1)]$[s += i]$[end]$[return s]$[end]",
      "function run() s = 0 i = 0 while i < 60000 do s = s + i i = i + 1 end return s end",
      "function run() local s = 0 for i = 0, 59999 do s = s + i end return s end" },
    { "nested",
      "$[proc run()]$[s = 0]$[for (i = 0; i < 300; i += 1)]$[for (j = 0; j < 200; j += 1)]"
      "$[s += (i * j + 3) % 7 - j / 5]$[end]$[end]$[return s]$[end]",
      "function run() s = 0 i = 0 while i < 300 do j = 0 while j < 200 do "
      "s = s + (i * j + 3) % 7 - j // 5 j = j + 1 end i = i + 1 end return s end",
      "function run() local s = 0 for i = 0, 299 do for j = 0, 199 do "
      "s = s + (i * j + 3) % 7 - j // 5 end end return s end" },
    { "fib",
      "$[proc fib(n)]$[if n < 2]$[return n]$[end]$[return fib(n - 1) + fib(n - 2)]$[end]"
      "$[proc run()]$[return fib(20)]$[end]",
      "function fib(n) if n < 2 then return n end return fib(n - 1) + fib(n - 2) end "
      "function run() return fib(20) end",
      "local function fib(n) if n < 2 then return n end return fib(n - 1) + fib(n - 2) end "
      "function run() return fib(20) end" },
    { "calls",
      "$[proc add(a, b)]$[return a + b]$[end]"
      "$[proc run()]$[s = 0]$[for (i = 0; i < 30000; i += 1)]$[s = add(s, i)]$[end]$[return s]$[end]",
      "function add(a, b) return a + b end "
      "function run() s = 0 i = 0 while i < 30000 do s = add(s, i) i = i + 1 end return s end",
      "local function add(a, b) return a + b end "
      "function run() local s = 0 for i = 0, 29999 do s = add(s, i) end return s end" },
    { "build",
      "$[proc run()]$[n = 0]$[for (i = 0; i < 500; i += 1)]$[t = \"\"]$[for (j = 0; j < 40; j += 1)]"
      "$[t += \"word \"]$[end]$[if t == \"x\"]$[n = 0]$[end]$[n += 1]$[end]$[return n]$[end]",
      "function run() n = 0 i = 0 while i < 500 do t = \"\" j = 0 while j < 40 do t = t .. \"word \" j = j + 1 end "
      "if t == \"x\" then n = 0 end n = n + 1 i = i + 1 end return n end",
      "function run() local n = 0 for i = 0, 499 do local t = \"\" for j = 0, 39 do t = t .. \"word \" end "
      "if t == \"x\" then n = 0 end n = n + 1 end return n end" },
    { "table",
      "$[proc run()]<table>\n$[name = \"row\"]$[for (i = 0; i < 10000; i += 1)]"
      "<tr><td>$[@i]</td><td>$[@name]</td><td>$[@(i * 3)]</td></tr>\n"
      "$[end]</table>\n$[return i]$[end]",
      "function run() out = {} out[#out + 1] = \"<table>\\n\" name = \"row\" i = 0 while i < 10000 do "
      "out[#out + 1] = \"<tr><td>\" .. i .. \"</td><td>\" .. name .. \"</td><td>\" .. i * 3 .. \"</td></tr>\\n\" "
      "i = i + 1 end out[#out + 1] = \"</table>\\n\" text = table.concat(out) return i end",
      "function run() local out = {} out[#out + 1] = \"<table>\\n\" local name = \"row\" for i = 0, 9999 do "
      "out[#out + 1] = \"<tr><td>\" .. i .. \"</td><td>\" .. name .. \"</td><td>\" .. i * 3 .. \"</td></tr>\\n\" "
      "end out[#out + 1] = \"</table>\\n\" text = table.concat(out) return 10000 end" },
};

/// A compiled script, and the stream it writes to.
class our_program {
public:
    explicit our_program(const char* source)
    {
        machine_.set_ostream(&out_);
        xpp::xlexer lexer('$', '[', ']');
        xpp::xcompiler compiler;
        if (lexer.load_string(source) < 0 || compiler.compile(machine_, &lexer) < 0 || machine_.run() < 0)
            give_up(compiler.get_last_error().what());
    }
    int run()
    {
        out_.str(std::string());
        base_var result;
        cycque<base_var> none;
        if (machine_.call("run", result, none) < 0)
            give_up(machine_.get_last_error().what());
        return result.get_int();
    }
    std::string text() const { return out_.str(); }

private:
    std::ostringstream out_;
    xpp::xmachine machine_;
};

class lua_program {
public:
    explicit lua_program(const char* source) : lua_(luaL_newstate())
    {
        luaL_openlibs(lua_);
        if (luaL_dostring(lua_, source) != LUA_OK)
            give_up(lua_tostring(lua_, -1));
    }
    ~lua_program() { lua_close(lua_); }
    lua_program(const lua_program&) = delete;
    lua_program& operator=(const lua_program&) = delete;
    int run()
    {
        lua_getglobal(lua_, "run");
        if (lua_pcall(lua_, 0, 1, 0) != LUA_OK)
            give_up(lua_tostring(lua_, -1));
        const int result = static_cast<int>(lua_tointeger(lua_, -1));
        lua_pop(lua_, 1);
        return result;
    }
    std::string text()
    {
        lua_getglobal(lua_, "text");
        const std::string t = lua_isstring(lua_, -1) ? lua_tostring(lua_, -1) : "";
        lua_pop(lua_, 1);
        return t;
    }

private:
    lua_State* lua_;
};

void check(const program& p)
{
    our_program ours(p.ours);
    const int result = ours.run();
    for (const char* source : { p.globals, p.locals }) {
        lua_program theirs(source);
        if (theirs.run() != result || theirs.text() != ours.text())
            give_up(std::string(p.name) + ": the results differ");
    }
}

template <class PROGRAM>
void run(benchmark::State& state, const char* source)
{
    PROGRAM p(source);
    for (auto _ : state)
        benchmark::DoNotOptimize(p.run());
}

/// `count` procedures, each with a loop, conditions and calls.
std::string our_source(int count)
{
    std::ostringstream s;
    for (int i = 0; i < count; ++i) {
        s << "$[proc f" << i << "(first, second)]$[total = 0]$[for (i = 0; i < first; i += 1)]"
          << "$[if i % 2 == 0]$[total += i * second]$[elif i > 10 && second < 5]$[total -= 1]"
          << "$[else]$[total = g(total, \"text\", i + 1.5)]$[end]$[end]$[return total + " << i << "]$[end]\n";
    }
    return s.str();
}

std::string lua_source(int count)
{
    std::ostringstream s;
    for (int i = 0; i < count; ++i) {
        s << "function f" << i << "(first, second) total = 0 i = 0 while i < first do "
          << "if i % 2 == 0 then total = total + i * second elseif i > 10 and second < 5 then total = total - 1 "
          << "else total = g(total, \"text\", i + 1.5) end i = i + 1 end return total + " << i << " end\n";
    }
    return s.str();
}

void compile_ours(benchmark::State& state, int count)
{
    const std::string source = our_source(count);
    for (auto _ : state) {
        xpp::xmachine machine;
        xpp::xlexer lexer('$', '[', ']');
        xpp::xcompiler compiler;
        lexer.load_string(source.data(), source.data() + source.size(), false);
        if (compiler.compile(machine, &lexer) < 0)
            give_up(compiler.get_last_error().what());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * source.size()));
}

void compile_lua(benchmark::State& state, int count)
{
    const std::string source = lua_source(count);
    for (auto _ : state) {
        lua_State* const lua = luaL_newstate();
        if (luaL_loadbuffer(lua, source.data(), source.size(), "bench") != LUA_OK)
            give_up(lua_tostring(lua, -1));
        lua_close(lua);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * source.size()));
}

const bool registered = [] {
    for (const program& p : programs) {
        check(p);
        const std::string name = std::string("script/") + p.name;
        benchmark::RegisterBenchmark((name + "/ours").c_str(), run<our_program>, p.ours);
        benchmark::RegisterBenchmark((name + "/lua-globals").c_str(), run<lua_program>, p.globals);
        benchmark::RegisterBenchmark((name + "/lua-locals").c_str(), run<lua_program>, p.locals);
    }
    for (const int count : { 10, 100 }) {
        const std::string name = "script/compile " + std::to_string(count) + " procedures";
        benchmark::RegisterBenchmark((name + "/ours").c_str(), compile_ours, count);
        benchmark::RegisterBenchmark((name + "/lua").c_str(), compile_lua, count);
    }
    return true;
}();

} // namespace
