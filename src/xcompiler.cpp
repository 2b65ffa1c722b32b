// The script compiler: one pass, no tree.
//
// Each statement has a reader, which emits its jumps with open targets and
// patches them when the target is reached. Expressions are read by `eparser`,
// whose reports in postfix order are the instructions of a stack machine, one
// for one. A block is read by recursion of `read_sentences`, which returns at
// the statement that closes or continues the block and leaves it to its caller.
#include <stdkro/xpp.h>

#include <new>

namespace xpp {

namespace {

// The instructions of the operators "+" to the prefix "-", by the parser's codes.
constexpr int first_operator = eparser::OP_ADD;
const code_type operator_codes[] = {
    PLUS,  MINUS,  MUL,     DIV, MOD, GT, LT,  EVAL, EVMUL, EVDIV,  EVPLUS,
    EVMINUS, EQ,   GE,      LE,  NEQ, AND, OR, NOT,  OUTPUT, NEG,
};
constexpr int operator_count = sizeof operator_codes / sizeof operator_codes[0];
static_assert(first_operator + operator_count == eparser::OP_NEGATE + 1, "one instruction for each operator");

[[noreturn]] void fail(int code, const char* message) { throw xrterror(code, "%s", message); }

// What is exhausted, input depth or memory, is an error wherever it shows.
bool is_panic(int status) { return status == err::overrun || status == err::out_of_memory; }

} // namespace

xcompiler::xcompiler() : xlexer_(nullptr), machine_(nullptr), method_(nullptr), last_line_(0) {}

xcompiler::~xcompiler() {}

xcompiler::xcompiler(const xcompiler& other)
    : eparser(other), xlexer_(other.xlexer_), machine_(other.machine_), method_(other.method_),
      loops_(other.loops_), last_error_(other.last_error_), last_line_(other.last_line_)
{
}

xcompiler& xcompiler::operator=(const xcompiler& other)
{
    eparser::operator=(other);
    xlexer_ = other.xlexer_;
    machine_ = other.machine_;
    method_ = other.method_;
    loops_ = other.loops_;
    last_error_ = other.last_error_;
    last_line_ = other.last_line_;
    return *this;
}

int xcompiler::compile(xmachine& m, const char* path)
{
    try {
        xlexer lexer('$', '[', ']');
        const int loaded = lexer.load_file(path, "r");
        if (loaded < 0) {
            last_error_ = xrterror(loaded, "%s", get_err_info(loaded));
            last_line_ = 0;
            return loaded;
        }
        return compile(m, &lexer);
    } catch (const xrterror& e) {
        last_error_ = e;
        return e.get_err();
    }
}

int xcompiler::compile(xmachine& m, xlexer* lexer)
{
    lexer_ = xlexer_ = lexer;
    const int r = parse(m);
    // The lexer may live only as long as this call.
    lexer_ = xlexer_ = nullptr;
    machine_ = nullptr;
    method_ = nullptr;
    return r;
}

int xcompiler::parse(xmachine& m)
{
    last_error_ = xrterror();
    last_line_ = 0;
    loops_.clear();
    try {
        return compile_main(m);
    } catch (const xrterror& e) {
        last_error_ = e;
    } catch (const std::bad_alloc&) {
        last_error_ = xrterror(err::out_of_memory, "%s", get_err_info(err::out_of_memory));
    }
    m.clear();
    last_line_ = xlexer_->get_line();
    return last_error_.get_err();
}

int xcompiler::compile_main(xmachine& m)
{
    // A string that finds no memory is empty; a program must not be.
    const share_str name("__main__");
    if (name.isempty())
        fail(err::out_of_memory, get_err_info(err::out_of_memory));
    machine_ = &m;
    method_ = m.new_method(name);
    if (!method_)
        fail(err::duplicated_symbol, "procedure __main__ already exist.");
    read_sentences();
    emit(HALT);
    m.end_method(*method_);
    return 0;
}

// ---- emitting

int xcompiler::emitted(int addr)
{
    if (addr < 0)
        fail(addr, get_err_info(addr));
    return addr;
}

int xcompiler::emit(code_type type) { return emitted(machine_->add_code(type)); }
int xcompiler::emit(code_type type, const base_var& operand) { return emitted(machine_->add_code(type, operand)); }
int xcompiler::emit_jump(code_type type, int target) { return emitted(machine_->add_code(type, target)); }

// Lets the jump at `addr` go to the next instruction.
void xcompiler::patch(int addr) { machine_->get_code(addr).set_operand(base_var(machine_->last_addr())); }

// KEEP: the lexer stands where the previous token ended, so a statement that
// begins a line is filed under the line before when the text between is a joiner
// or empty. Listings and error lines are compared by programs.
void xcompiler::arrive_line()
{
    machine_->arrive_line(*method_, xlexer_->get_line(), static_cast<int>(xlexer_->get_pos()));
}

// ---- tokens

int xcompiler::take(token* out) { return xlexer_->get_token(out); }
int xcompiler::get_x_token(token* out) { return xlexer_->get_x_token(out); }

void xcompiler::eat_token(int code, const share_str& message) { expect(code, message.c_str()); }
void xcompiler::eat_x_token(int code, const share_str& message) { expect_x(code, message.c_str()); }

// The same without a string made of a message that is hardly ever needed.
void xcompiler::expect(int code, const char* message)
{
    if (take(nullptr) == code)
        return;
    xlexer_->unget_token();
    fail(err::unexpected, message);
}

void xcompiler::expect_x(int code, const char* message)
{
    if (get_x_token(nullptr) == code)
        return;
    xlexer_->unget_token();
    fail(err::unexpected, message);
}

// ---- statements

// block := { text | '$[' sentence }
// Ends at the end of input, or before "elif", "else" or "end".
void xcompiler::read_sentences()
{
    const nesting deeper(*this);
    if (deeper.is_too_deep())
        fail(err::overrun, get_err_info(err::overrun));
    while (read_one(whole_block)) { }
}

void xcompiler::read_sentence() { read_one(single_sentence); }

// One pass of the block loop; false when the block ends here.
bool xcompiler::read_one(block_kind kind)
{
    arrive_line();
    token t;
    int code = get_x_token(&t);
    if (code == xlexer::TK_EOF)
        return false;
    if (code == xlexer::TK_TEXT) {
        read_text(t.get_string());
        return true;
    }
    code = take(nullptr);
    if (code == xlexer::TK_EOF)
        return false;
    if (code == xlexer::TK_ELIF || code == xlexer::TK_ELSE || code == xlexer::TK_END) {
        xlexer_->unget_token();
        if (kind == single_sentence)
            fail(err::unexpected, "sentence syntax error.");
        return false;
    }
    dispatch(code);
    return true;
}

void xcompiler::dispatch(int keyword)
{
    switch (keyword) {
    case xlexer::TK_IF: return read_if_sentence();
    case xlexer::TK_PROC: return read_proc_sentence();
    case xlexer::TK_VAR: return read_var_sentence();
    case xlexer::TK_FOR: return read_for_sentence();
    case xlexer::TK_CONTINUE: return read_continue();
    case xlexer::TK_BREAK: return read_break();
    case xlexer::TK_RETURN: return read_return();
    case xlexer::TK_EXIT: return read_exit();
    default:
        xlexer_->unget_token();
        read_expr_sentence();
    }
}

void xcompiler::read_text(const share_str& text)
{
    emit(STORE, base_var(text));
    emit(OUTPUT);
}

bool xcompiler::read_expr(bool optional)
{
    const int begin = machine_->last_addr();
    const int r = expr();
    if (is_panic(r))
        fail(r, get_err_info(r));
    const bool emitted_code = machine_->last_addr() != begin;
    // KEEP: what is wrong with an optional expression shows only in the token
    // that must follow it; templates rely on "$[]" and on "for (;;)".
    if (!optional && (r < 0 || !emitted_code))
        fail(err::not_exist, "missing express.");
    return emitted_code;
}

// sentence := [ expression ] ']'
void xcompiler::read_expr_sentence()
{
    read_expr(true);
    expect(xlexer::TK_CLOSE, "express sentence missing ']'.");
}

// sentence := 'var' names ']'
void xcompiler::read_var_sentence()
{
    dlist<share_str> names;
    read_argu_list(names);
    expect(xlexer::TK_CLOSE, "var sentence missing ']'.");
    for (const share_str& name : names)
        emit(VAR, base_var(name));
}

// names := [ name { ',' name } ]
void xcompiler::read_argu_list(dlist<share_str>& names)
{
    token t;
    if (take(&t) != base_lexer::TK_NAME) {
        xlexer_->unget_token();
        return;
    }
    names.push_back(t.get_string());
    while (take(nullptr) == eparser::OP_COMMA) {
        if (take(&t) != base_lexer::TK_NAME)
            fail(err::unexpected, "must be identifier.");
        names.push_back(t.get_string());
    }
    xlexer_->unget_token();
}

// sentence := 'if' expression ']' block { '$[' 'elif' expression ']' block }
//             [ '$[' 'else' ']' block ] '$[' 'end' ']'
void xcompiler::read_if_sentence()
{
    read_expr(false);
    expect(xlexer::TK_CLOSE, "if sentence missing ']'.");
    int skip = emit_jump(AJZ);
    read_sentences();
    // Every later branch goes out through this one jump.
    const int leave = emit_jump(AJMP);
    for (;;) {
        const int code = take(nullptr);
        if (code == xlexer::TK_ELIF) {
            patch(skip);
            read_expr(false);
            expect(xlexer::TK_CLOSE, "elif sentence missing ']'.");
            skip = emit_jump(AJZ);
            read_sentences();
            emit_jump(AJMP, leave);
            continue;
        }
        if (code == xlexer::TK_ELSE) {
            expect(xlexer::TK_CLOSE, "else sentence missing ']'.");
            patch(skip);
            read_sentences();
            expect_x(xlexer::TK_END, "If sentence abnormal end.");
            expect(xlexer::TK_CLOSE, "if.end sentence missing ']'.");
            patch(leave);
            return;
        }
        // KEEP: the end of input closes an "if" silently; loops and procedures complain.
        if (code != xlexer::TK_END && code != xlexer::TK_EOF)
            fail(err::unexpected, "if sentence syntax error.");
        if (code == xlexer::TK_END)
            expect(xlexer::TK_CLOSE, "if.end sentence missing ']'.");
        patch(leave);
        patch(skip);
        return;
    }
}

// sentence := 'for' '(' [ init ] ';' [ condition ] ';' [ step ] ')' ']' block '$[' 'end' ']'
//
// The code: init, condition, jump to the body, jump out, step, jump to the
// condition, body, jump to the step.
void xcompiler::read_for_sentence()
{
    expect(eparser::OP_OPEN, "for sentence missing '('.");
    read_expr(true);
    expect(xlexer::TK_SEMICOLON, "for sentence missing ';'.");
    const int condition = machine_->last_addr();
    const bool has_condition = read_expr(true);
    expect(xlexer::TK_SEMICOLON, "for sentence missing ';'.");
    const int to_body = emit_jump(has_condition ? AJNZ : AJMP);
    const int leave = emit_jump(AJMP);
    const int step = machine_->last_addr();
    read_expr(true);
    expect(eparser::OP_CLOSE, "for sentence missing ')'.");
    expect(xlexer::TK_CLOSE, "for sentence missing ']'.");
    emit_jump(AJMP, condition);
    patch(to_body);
    loops_.push_back(loop_targets(step, leave));
    read_sentences();
    expect(xlexer::TK_END, "for sentence abnormal end.");
    expect(xlexer::TK_CLOSE, "for.end sentence missing ']'.");
    loops_.pop_back();
    emit_jump(AJMP, step);
    patch(leave);
}

// KEEP: neither of these reads its "]", which becomes literal text behind the
// jump. It is never reached, but listings show it.
void xcompiler::read_continue()
{
    if (loops_.empty())
        fail(err::syntax, "continue statement out of for loop context.");
    emit_jump(AJMP, loops_.back().first);
}

void xcompiler::read_break()
{
    if (loops_.empty())
        fail(err::syntax, "break statement out of for loop context.");
    emit_jump(AJMP, loops_.back().second);
}

// KEEP: the same with "exit".
void xcompiler::read_exit() { emit(HALT); }

// sentence := 'return' [ expression ] ']'
void xcompiler::read_return()
{
    const bool has_value = read_expr(true);
    expect(xlexer::TK_CLOSE, "return sentence missing ']'.");
    if (has_value)
        emit(RETVAL);
    emit(RET);
}

// sentence := 'proc' name '(' names ')' ']' block '$[' 'end' ']'
//
// The body stands inline, and the code around it jumps over it.
void xcompiler::read_proc_sentence()
{
    token t;
    if (take(&t) != base_lexer::TK_NAME)
        fail(err::unexpected, "procedure name error.");
    const share_str name = t.get_string();
    dlist<share_str> parameters;
    expect(eparser::OP_OPEN, "proc sentence missing '('.");
    read_argu_list(parameters);
    expect(eparser::OP_CLOSE, "proc declaration missing ')'.");
    expect(xlexer::TK_CLOSE, "proc sentence missing ']'.");
    const int over = emit_jump(AJMP);

    xmethod* const outer = method_;
    method_ = machine_->new_method(name);
    if (!method_)
        throw xrterror(err::duplicated_symbol, "procedure %s already exist.", name.c_str());
    // A loop around the procedure is not a loop of its body.
    std::vector<loop_targets> outer_loops;
    outer_loops.swap(loops_);
    arrive_line();
    for (const share_str& parameter : parameters)
        emit(GETARG, base_var(parameter));
    read_sentences();
    if (take(nullptr) != xlexer::TK_END) {
        xlexer_->unget_token();
        throw xrterror(err::unexpected, "procedure %s abnormal end.", name.c_str());
    }
    expect(xlexer::TK_CLOSE, "proc.end sentence missing ']'.");
    emit(RET);
    machine_->end_method(*method_);
    method_ = outer;
    outer_loops.swap(loops_);
    patch(over);
}

// ---- expressions

void xcompiler::onID(const share_str& name) { emit(GETVAR, base_var(name)); }

void xcompiler::onLiteral(int, const base_var& value) { emit(STORE, value); }

void xcompiler::onEndCall(const share_str& name, unsigned argc)
{
    emit(PUSH, base_var(argc));
    emit(CALL, base_var(name));
}

void xcompiler::onOperate(int op)
{
    if (op < first_operator || op >= first_operator + operator_count)
        fail(err::internal, "invalid operator.");
    emit(operator_codes[op - first_operator]);
}

} // namespace xpp
