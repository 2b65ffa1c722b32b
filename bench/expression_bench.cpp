// From the text of an expression to its value, against muParser and against Lua's
// load and call. Each turn reads the text anew: nobody may keep a compiled form.
#include <stdkro/ecalc.h>

#include <lua.hpp>
#include <muParser.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

constexpr double x = 2.5;
constexpr double y = 7.25;
constexpr double z = 4;
const char name[] = "ghi";

struct subject {
    const char* name;
    const char* text;
    /// How Lua writes it.
    const char* lua;
    /// Whether muParser can compute it.
    bool for_mu_parser;
    double result;
};

const subject subjects[] = {
    { "variables", "x * 3 + y / z - x * (y + 1)", "return x * 3 + y / z - x * (y + 1)", true,
      x * 3 + y / z - x * (y + 1) },
    { "calls", "sum(x, y, twice(z)) + twice(1.5)", "return sum(x, y, twice(z)) + twice(1.5)", true,
      x + y + 2 * z + 3 },
    { "literals", "1.5 + 2.25 * 3 - 4.5 / 2 + 5 * (6.75 - 7)", "return 1.5 + 2.25 * 3 - 4.5 / 2 + 5 * (6.75 - 7)",
      true, 1.5 + 2.25 * 3 - 4.5 / 2 + 5 * (6.75 - 7) },
    { "strings", "\"abc\" + \"def\" + name == \"abcdefghi\"", "return \"abc\" .. \"def\" .. name == \"abcdefghi\"",
      false, 1 },
    { "logic", "x > 1.5 && y < 10.5 || x == z", "return x > 1.5 and y < 10.5 or x == z", true, 1 },
};

void require_result(double expected, double got, const char* who, const char* text)
{
    if (got == expected)
        return;
    std::fprintf(stderr, "%s: %s is %g and not %g\n", who, text, got, expected);
    std::abort();
}

// ---- ours --------------------------------------------------------------------

int sum(einterpret&, base_var& result, cycque<base_var>& args)
{
    double all = 0;
    for (unsigned i = 0; i < args.count(); ++i)
        all += args[i].to_double();
    result = all;
    return 0;
}

int twice(einterpret&, base_var& result, cycque<base_var>& args)
{
    result = 2 * args[0].to_double();
    return 0;
}

void ours(benchmark::State& state, const subject& s)
{
    ecalc calc;
    const char* const names[] = { "sum", "twice", nullptr };
    const method functions[] = { sum, twice };
    calc.add_methods(names, functions);
    calc.get_vars().set("x", x);
    calc.get_vars().set("y", y);
    calc.get_vars().set("z", z);
    calc.get_vars().set("name", name);
    base_var result;
    calc.calc_expr(result, s.text);
    require_result(s.result, result.to_double(), "ours", s.text);
    for (auto _ : state) {
        calc.calc_expr(result, s.text);
        benchmark::DoNotOptimize(result);
    }
}

// ---- muParser ----------------------------------------------------------------

double mu_sum(double a, double b, double c) { return a + b + c; }
double mu_twice(double a) { return 2 * a; }

void mu_parser(benchmark::State& state, const subject& s)
{
    double variables[] = { x, y, z };
    mu::Parser parser;
    parser.DefineVar("x", &variables[0]);
    parser.DefineVar("y", &variables[1]);
    parser.DefineVar("z", &variables[2]);
    parser.DefineFun("sum", mu_sum);
    parser.DefineFun("twice", mu_twice);
    const std::string text = s.text;
    parser.SetExpr(text);
    require_result(s.result, parser.Eval(), "muParser", s.text);
    for (auto _ : state) {
        parser.SetExpr(text);
        benchmark::DoNotOptimize(parser.Eval());
    }
}

// ---- Lua ---------------------------------------------------------------------

int lua_sum(lua_State* lua)
{
    double all = 0;
    for (int i = lua_gettop(lua); i > 0; --i)
        all += lua_tonumber(lua, i);
    lua_pushnumber(lua, all);
    return 1;
}

int lua_twice(lua_State* lua)
{
    lua_pushnumber(lua, 2 * lua_tonumber(lua, 1));
    return 1;
}

double lua_evaluate(lua_State* lua, const char* text, std::size_t length)
{
    if (luaL_loadbuffer(lua, text, length, "=") != LUA_OK || lua_pcall(lua, 0, 1, 0) != LUA_OK)
        std::abort();
    const double value = lua_isboolean(lua, -1) ? lua_toboolean(lua, -1) : lua_tonumber(lua, -1);
    lua_pop(lua, 1);
    return value;
}

void lua(benchmark::State& state, const subject& s)
{
    lua_State* const machine = luaL_newstate();
    lua_register(machine, "sum", lua_sum);
    lua_register(machine, "twice", lua_twice);
    lua_pushnumber(machine, x);
    lua_setglobal(machine, "x");
    lua_pushnumber(machine, y);
    lua_setglobal(machine, "y");
    lua_pushnumber(machine, z);
    lua_setglobal(machine, "z");
    lua_pushstring(machine, name);
    lua_setglobal(machine, "name");
    const std::size_t length = std::strlen(s.lua);
    require_result(s.result, lua_evaluate(machine, s.lua, length), "Lua", s.lua);
    for (auto _ : state)
        benchmark::DoNotOptimize(lua_evaluate(machine, s.lua, length));
    lua_close(machine);
}

const bool registered = [] {
    for (const subject& s : subjects) {
        const std::string lead = std::string("expression/") + s.name + "/";
        benchmark::RegisterBenchmark((lead + "ours").c_str(), ours, s);
        benchmark::RegisterBenchmark((lead + "Lua").c_str(), lua, s);
        if (s.for_mu_parser)
            benchmark::RegisterBenchmark((lead + "muParser").c_str(), mu_parser, s);
    }
    return true;
}();

} // namespace
