// Any bytes as a sequence of expressions. The parser must report what the grammar by the
// book reports, the evaluator compute what a second evaluator computes, and the built-in
// functions, which that one does not know, must survive.
#include "../tests/naive_expression.h"
#include "require.h"

#include <cstdint>
#include <cstdio>
#include <iostream>
#include <streambuf>

namespace {

class silent_buffer : public std::streambuf {
protected:
    int overflow(int c) override { return c == traits_type::eof() ? 0 : c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

void silence_echo()
{
    static silent_buffer* const silent = new silent_buffer; // outlives std::cout
    std::cout.rdbuf(silent);
}

void load(eparser::elexer& lexer, const std::uint8_t* data, std::size_t size)
{
    const char* const text = size ? reinterpret_cast<const char*>(data) : "";
    require(lexer.load_string(text, text + size, true) == 0, "a text does not load");
}

/// What `action` returns or throws.
template <class action_t> int status_of(action_t action)
{
    try {
        return action();
    } catch (const xrterror& e) {
        return e.get_err();
    }
}

// ---- variables and functions --------------------------------------------------------

const char* const variable_names[] = { "x", "y", "d", "s", "none", "bad" };

void add_variables(ecalc& calc)
{
    base_var bad;
    bad.set_error(err::conflict);
    const base_var values[] = { 2, -7, 0.5, "ab", base_var(), bad };
    for (unsigned i = 0; i < 6; ++i)
        calc.get_vars().set(variable_names[i], values[i]);
}

/// Thrown by the second evaluator for a function that it does not know.
struct not_known { };

naive::value count_arguments(const std::string& name, const std::vector<naive::value>& arguments)
{
    for (unsigned i = 0; i < einterpret::built_in::count; ++i) {
        if (name == einterpret::built_in::names[i])
            throw not_known();
    }
    if (name != "count")
        throw naive::failure { err::undefined_symbol };
    return naive::make_int(static_cast<int>(arguments.size()));
}

int count_call(einterpret&, base_var& result, cycque<base_var>& args)
{
    result = static_cast<int>(args.count());
    return 0;
}

void add_functions(ecalc& calc)
{
    static const char* const names[] = { "count", nullptr };
    static const method functions[] = { count_call };
    calc.add_methods(names, functions);
}

// ---- one expression after another -----------------------------------------------------

/// Both parsers and both evaluators, each with a lexer of its own over the same text.
class comparison {
public:
    comparison(const std::uint8_t* data, std::size_t size)
    {
        load(plain_lexer_, data, size);
        load(parser_lexer_, data, size);
        load(calc_lexer_, data, size);
        add_functions(calc_);
        add_variables(calc_);
        for (const char* name : variable_names)
            plain_.variables[name] = naive::from_library(*calc_.get_var(name));
    }

    /// False when nothing can follow.
    bool next()
    {
        naive::textbook book;
        const int status = status_of([&] { return book.read(plain_lexer_); });
        compare_reports(book, status);
        return compare_values(book, status) && skip_what_failed(status);
    }

private:
    eparser::elexer plain_lexer_, parser_lexer_, calc_lexer_;
    ecalc calc_;
    naive::evaluator plain_ { count_arguments };

    void compare_reports(const naive::textbook& book, int status)
    {
        naive::recorder parser;
        require(status_of([&] { return parser.read_expr(&parser_lexer_); }) == status, "the statuses differ");
        require(parser.steps.size() == book.steps.size(), "the numbers of reports differ");
        for (std::size_t i = 0; i < book.steps.size(); ++i) {
            const naive::step& a = parser.steps[i];
            const naive::step& b = book.steps[i];
            require(a.kind == b.kind && a.code == b.code && a.count == b.count && a.text == b.text,
                    "the reports differ");
            require(naive::same(naive::from_library(a.value), naive::from_library(b.value)), "the literals differ");
        }
        require(parser_lexer_.get_pos() == plain_lexer_.get_pos(), "the places differ");
        require(parser_lexer_.get_line() == plain_lexer_.get_line(), "the lines differ");
    }

    bool compare_values(const naive::textbook& book, int status)
    {
        naive::value expected;
        int failure = 0;
        try {
            expected = plain_.run(book.steps, status);
        } catch (const naive::failure& f) {
            failure = f.code;
        } catch (const naive::too_long&) {
            return false;
        } catch (const not_known&) {
            return false;
        }
        base_var result;
        const int got = status_of([&] { return calc_.calc_expr(result, &calc_lexer_); });
        require(got == failure, "the failures differ");
        if (failure == 0)
            require(naive::same(naive::from_library(result), expected), "the values differ");
        for (const char* name : variable_names) {
            require(naive::same(naive::from_library(*calc_.get_var(name)), plain_.variables[name]),
                    "the variables differ");
        }
        // An error of evaluation ends in the middle of an expression.
        return failure == status;
    }

    bool skip_what_failed(int status)
    {
        // Only these two stand at a known place.
        if (status != 0 && status != err::syntax && status != err::unexpected)
            return false;
        const int code = status_of([&] { return plain_lexer_.get_token(nullptr); });
        require(status_of([&] { return parser_lexer_.get_token(nullptr); }) == code, "the rests differ");
        require(status_of([&] { return calc_lexer_.get_token(nullptr); }) == code, "the rests differ");
        return code >= 0 && code != base_lexer::TK_EOF;
    }
};

// ---- the built-in functions --------------------------------------------------------------

/// Ends an evaluation whose texts grow out of hand: "x = x + x" doubles.
class bounded_calc : public ecalc {
public:
    int call(const share_str& name, base_var& result, cycque<base_var>& args) override
    {
        for (unsigned i = 0; i < args.count(); ++i)
            require_short(args[i]);
        return ecalc::call(name, result, args);
    }
    void onOperate(int op) override
    {
        ecalc::onOperate(op);
        for (const char* name : variable_names)
            require_short(*get_var(name));
    }

private:
    static void require_short(const base_var& v)
    {
        if (v.get_string().length() > 4096)
            throw xrterror(err::overflow, "too long");
    }
};

void evaluate_everything(const std::uint8_t* data, std::size_t size)
{
    eparser::elexer lexer;
    load(lexer, data, size);
    bounded_calc calc;
    add_functions(calc);
    add_variables(calc);
    for (int i = 0; i < 100; ++i) {
        base_var result;
        const int r = status_of([&] { return calc.calc_expr(result, &lexer); });
        require(r <= 0, "a status is neither 0 nor an error");
        require(!result.is_ref(), "a result is a reference");
        const int code = status_of([&] { return lexer.get_token(nullptr); });
        if (code < 0 || code == base_lexer::TK_EOF)
            return;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    silence_echo();
    comparison both(data, size);
    for (int i = 0; i < 100 && both.next(); ++i) {
    }
    evaluate_everything(data, size);
    return 0;
}
