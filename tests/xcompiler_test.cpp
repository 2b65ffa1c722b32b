// The script compiler: what each statement becomes, and what it refuses.
#include "script_listing.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>

namespace {

struct row {
    const char* script;
    const char* code;
};

template <size_t n>
void expect_code(const row (&rows)[n])
{
    for (const row& r : rows) {
        xpp::xmachine machine;
        xpp::xcompiler compiler;
        ASSERT_EQ(compile_text(machine, compiler, r.script), 0) << r.script << ": " << compiler.get_last_error().what();
        EXPECT_EQ(listing(machine), r.code) << "script: " << r.script;
        EXPECT_EQ(compiler.get_last_error().get_err(), 0);
        EXPECT_EQ(compiler.get_last_line(), 0);
    }
}

TEST(xcompiler, stores_and_outputs_text)
{
    expect_code({
        { "", "HALT" },
        { "text", "STORE text; OUTPUT; HALT" },
        { "a$$b", "STORE a; OUTPUT; STORE $b; OUTPUT; HALT" },
        { "$. comment\n$\n  ", "HALT" },
        // An empty statement is nothing.
        { "$[]", "HALT" },
        { "a$[]b", "STORE a; OUTPUT; STORE b; OUTPUT; HALT" },
        // A script may end inside a statement's opener.
        { "a$[", "STORE a; OUTPUT; HALT" },
    });
}

TEST(xcompiler, emits_expressions_operands_first)
{
    expect_code({
        { "$[x]", "GETVAR x; HALT" },
        { "$[1]", "STORE 1; HALT" },
        { "$[a + b * 2]", "GETVAR a; GETVAR b; STORE 2; MUL; PLUS; HALT" },
        { "$[a - b / c % d]", "GETVAR a; GETVAR b; GETVAR c; DIV; GETVAR d; MOD; MINUS; HALT" },
        { "$[a = b = 1]", "GETVAR a; GETVAR b; STORE 1; EVAL; EVAL; HALT" },
        { "$[a += 1]$[a -= 1]$[a *= 1]$[a /= 1]",
          "GETVAR a; STORE 1; EVPLUS; GETVAR a; STORE 1; EVMINUS; GETVAR a; STORE 1; EVMUL; GETVAR a; STORE 1; EVDIV; HALT" },
        { "$[a > b]$[a < b]$[a >= b]$[a <= b]$[a == b]$[a != b]",
          "GETVAR a; GETVAR b; GT; GETVAR a; GETVAR b; LT; GETVAR a; GETVAR b; GE; GETVAR a; GETVAR b; LE; "
          "GETVAR a; GETVAR b; EQ; GETVAR a; GETVAR b; NEQ; HALT" },
        { "$[a && b || !c]", "GETVAR a; GETVAR b; AND; GETVAR c; NOT; OR; HALT" },
        { "$[-a]", "GETVAR a; NEG; HALT" },
        { "$[@a]", "GETVAR a; OUTPUT; HALT" },
        { "$[@(a + \"x\")]", "GETVAR a; STORE x; PLUS; OUTPUT; HALT" },
        { "$['A']$[1.5]$[\"s\"]", "STORE 65; STORE 1.5; STORE s; HALT" },
        { "$[f()]", "PUSH 0; CALL f; HALT" },
        { "$[f(1, g(x), y)]", "STORE 1; GETVAR x; PUSH 1; CALL g; GETVAR y; PUSH 3; CALL f; HALT" },
        // A failure inside parentheses is not passed on; what was emitted stays.
        { "$[f(1,)]", "STORE 1; PUSH 2; CALL f; HALT" },
        { "$[(1 +)]", "STORE 1; HALT" },
        // Nor is that of an optional expression: only what follows it counts.
        { "$[(1]", "STORE 1; HALT" },
        { "$[a +]", "GETVAR a; HALT" },
    });
}

TEST(xcompiler, declares_variables)
{
    expect_code({
        { "$[var a]", "VAR a; HALT" },
        { "$[var a, b,c]", "VAR a; VAR b; VAR c; HALT" },
        { "$[var]", "HALT" },
    });
}

TEST(xcompiler, leaves_all_branches_of_an_if_through_one_jump)
{
    expect_code({
        { "$[if a]x$[end]", "GETVAR a; AJZ 5; STORE x; OUTPUT; AJMP 5; HALT" },
        { "$[if a]x$[else]y$[end]z",
          "GETVAR a; AJZ 5; STORE x; OUTPUT; AJMP 7; STORE y; OUTPUT; STORE z; OUTPUT; HALT" },
        { "$[if a]x$[elif b]y$[elif c]z$[end]",
          "GETVAR a; AJZ 5; STORE x; OUTPUT; AJMP 15; GETVAR b; AJZ 10; STORE y; OUTPUT; AJMP 4; "
          "GETVAR c; AJZ 15; STORE z; OUTPUT; AJMP 4; HALT" },
        { "$[if a]x$[elif b]y$[else]z$[end]",
          "GETVAR a; AJZ 5; STORE x; OUTPUT; AJMP 12; GETVAR b; AJZ 10; STORE y; OUTPUT; AJMP 4; STORE z; OUTPUT; HALT" },
        { "$[if a]$[end]", "GETVAR a; AJZ 3; AJMP 3; HALT" },
        // The end of the text closes an if.
        { "$[if a]x", "GETVAR a; AJZ 5; STORE x; OUTPUT; AJMP 5; HALT" },
        { "$[if a]x$[elif b]y",
          "GETVAR a; AJZ 5; STORE x; OUTPUT; AJMP 10; GETVAR b; AJZ 10; STORE y; OUTPUT; AJMP 4; HALT" },
        { "$[if a]x$[", "GETVAR a; AJZ 5; STORE x; OUTPUT; AJMP 5; HALT" },
    });
}

TEST(xcompiler, lays_a_loop_out_with_its_step_before_its_body)
{
    expect_code({
        { "$[for (i = 0; i < 3; i += 1)]x$[end]",
          "GETVAR i; STORE 0; EVAL; GETVAR i; STORE 3; LT; AJNZ 12; AJMP 15; GETVAR i; STORE 1; EVPLUS; AJMP 3; "
          "STORE x; OUTPUT; AJMP 8; HALT" },
        { "$[for (;;)]x$[end]", "AJMP 3; AJMP 6; AJMP 0; STORE x; OUTPUT; AJMP 2; HALT" },
        { "$[for (;a;)]$[end]", "GETVAR a; AJNZ 4; AJMP 5; AJMP 0; AJMP 3; HALT" },
        // The "]" behind break, continue and exit is text that is never reached.
        { "$[for (;;)]$[break]$[end]", "AJMP 3; AJMP 7; AJMP 0; AJMP 1; STORE ]; OUTPUT; AJMP 2; HALT" },
        { "$[for (;;)]$[continue] x$[end]", "AJMP 3; AJMP 7; AJMP 0; AJMP 2; STORE ] x; OUTPUT; AJMP 2; HALT" },
        { "$[exit]", "HALT; STORE ]; OUTPUT; HALT" },
        // break leaves the innermost loop.
        { "$[for (;;)]$[for (;;)]$[break]$[end]$[break]$[end]",
          "AJMP 3; AJMP 14; AJMP 0; AJMP 6; AJMP 10; AJMP 3; AJMP 4; STORE ]; OUTPUT; AJMP 5; AJMP 1; "
          "STORE ]; OUTPUT; AJMP 2; HALT" },
    });
}

TEST(xcompiler, lays_a_procedure_out_inline_and_jumps_over_it)
{
    expect_code({
        { "$[proc f()]$[end]", "AJMP 2; RET; HALT" },
        { "$[proc f(a, b)]x$[end]y", "AJMP 6; GETARG a; GETARG b; STORE x; OUTPUT; RET; STORE y; OUTPUT; HALT" },
        { "$[proc f()]$[return]$[end]", "AJMP 3; RET; RET; HALT" },
        { "$[proc f(a)]$[return a * 2]$[end]$[@f(4)]",
          "AJMP 8; GETARG a; GETVAR a; STORE 2; MUL; RETVAL; RET; RET; STORE 4; PUSH 1; CALL f; OUTPUT; HALT" },
        { "$[proc f()]$[proc g()]$[end]$[end]", "AJMP 4; AJMP 3; RET; RET; HALT" },
        { "$[if a]$[proc f()]$[end]$[end]", "GETVAR a; AJZ 5; AJMP 4; RET; AJMP 5; HALT" },
        // A loop around the procedure goes on behind it.
        { "$[for (;;)]$[proc f()]$[end]$[break]$[end]",
          "AJMP 3; AJMP 9; AJMP 0; AJMP 5; RET; AJMP 1; STORE ]; OUTPUT; AJMP 2; HALT" },
        { "$[return]", "RET; HALT" },
        { "$[return 1]", "STORE 1; RETVAL; RET; HALT" },
    });
    xpp::xmachine machine;
    ASSERT_EQ(compile_text(machine, "$[proc f(a)]$[end]text"), 0);
    EXPECT_EQ(machine.get_field().get_kind("f"), xpp::xfield::procedure);
    EXPECT_EQ(machine.get_field().get_kind("__main__"), xpp::xfield::procedure);
}

TEST(xcompiler, ends_the_main_text_at_a_stray_end)
{
    expect_code({
        { "a$[end]b", "STORE a; OUTPUT; HALT" },
        { "a$[else]b", "STORE a; OUTPUT; HALT" },
        { "a$[elif x]b", "STORE a; OUTPUT; HALT" },
    });
}

struct error_row {
    const char* script;
    unsigned code;
    const char* message;
    int line;
};

TEST(xcompiler, reports_each_error_with_its_line)
{
    const error_row rows[] = {
        { "\n$[1 2]", 0x80020006, "express sentence missing ']'.", 2 },
        { "$[a < b < c]", 0x80020006, "express sentence missing ']'.", 1 },
        { "$[if.end]$[1 2]", 0x80020006, "express sentence missing ']'.", 1 },
        { "$[var a b]", 0x80020006, "var sentence missing ']'.", 1 },
        { "$[var 1]", 0x80020006, "var sentence missing ']'.", 1 },
        { "$[var a,]", 0x80020006, "must be identifier.", 1 },
        { "$[var a,\n if]", 0x80020006, "must be identifier.", 2 },
        { "$[if]", 0x80020004, "missing express.", 1 },
        { "$[if ()]x$[end]", 0x80020004, "missing express.", 1 },
        { "$[if a b]", 0x80020006, "if sentence missing ']'.", 1 },
        { "$[if a]$[end b]", 0x80020006, "if.end sentence missing ']'.", 1 },
        { "$[if a]$[end", 0x80020006, "if.end sentence missing ']'.", 1 },
        { "$[if a]$[elif]", 0x80020004, "missing express.", 1 },
        { "$[if a]$[elif b c]", 0x80020006, "elif sentence missing ']'.", 1 },
        { "$[if a]$[else b]", 0x80020006, "else sentence missing ']'.", 1 },
        { "$[if a]$[else]x", 0x80020006, "If sentence abnormal end.", 1 },
        { "$[if a]$[else]$[else]", 0x80020006, "If sentence abnormal end.", 1 },
        { "$[if a]$[else]$[end x]", 0x80020006, "if.end sentence missing ']'.", 1 },
        { "$[for]", 0x80020006, "for sentence missing '('.", 1 },
        { "$[for (a]", 0x80020006, "for sentence missing ';'.", 1 },
        { "$[for (;a]", 0x80020006, "for sentence missing ';'.", 1 },
        { "$[for (;;a]", 0x80020006, "for sentence missing ')'.", 1 },
        { "$[for (;;) a]", 0x80020006, "for sentence missing ']'.", 1 },
        { "$[for (;;)]x", 0x80020006, "for sentence abnormal end.", 1 },
        { "$[for (;;)]\n$[else]", 0x80020006, "for sentence abnormal end.", 2 },
        { "$[for (;;)]$[end x]", 0x80020006, "for.end sentence missing ']'.", 1 },
        { "$[proc]", 0x80020006, "procedure name error.", 1 },
        { "$[proc if()]", 0x80020006, "procedure name error.", 1 },
        { "$[proc f]", 0x80020006, "proc sentence missing '('.", 1 },
        { "$[proc f(a]", 0x80020006, "proc declaration missing ')'.", 1 },
        { "$[proc f(a b)]", 0x80020006, "proc declaration missing ')'.", 1 },
        { "$[proc f(a,)]", 0x80020006, "must be identifier.", 1 },
        { "$[proc f() x]", 0x80020006, "proc sentence missing ']'.", 1 },
        { "$[proc f()]x", 0x80020006, "procedure f abnormal end.", 1 },
        { "$[proc f()]$[elif]", 0x80020006, "procedure f abnormal end.", 1 },
        { "$[proc f()]$[end x]", 0x80020006, "proc.end sentence missing ']'.", 1 },
        { "$[proc f()]$[end]\n\n$[proc f()]$[end]", 0x80020009, "procedure f already exist.", 3 },
        { "$[proc __main__()]$[end]", 0x80020009, "procedure __main__ already exist.", 1 },
        // A name of a host function is taken.
        { "$[proc hex()]$[end]", 0x80020009, "procedure hex already exist.", 1 },
        { "$[proc print()]$[end]", 0x80020009, "procedure print already exist.", 1 },
        { "$[return 1 2]", 0x80020006, "return sentence missing ']'.", 1 },
        { "$[continue]", 0x80020005, "continue statement out of for loop context.", 1 },
        { "$[break]", 0x80020005, "break statement out of for loop context.", 1 },
        { "$[for (;;)]$[end]$[break]", 0x80020005, "break statement out of for loop context.", 1 },
        // A procedure inside a loop is not part of it.
        { "$[for (;;)]$[proc f()]$[break]", 0x80020005, "break statement out of for loop context.", 1 },
        // Lexical errors.
        { "\n\n$[\"open", 0x80020007, "triple string", 3 },
        { "$['", 0x80020007, "invalid character define", 1 },
        { "$[/*", 0x80020007, "", 1 },
    };
    for (const error_row& r : rows) {
        xpp::xmachine machine;
        xpp::xcompiler compiler;
        EXPECT_EQ(static_cast<unsigned>(compile_text(machine, compiler, r.script)), r.code) << r.script;
        EXPECT_EQ(static_cast<unsigned>(compiler.get_last_error().get_err()), r.code) << r.script;
        EXPECT_STREQ(compiler.get_last_error().what(), r.message) << r.script;
        EXPECT_EQ(compiler.get_last_line(), r.line) << r.script;
        // Nothing is left of a failed compile.
        EXPECT_EQ(machine.last_addr(), 0) << r.script;
        EXPECT_EQ(machine.get_field().get_kind("__main__"), xpp::xfield::no_name) << r.script;
        EXPECT_EQ(compile_text(machine, compiler, "again"), 0) << r.script;
        EXPECT_EQ(compiler.get_last_line(), 0);
    }
}

// What derived classes reach beyond the statements.
struct open_compiler : xpp::xcompiler {
    using xcompiler::eat_token;
    using xcompiler::eat_x_token;
    using xcompiler::read_sentence;

    void attach(xpp::xmachine& m, xpp::xlexer& lexer, const std::function<void()>& action)
    {
        action_ = &action;
        compile(m, &lexer);
    }

    // Called for the first name of the text: the compiler stands inside a parse.
    void onID(const share_str& name) override
    {
        if (name == "HERE")
            (*action_)();
        else
            xcompiler::onID(name);
    }

private:
    const std::function<void()>* action_ = nullptr;
};

std::string read_one_sentence(const std::string& text)
{
    xpp::xmachine machine;
    xpp::xlexer lexer('$', '[', ']');
    const std::string all = "$[HERE]" + text;
    lexer.load_string(all.data(), all.data() + all.size());
    open_compiler compiler;
    std::string code;
    compiler.attach(machine, lexer, [&] {
        compiler.eat_token(xpp::xlexer::TK_CLOSE, "]");
        compiler.read_sentence();
        code = listing(machine);
        throw xrterror(err::rejected, "done");
    });
    if (compiler.get_last_error().get_err() != err::rejected)
        code = compiler.get_last_error().what();
    return code;
}

TEST(xcompiler, reads_single_sentences)
{
    const row rows[] = {
        { "text$[x]", "STORE text; OUTPUT" },
        { "$[x]$[y]", "GETVAR x" },
        { "$[if a]b$[end]c", "GETVAR a; AJZ 5; STORE b; OUTPUT; AJMP 5" },
        { "$[end]", "sentence syntax error." },
        { "$[else]", "sentence syntax error." },
        { "$[elif x]", "sentence syntax error." },
        { "", "" },
    };
    for (const row& r : rows)
        EXPECT_EQ(read_one_sentence(r.script), r.code) << r.script;
}

TEST(xcompiler, wants_tokens_with_messages_of_the_derived_class)
{
    xpp::xmachine machine;
    xpp::xlexer lexer('$', '[', ']');
    const std::string text = "$[HERE]text";
    lexer.load_string(text.data(), text.data() + text.size());
    open_compiler compiler;
    int steps = 0;
    compiler.attach(machine, lexer, [&] {
        compiler.eat_token(xpp::xlexer::TK_CLOSE, "a bracket");
        ++steps;
        compiler.eat_x_token(xpp::xlexer::TK_TEXT, "a text");
        ++steps;
        compiler.eat_x_token(xpp::xlexer::TK_TEXT, "another text");
        ++steps;
    });
    EXPECT_EQ(steps, 2);
    EXPECT_STREQ(compiler.get_last_error().what(), "another text");
}

struct operator_compiler : xpp::xcompiler {
    int code = 0;
    void onID(const share_str&) override { onOperate(code); }
};

TEST(xcompiler, refuses_operators_that_have_no_instruction)
{
    for (const int code : { 0, 17, 18, 40, 41, -1, 1000 }) {
        operator_compiler compiler;
        compiler.code = code;
        xpp::xmachine machine;
        EXPECT_EQ(static_cast<unsigned>(compile_text(machine, compiler, "$[x]")), 0x80000001u) << code;
        EXPECT_STREQ(compiler.get_last_error().what(), "invalid operator.");
    }
    for (int code = 19; code <= 39; ++code) {
        operator_compiler compiler;
        compiler.code = code;
        xpp::xmachine machine;
        EXPECT_EQ(compile_text(machine, compiler, "$[x]"), 0) << code;
    }
}

TEST(xcompiler, compiles_into_an_empty_machine_only)
{
    xpp::xmachine machine;
    xpp::xcompiler compiler;
    ASSERT_EQ(compile_text(machine, compiler, "$[proc f()]$[end]one"), 0);
    EXPECT_EQ(static_cast<unsigned>(compile_text(machine, compiler, "two")), 0x80020009u);
    EXPECT_STREQ(compiler.get_last_error().what(), "procedure __main__ already exist.");
    EXPECT_EQ(machine.last_addr(), 0);
    EXPECT_EQ(compile_text(machine, compiler, "two"), 0);
    machine.clear();
    EXPECT_EQ(compile_text(machine, compiler, "$[proc f()]$[end]three"), 0);
}

TEST(xcompiler, forgets_the_loops_of_a_failed_compile)
{
    xpp::xmachine machine;
    xpp::xcompiler compiler;
    EXPECT_LT(compile_text(machine, compiler, "$[for (;;)]$[1 2]"), 0);
    EXPECT_LT(compile_text(machine, compiler, "$[break]"), 0);
    EXPECT_STREQ(compiler.get_last_error().what(), "break statement out of for loop context.");
}

TEST(xcompiler, compiles_files)
{
    const char* const path = "xcompiler_test.xpp";
    std::ofstream(path) << "from a file";
    xpp::xmachine machine;
    xpp::xcompiler compiler;
    EXPECT_EQ(compiler.compile(machine, path), 0);
    EXPECT_EQ(listing(machine), "STORE from a file; OUTPUT; HALT");
    std::remove(path);
    // A file that cannot be read leaves the machine as it is.
    EXPECT_EQ(static_cast<unsigned>(compiler.compile(machine, "no such file")), 0x80020002u);
    EXPECT_EQ(static_cast<unsigned>(compiler.compile(machine, static_cast<const char*>(nullptr))), 0x8002000eu);
    EXPECT_EQ(static_cast<unsigned>(compiler.compile(machine, "")), 0x8002000eu);
    EXPECT_EQ(machine.last_addr(), 3);
}

std::string lines(const std::string& script)
{
    xpp::xmachine machine;
    EXPECT_EQ(compile_text(machine, script), 0);
    std::string all;
    for (int addr = 0; addr < machine.last_addr(); ++addr)
        all += std::to_string(machine.find_line(addr)) + " ";
    return all;
}

TEST(xcompiler, maps_instructions_to_lines)
{
    EXPECT_EQ(lines("one$[a]\n$[b]"), "1 1 1 1 1 2 2 ");
    EXPECT_EQ(lines("$[a]\n\n$[b]\n"), "1 1 1 3 3 3 4 ");
    EXPECT_EQ(lines("$[a\n\n]$[b]"), "1 3 3 ");
    // The line is where the previous token ended: behind a joiner it is the line before.
    EXPECT_EQ(lines("$[a]$\n\n$[b]"), "1 1 3 ");
}

TEST(xcompiler, bounds_how_deep_blocks_nest)
{
    const auto nested = [](unsigned n) {
        std::string text;
        for (unsigned i = 0; i < n; ++i)
            text += "$[if 1]";
        for (unsigned i = 0; i < n; ++i)
            text += "$[end]";
        return text;
    };
    xpp::xmachine machine;
    EXPECT_EQ(compile_text(machine, nested(500)), 0);
    machine.clear();
    EXPECT_EQ(static_cast<unsigned>(compile_text(machine, nested(100000))), 0x80010001u);
    EXPECT_EQ(machine.last_addr(), 0);
    std::string procedures;
    for (unsigned i = 0; i < 100000; ++i)
        procedures += "$[proc p" + std::to_string(i) + "()]";
    EXPECT_EQ(static_cast<unsigned>(compile_text(machine, procedures)), 0x80010001u);
    std::string loops;
    for (unsigned i = 0; i < 100000; ++i)
        loops += "$[for(;;)]";
    EXPECT_EQ(static_cast<unsigned>(compile_text(machine, loops)), 0x80010001u);
    // In an optional expression too.
    EXPECT_EQ(static_cast<unsigned>(compile_text(machine, "$[" + std::string(100000, '('))), 0x80010001u);
    EXPECT_EQ(static_cast<unsigned>(compile_text(machine, "$[if " + std::string(100000, '('))), 0x80010001u);
}

TEST(xcompiler, compiles_many_statements_in_linear_time)
{
    std::string text;
    for (unsigned i = 0; i < 20000; ++i)
        text += "line $[v" + std::to_string(i) + " = 1]\n";
    xpp::xmachine machine;
    EXPECT_EQ(compile_text(machine, text), 0);
    EXPECT_EQ(machine.last_addr(), 20000 * 5 + 3);
}

TEST(xcompiler, copies)
{
    xpp::xcompiler compiler;
    xpp::xmachine machine;
    compile_text(machine, compiler, "\n$[1 2]");
    const xpp::xcompiler copy(compiler);
    EXPECT_EQ(copy.get_last_line(), 2);
    EXPECT_STREQ(copy.get_last_error().what(), "express sentence missing ']'.");
    xpp::xcompiler other;
    other = copy;
    EXPECT_EQ(other.get_last_line(), 2);
}

} // namespace
