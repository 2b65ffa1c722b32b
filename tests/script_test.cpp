// The script language as its users see it: scripts and what they output.
// Generated programs are run by the machine and by a naive interpreter of
// their syntax tree, which must agree.
#include "script_listing.h"
#include "value_text.h"

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <sstream>

namespace {

/// The output, and the error behind "!".
std::string run(const std::string& text)
{
    xpp::xmachine machine;
    std::ostringstream out;
    machine.set_ostream(&out);
    xpp::xcompiler compiler;
    int r = compile_text(machine, compiler, text);
    if (r < 0)
        return "!" + code_text(r) + " " + compiler.get_last_error().what();
    r = machine.run();
    if (r < 0)
        out << "!" << code_text(r) << " " << machine.get_last_error().what();
    return out.str();
}

struct row {
    const char* script;
    const char* output;
};

template <size_t n>
void expect_output(const row (&rows)[n])
{
    for (const row& r : rows)
        EXPECT_EQ(run(r.script), r.output) << "script: " << r.script;
}

TEST(script, copies_text)
{
    expect_output({
        { "", "" },
        { "Hello\nWorld\n", "Hello\nWorld\n" },
        { "price: $$5, $a, $", "price: $5, $a, $" },
        { "a$. nothing of this\nb", "ab" },
        { "a $\n    b", "a b" },
        { "$$[x]", "$[x]" },
        { "[x] ]", "[x] ]" },
        { "$[]", "" },
        { "Hello$[var i]$[for (i = 0; i < 3; i += 1)]x$[end]", "Helloxxx" },
    });
}

TEST(script, evaluates_expressions)
{
    expect_output({
        { "$[@(1 + 2 * 3)]", "7" },
        { "$[@1 + 2]", "1" }, // the operator takes one factor
        { "$[@(7 / 2)] $[@(7 / 2.0)] $[@(-7 % 3)]", "3 3.5 -1" },
        { "$[@\"a\"]$[@(\"a\" + \"b\")]$[@'A']", "aab65" },
        { "$[x = 5]$[@x]$[x += 2]$[@x]$[x -= 4]$[@x]$[x *= 5]$[@x]$[x /= 4]$[@x]", "573153" },
        { "$[a = b = 4]$[@a]$[@b]", "44" },
        { "$[x = 1]$[@(x + (x = 5))]", "10" },
        { "$[@(x = 3)]", "3" },
        { "$[@(1 < 2)]$[@(2 <= 1)]$[@(1 == 1)]$[@(1 != 1)]$[@(!0)]$[@(!5)]", "101010" },
        { "$[@(1 || 0 && 0)]", "0" }, // one level, from the left
        { "$[x = 2]$[@-x]$[@(-x)]", "!80020006 express sentence missing ']'." },
        { "$[x = 2]$[@(-x)]", "-2" },
        { "$[x = \"a\"]$[x += \"b\"]$[@x]", "ab" },
        { "$[x = 1]$[x = \"now a text\"]$[@x]", "now a text" },
        { "$[@(2147483647 + 1)]", "-2147483648" },
        { "$[@(\"a\" + 1)]", "!80000006 invalid variable." },
        { "$[@(1 / 0)]", "!80000002 invalid variable." },
        { "$[@unknown]", "!80000003 " },
        { "$[unknown + 1]", "!80000003 invalid variable." },
        { "$[@unknown()]", "!80020008 unevaluated method: unknown" },
    });
}

TEST(script, decides)
{
    expect_output({
        { "$[if 1]a$[end]", "a" },
        { "$[if 0]a$[end]", "" },
        { "$[if 0]a$[else]b$[end]", "b" },
        { "$[x = 2]$[if x == 1]one$[elif x == 2]two$[elif x == 3]three$[else]many$[end]", "two" },
        { "$[x = 3]$[if x == 1]one$[elif x == 2]two$[elif x == 3]three$[else]many$[end]", "three" },
        { "$[x = 4]$[if x == 1]one$[elif x == 2]two$[elif x == 3]three$[else]many$[end]!", "many!" },
        { "$[if 1]$[if 0]a$[else]b$[end]$[else]c$[end]", "b" },
        { "$[if 1]to the end", "to the end" },
        { "$[if 0]to the end", "" },
        { "$[if \"text\"]a$[end]", "!8002000f must be int." },
        { "$[if 1.0]a$[end]", "!8002000f must be int." },
        { "$[if x]a$[end]", "!8002000f must be int." },
    });
}

TEST(script, repeats)
{
    expect_output({
        { "$[for (i = 0; i < 3; i += 1)]$[@i],$[end]$[@i]", "0,1,2,3" },
        { "$[for (i = 3; i < 3; i += 1)]never$[end]", "" },
        { "$[for (;;)]once$[break]$[end]!", "once!" },
        { "$[for (i = 0; i < 5; i += 1)]$[if i == 1]$[continue]$[end]$[if i == 3]$[break]$[end]$[@i]$[end]!", "02!" },
        { "$[for (i = 0; i < 3; i += 1)]$[for (j = 0; j < 3; j += 1)]$[if j == 2]$[break]$[end]$[@(i * 10 + j)] $[end]$[end]",
          "0 1 10 11 20 21 " },
        { "$[i = 0]$[for (; i < 2;)]$[i += 1]$[@i]$[end]", "12" },
        { "$[for (i = 0; i < 9; i += 1)]$[@i]$[exit]$[end]never", "0" },
        // A name can be declared once: not in a loop's body.
        { "$[for (i = 0; i < 2; i += 1)]$[var x]$[end]", "!80020009 duplicate variable xname: x" },
        { "$[for (i = \"a\"; i; )]$[end]", "!8002000f must be int." },
    });
}

TEST(script, calls_procedures)
{
    expect_output({
        { "$[proc twice(a)]$[return a * 2]$[end]$[@twice(4)]", "8" },
        { "$[proc greet(name)]Hello $[@name]!$[end]$[greet(\"you\")]$[greet(\"me\")]", "Hello you!Hello me!" },
        { "$[proc fib(n)]$[if n < 2]$[return n]$[end]$[return fib(n - 1) + fib(n - 2)]$[end]$[@fib(20)]", "6765" },
        // May be called before it is declared.
        { "$[@late(1)]$[proc late(a)]$[return a + 1]$[end]", "2" },
        { "$[proc outer()]$[proc inner()]in$[end]$[inner()]out$[end]$[outer()]$[inner()]", "inoutin" },
        // A plain variable is passed by reference, a computed value is not.
        { "$[proc change(a)]$[a = 9]$[end]$[x = 1]$[change(x)]$[@x]$[x = 1]$[change((x))]$[@x]$[x = 1]$[change(x + 0)]$[@x]", "991" },
        { "$[proc change(a)]$[a = 9]$[end]$[change(x = 1)]$[@x]", "9" },
        { "$[proc a(p)]$[b(p)]$[end]$[proc b(q)]$[q += 1]$[end]$[x = 1]$[a(x)]$[@x]", "2" },
        { "$[proc keep(p)]$[y = p]$[p = 5]$[return y]$[end]$[x = 1]$[@keep(x)]$[@x]", "15" },
        // Locals are a procedure's own; names of the main text are not seen.
        { "$[x = 1]$[proc f()]$[x = 2]$[@x]$[end]$[f()]$[@x]", "21" },
        { "$[x = 1]$[proc f()]$[@exist(\"x\")]$[end]$[f()]", "0" },
        { "$[proc f()]$[var x]$[end]$[proc g()]$[var x]$[end]$[f()]$[g()]ok", "ok" },
        { "$[proc f(a)]$[var a]$[end]$[f(1)]", "!80020009 duplicate variable xname: a" },
        { "$[proc f(a, a)]$[end]$[f(1, 2)]", "!80020009 duplicate variable xname: a" },
        // Missing arguments are empty, surplus ones dropped.
        { "$[proc f(a, b)]$[@is_valid(a)]$[@is_rvalue(b)]$[end]$[f(1)]$[f(1, 2, 3)]", "1011" },
        // A procedure that returns nothing yields what was returned last.
        { "$[proc f()]$[return 5]$[end]$[proc g()]$[end]$[f()]$[@g()]", "5" },
        { "$[proc g()]$[end]$[@g()]", "!80000003 " },
        { "$[proc f()]$[return]$[end]$[f()]ok", "ok" },
        { "$[proc f()]$[return x]$[end]$[y = f()]ok", "ok" },
        { "a$[return 1]b", "a" },
        { "$[proc f(n)]$[if n > 0]$[@n]$[f(n - 1)]$[@n]$[end]$[end]$[f(3)]", "321123" },
        { "$[proc f()]$[return f()]$[end]$[f()]", "!80010001 overrun" },
        // An argument that is missing takes what the statements before left.
        { "$[5]$[proc f(a, b)]$[@a]-$[@b]$[end]$[f(1,)]", "5-1" },
        { "$[proc f(a, b)]$[end]$[f(1,)]", "!80000009 underflow" },
    });
}

TEST(script, keeps_long_loops_small)
{
    // Each turn leaves values behind; a million turns must not need a million of them.
    EXPECT_EQ(run("$[s = 0]$[for (i = 0; i < 1000000; i += 1)]$[s += i % 7]$[if s > 100]$[s = 0]$[end]$[end]$[@i]"), "1000000");
    EXPECT_EQ(run("$[for (i = 0; i < 300; i += 1)]$[for (j = 0; j < 300; j += 1)]$[x = i + j]$[\"text\"]$[end]$[end]$[@x]"),
              "598");
    // What was folded is still there for whoever asks: forty missing arguments of fifty.
    std::string commas(40, ',');
    EXPECT_EQ(run("$[for (i = 0; i < 5000; i += 1)]$[7]$[end]$[@count(1" + commas + ")]"),
              "!80020008 unevaluated method: count");
    EXPECT_EQ(run("$[for (i = 0; i < 5000; i += 1)]$[7]$[end]$[@format(\"%[39]\"" + commas + ")]"),
              run("$[i = 5000]$[for (j = 0; j < 50; j += 1)]$[7]$[i]$[end]$[@format(\"%[39]\"" + commas + ")]"));
}

// ---- generated programs ------------------------------------------------------

// The tree of a program and its naive meaning. Ints only, but all operators.
struct world {
    std::map<std::string, int>* locals;
    std::string* out;
    int steps = 0;
};

struct stop_return { int value; };
struct stop_break {};
struct stop_continue {};
struct too_long {};

class generator {
public:
    explicit generator(unsigned seed) : random_(seed) {}

    /// The script, and beside it what it should output.
    std::string script;
    std::string expected;

    void make()
    {
        for (int i = 0; i < 3; ++i)
            procedures_.push_back(make_procedure(i));
        std::vector<std::unique_ptr<statement>> main = block(3, false, false);
        std::string text;
        for (const procedure& p : procedures_)
            text += p.text;
        for (const auto& s : main)
            text += s->text;
        script = text;
        std::map<std::string, int> locals;
        world w = { &locals, &expected };
        try {
            execute(main, w);
        } catch (const stop_return&) {
        } catch (const too_long&) {
            expected = "too long";
        }
    }

private:
    struct expression {
        std::string text;
        std::function<int(world&)> value;
    };
    struct statement {
        std::string text;
        std::function<void(world&)> run;
    };
    struct procedure {
        std::string name;
        std::string text;
        std::vector<std::unique_ptr<statement>> body;
    };
    using statements = std::vector<std::unique_ptr<statement>>;

    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }

    static void execute(const statements& all, world& w)
    {
        for (const auto& s : all) {
            if (++w.steps > 3000)
                throw too_long();
            s->run(w);
        }
    }

    static int wrap(long long v) { return static_cast<int>(static_cast<unsigned>(static_cast<unsigned long long>(v))); }

    /// Parenthesised, so that it may stand anywhere.
    expression number(int depth)
    {
        const unsigned kind = depth == 0 ? pick(2) : pick(6);
        if (kind == 0) {
            const int v = static_cast<int>(pick(20));
            return { std::to_string(v), [v](world&) { return v; } };
        }
        if (kind == 1)
            return variable();
        if (kind == 2 && !procedures_.empty())
            return call(depth);
        if (kind == 3) {
            const expression e = number(depth - 1);
            const bool is_not = pick(2) == 0;
            return { (is_not ? "(!" : "(-") + e.text + ")", [e, is_not](world& w) {
                        const int v = e.value(w);
                        return is_not ? v == 0 : wrap(-static_cast<long long>(v));
                    } };
        }
        return binary(depth);
    }

    expression variable()
    {
        // All variables are set at the begin of each procedure.
        const std::string name(1, static_cast<char>('a' + pick(4)));
        return { name, [name](world& w) { return (*w.locals)[name]; } };
    }

    expression binary(int depth)
    {
        static const char* const operators[]
            = { "+", "-", "*", "/", "%", "<", ">", "<=", ">=", "==", "!=", "&&", "||" };
        const unsigned which = pick(13);
        expression a = number(depth - 1);
        // A literal divisor is never zero.
        expression b = number(depth - 1);
        if (which == 3 || which == 4) {
            const int v = 1 + static_cast<int>(pick(9));
            b = { std::to_string(v), [v](world&) { return v; } };
        }
        // Operands are variables that are read late, so both sides are values first.
        const std::string text = "((" + a.text + " + 0) " + operators[which] + " (" + b.text + " + 0))";
        return { text, [a, b, which](world& w) -> int {
                    const int x = a.value(w);
                    const int y = b.value(w);
                    const int d = wrap(static_cast<long long>(x) - y);
                    switch (which) {
                    case 0: return wrap(static_cast<long long>(x) + y);
                    case 1: return d;
                    case 2: return wrap(static_cast<long long>(x) * y);
                    case 3: return x / y;
                    case 4: return x % y;
                    case 5: return d < 0;
                    case 6: return d > 0;
                    case 7: return d <= 0;
                    case 8: return d >= 0;
                    case 9: return d == 0;
                    case 10: return d != 0;
                    case 11: return x && y;
                    default: return x || y;
                    }
                } };
    }

    expression call(int depth)
    {
        const unsigned which = pick(static_cast<unsigned>(procedures_.size()));
        const expression a = number(depth - 1);
        const expression b = number(depth - 1);
        const std::string text = procedures_[which].name + "(" + a.text + " + 0, " + b.text + " + 0)";
        return { text, [this, which, a, b](world& w) {
                    const int x = a.value(w);
                    const int y = b.value(w);
                    return execute_procedure(which, x, y, w);
                } };
    }

    int execute_procedure(unsigned which, int x, int y, world& w)
    {
        std::map<std::string, int> locals = { { "a", x }, { "b", y }, { "c", 0 }, { "d", 0 } };
        world inner = { &locals, w.out, w.steps };
        int result = 0;
        try {
            execute(procedures_[which].body, inner);
        } catch (const stop_return& r) {
            result = r.value;
        }
        w.steps = inner.steps;
        return result;
    }

    procedure make_procedure(int number_of)
    {
        procedure p;
        p.name = "f" + std::to_string(number_of);
        p.body = block(2, false, true);
        // Every way out returns a value.
        const expression last = number(1);
        std::unique_ptr<statement> end(new statement);
        end->text = "$[return " + last.text + "]";
        end->run = [last](world& w) { throw stop_return { last.value(w) }; };
        p.body.push_back(std::move(end));
        p.text = "$[proc " + p.name + "(a, b)]$[c = 0]$[d = 0]";
        for (const auto& s : p.body)
            p.text += s->text;
        p.text += "$[end]";
        return p;
    }

    statements block(int depth, bool in_loop, bool in_procedure)
    {
        statements all;
        const unsigned n = 1 + pick(4);
        for (unsigned i = 0; i < n; ++i)
            all.push_back(make_statement(depth, in_loop, in_procedure));
        if (!in_procedure && depth == 3) {
            std::unique_ptr<statement> init(new statement);
            init->text = "$[a = 0]$[b = 0]$[c = 0]$[d = 0]";
            init->run = [](world&) {};
            all.insert(all.begin(), std::move(init));
        }
        return all;
    }

    static std::string text_of(const statements& all)
    {
        std::string text;
        for (const auto& s : all)
            text += s->text;
        return text;
    }

    std::unique_ptr<statement> make_statement(int depth, bool in_loop, bool in_procedure)
    {
        std::unique_ptr<statement> s(new statement);
        const unsigned kind = pick(depth == 0 ? 4 : 8);
        if (kind == 0) {
            const std::string text(1 + pick(3), static_cast<char>('k' + pick(5)));
            s->text = text;
            s->run = [text](world& w) { *w.out += text; };
        } else if (kind == 1) {
            const expression e = number(2);
            s->text = "$[@(" + e.text + " + 0)] ";
            s->run = [e](world& w) { *w.out += std::to_string(e.value(w)) + " "; };
        } else if (kind <= 3 || kind == 7) {
            make_assignment(*s);
        } else if (kind == 4) {
            make_if(*s, depth, in_loop, in_procedure);
        } else if (kind == 5) {
            make_for(*s, depth, in_procedure);
        } else if (in_loop) {
            const bool is_break = pick(2) == 0;
            const expression e = number(1);
            s->text = "$[if " + e.text + "]" + (is_break ? "$[break]" : "$[continue]") + "$[end]";
            s->run = [e, is_break](world& w) {
                if (e.value(w) == 0)
                    return;
                if (is_break)
                    throw stop_break();
                throw stop_continue();
            };
        } else {
            make_assignment(*s);
        }
        return s;
    }

    void make_assignment(statement& s)
    {
        const std::string name(1, static_cast<char>('a' + pick(4)));
        const expression e = number(2);
        const unsigned which = pick(4);
        static const char* const operators[] = { "=", "+=", "-=", "*=" };
        s.text = "$[" + name + " " + operators[which] + " " + e.text + "]";
        s.run = [name, e, which](world& w) {
            const int v = e.value(w);
            int& target = (*w.locals)[name];
            const long long old = target;
            target = wrap(which == 0 ? v : which == 1 ? old + v : which == 2 ? old - v : old * v);
        };
    }

    void make_if(statement& s, int depth, bool in_loop, bool in_procedure)
    {
        const expression first = number(2);
        const expression second = number(1);
        auto yes = std::make_shared<statements>(block(depth - 1, in_loop, in_procedure || depth == 3));
        auto other = std::make_shared<statements>(block(depth - 1, in_loop, in_procedure || depth == 3));
        auto no = std::make_shared<statements>(block(depth - 1, in_loop, in_procedure || depth == 3));
        s.text = "$[if " + first.text + "]" + text_of(*yes) + "$[elif " + second.text + "]" + text_of(*other) + "$[else]"
            + text_of(*no) + "$[end]";
        s.run = [=](world& w) {
            if (first.value(w) != 0)
                execute(*yes, w);
            else if (second.value(w) != 0)
                execute(*other, w);
            else
                execute(*no, w);
        };
    }

    void make_for(statement& s, int depth, bool in_procedure)
    {
        // The counter is a name of its own, which no statement changes.
        const std::string counter = "i" + std::to_string(++counters_);
        const int turns = static_cast<int>(pick(5));
        auto body = std::make_shared<statements>(block(depth - 1, true, in_procedure || depth == 3));
        s.text = "$[for (" + counter + " = 0; " + counter + " < " + std::to_string(turns) + "; " + counter + " += 1)]"
            + text_of(*body) + "$[end]";
        s.run = [turns, body](world& w) {
            for (int i = 0; i < turns; ++i) {
                if (++w.steps > 3000)
                    throw too_long();
                try {
                    execute(*body, w);
                } catch (const stop_continue&) {
                } catch (const stop_break&) {
                    break;
                }
            }
        };
    }

    std::mt19937 random_;
    std::vector<procedure> procedures_;
    unsigned counters_ = 0;
};

TEST(script, agrees_with_a_naive_interpreter_on_generated_programs)
{
    unsigned compared = 0;
    for (unsigned seed = 1; seed <= 600; ++seed) {
        generator g(seed);
        g.make();
        if (g.expected == "too long")
            continue;
        ++compared;
        const std::string got = run(g.script);
        ASSERT_EQ(got, g.expected) << "seed " << seed << "\n" << g.script;
    }
    EXPECT_GT(compared, 300u);
}

TEST(script, gives_the_same_step_by_step)
{
    for (unsigned seed = 1; seed <= 100; ++seed) {
        generator g(seed);
        g.make();
        if (g.expected == "too long")
            continue;
        xpp::xmachine machine;
        std::ostringstream out;
        machine.set_ostream(&out);
        ASSERT_EQ(compile_text(machine, g.script), 0);
        ASSERT_EQ(machine.run_begin(), 0);
        while (machine.is_running())
            ASSERT_EQ(machine.run_step(), 0);
        ASSERT_EQ(out.str(), g.expected) << "seed " << seed << "\n" << g.script;
    }
}

// ---- the front end -----------------------------------------------------------

struct file {
    explicit file(const char* text) { std::ofstream(path) << text; }
    ~file() { std::remove(path); }
    const char* const path = "script_test.xpp";
};

std::string content(const char* path)
{
    std::ifstream in(path);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}

TEST(xmaker, compiles_and_runs)
{
    xpp::xmaker maker;
    std::ostringstream out;
    {
        const file f("$[@get_cur_fname()]:$[@get_cur_line()]");
        EXPECT_EQ(maker.make(f.path, out), 0);
        EXPECT_EQ(out.str(), "script_test.xpp:1");
        // Again, and to the machine's own stream.
        std::ostringstream own;
        std::ostream* const before = maker.mac().set_ostream(&own);
        EXPECT_EQ(maker.make(f.path), 0);
        EXPECT_EQ(own.str(), out.str());
        EXPECT_EQ(maker.make(f.path, out), 0);
        EXPECT_EQ(maker.mac().get_ostream(), &own);
        maker.mac().set_ostream(before);
    }
    EXPECT_EQ(static_cast<unsigned>(maker.make("nothing.xpp", out)), 0x80020002u);
    const file wrong("$[1 2]");
    EXPECT_EQ(static_cast<unsigned>(maker.make(wrong.path, out)), 0x80020006u);
    EXPECT_EQ(maker.xpp().get_last_line(), 1);
    const file failing("a$[1 - \"a\"]");
    out.str("");
    EXPECT_EQ(static_cast<unsigned>(maker.make(failing.path, out)), 0x80000006u);
    EXPECT_EQ(out.str(), "a");
    EXPECT_STREQ(maker.mac().get_last_error().what(), "invalid variable.");
}

TEST(xmaker, writes_files)
{
    const char* const out = "script_test.out";
    std::remove(out);
    xpp::xmaker maker;
    const file f("output");
    EXPECT_EQ(maker.make(f.path, out, true), 0);
    EXPECT_EQ(content(out), "output");
    {
        std::ofstream(out) << "something longer";
    }
    EXPECT_EQ(static_cast<unsigned>(maker.make(f.path, out, true)), 0x80010001u);
    EXPECT_EQ(content(out), "something longer");
    EXPECT_EQ(maker.make(f.path, out, false), 0);
    EXPECT_EQ(content(out), "output");
    EXPECT_EQ(static_cast<unsigned>(maker.make(f.path, "no/such/folder/x", false)), 0x80020002u);
    EXPECT_EQ(static_cast<unsigned>(maker.make(f.path, nullptr, false)), 0x8002000eu);
    EXPECT_EQ(static_cast<unsigned>(maker.make("nothing.xpp", out, false)), 0x80020002u);
    EXPECT_EQ(content(out), "output");
    std::remove(out);
}

TEST(xmaker, copies)
{
    xpp::xmaker maker;
    std::ostringstream out;
    const file f("$[proc f()]$[return 3]$[end]$[@f()]");
    ASSERT_EQ(maker.make(f.path, out), 0);
    xpp::xmaker copy(maker);
    base_var result;
    cycque<base_var> none;
    EXPECT_EQ(copy.mac().call("f", result, none), 0);
    EXPECT_EQ(result.get_int(), 3);
    copy = maker;
    EXPECT_EQ(copy.mac().call("f", result, none), 0);
}

} // namespace
