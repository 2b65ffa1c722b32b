// The evaluator of expressions, the functions every expression can call, and
// what such a function sees of its interpreter.
#ifndef STDKRO_ECALC_H
#define STDKRO_ECALC_H

#include <stdkro/base_var.h>
#include <stdkro/config.h>
#include <stdkro/cycque.h>
#include <stdkro/eparser.h>
#include <stdkro/hmap.h>
#include <stdkro/share_str.h>

/// What a function sees of the interpreter that calls it.
class KRO_API einterpret {
public:
    class built_in;

    /// Calls a function by name. Returns its status.
    virtual int call(const share_str& name, base_var& result, cycque<base_var>& args) = 0;
    /// The variable of that name, owned by the interpreter; null when there is none.
    virtual base_var* get_var(const share_str& name) = 0;
    virtual ~einterpret();

    einterpret() {}
    einterpret(const einterpret&) {}
    einterpret& operator=(const einterpret&) { return *this; }
};

/// A function of the expression language. Argument 0 is the first; an argument
/// that is a variable comes as a reference to it. The function stores into
/// `result` and returns 0, or a negative status, or throws an `xrterror`.
typedef int (*method)(einterpret& interpreter, base_var& result, cycque<base_var>& args);

/// The eighteen functions that every interpreter offers. A bad call throws an
/// `xrterror` after the result may have been changed; a conversion that fails
/// leaves an error value in the result.
class KRO_API einterpret::built_in {
public:
    static constexpr unsigned count = 18;
    /// The names, in the order of `methods`, and a null behind the last.
    static const char* const names[count + 1];
    static const method methods[count];

    /// oct(int): "%o".
    static int var_oct(einterpret&, base_var& result, cycque<base_var>& args);
    /// hex(int [, width]): "%x", padded with zeros to a width of 1 to 8.
    static int var_hex(einterpret&, base_var& result, cycque<base_var>& args);
    /// toupper(string): the letters a-z become A-Z.
    static int var_toupper(einterpret&, base_var& result, cycque<base_var>& args);
    /// tolower(string): the letters A-Z become a-z.
    static int var_tolower(einterpret&, base_var& result, cycque<base_var>& args);
    /// string(value): the value cast to a string.
    static int var_tostring(einterpret&, base_var& result, cycque<base_var>& args);
    /// int(value): the value cast to an int.
    static int var_toint(einterpret&, base_var& result, cycque<base_var>& args);
    /// echo(value...): prints the values to standard output and flushes; yields
    /// their number.
    static int var_echo(einterpret&, base_var& result, cycque<base_var>& args);
    /// align(value, width): the text of the value, padded with blanks on the
    /// left, for a negative width on the right; widths end at 4,096.
    static int var_align(einterpret&, base_var& result, cycque<base_var>& args);
    /// format(text, value...): "%[1]" in the text becomes the first value.
    static int var_format(einterpret&, base_var& result, cycque<base_var>& args);
    /// exist(name): whether a variable has that name.
    static int var_exist(einterpret& interpreter, base_var& result, cycque<base_var>& args);
    /// getvar(name): a reference to the variable of that name.
    static int var_getvar(einterpret& interpreter, base_var& result, cycque<base_var>& args);
    // What the predicates of `base_var` say. `is_ref` asks the argument itself,
    // the others what it refers to.
    static int var_is_string(einterpret&, base_var& result, cycque<base_var>& args);
    static int var_is_int(einterpret&, base_var& result, cycque<base_var>& args);
    static int var_is_lvalue(einterpret&, base_var& result, cycque<base_var>& args);
    static int var_is_rvalue(einterpret&, base_var& result, cycque<base_var>& args);
    static int var_is_valid(einterpret&, base_var& result, cycque<base_var>& args);
    static int var_is_const(einterpret&, base_var& result, cycque<base_var>& args);
    static int var_is_ref(einterpret&, base_var& result, cycque<base_var>& args);
};

/// Evaluates expressions over named variables and functions.
///
///     ecalc calc;
///     calc.get_vars().set("x", base_var(2));
///     base_var result;
///     int r = calc.calc_expr(result, "x * 3 + 1");     // 0, and 7 in result
///
/// Arithmetic on bad operands does not fail: it makes `result` an error value.
/// Comparisons, unknown names and failed calls throw an `xrterror`.
class KRO_API ecalc : public einterpret, public eparser {
public:
    /// Knows the built-in functions and no variable. Throws an `xcpt` when memory
    /// runs out.
    ecalc();
    ~ecalc() override;
    ecalc(const ecalc& other) = default;
    ecalc& operator=(const ecalc& other) = default;

    /// Makes `fns[i]` callable as `names[i]`, up to the first null name; an
    /// earlier function of that name is replaced, a built-in too.
    /// Returns 0 or `err::out_of_memory`.
    int add_methods(const char* const* names, const method* fns);

    /// The variables, for the host to add, change and remove. A variable must
    /// not be removed while an expression that names it is evaluated.
    hmap<share_str, base_var, hash_fun<share_str>>& get_vars() { return vars_; }

    /// Evaluates the expression that the lexer stands before, and leaves what
    /// follows it unread. `result` receives a value, never a reference.
    /// Returns 0, or the status of `read_expr`, `result` being unchanged then.
    /// Throws an `xrterror` for an error of the lexer or of the evaluation.
    /// A failed evaluation leaves its values on the stack for later ones to pop.
    int calc_expr(base_var& result, eparser::elexer* lexer);
    /// The same for a text. What follows the expression is ignored.
    int calc_expr(base_var& result, const char* text);

    /// `err::undefined_symbol` for an unknown name.
    int call(const share_str& name, base_var& result, cycque<base_var>& args) override;
    base_var* get_var(const share_str& name) override;

    void onOperate(int op) override;
    void onBeginCall(const share_str& name) override;
    void onParam() override;
    void onEndCall(const share_str& name, unsigned count) override;
    void onLiteral(int kind, const base_var& value) override;
    void onID(const share_str& name) override;

private:
    typedef hmap<share_str, method, hash_fun<share_str>> method_table;
    typedef hmap<share_str, base_var, hash_fun<share_str>> var_table;

    class settled;
    /// The lexer for texts, kept for the names it has met. No copy shares it.
    struct kept_lexer {
        kept_lexer() = default;
        kept_lexer(const kept_lexer&) : kept_lexer() {}
        kept_lexer& operator=(const kept_lexer&) { return *this; }
        eparser::elexer lexer;
        bool is_used = false;
    };

    int calc_text(base_var& result, eparser::elexer& lexer, const char* text);
    void operate_on_left(int op);
    base_var& top();
    base_var pop();

    method_table methods_;
    var_table vars_;
    cycque<base_var> stack_;
    /// The argument queue of the last call, kept for its memory.
    cycque<base_var> spare_args_;
    kept_lexer kept_lexer_;
};

#endif
