// The script language: text templates with statements between "$[" and "]",
// compiled in one pass to a stack machine and run by it.
//
//     xpp::xmaker maker;
//     maker.make("report.xpp", std::cout);             // compile and run
//
//     xpp::xmachine machine;                           // the same, step by step
//     xpp::xcompiler compiler;
//     int r = compiler.compile(machine, "report.xpp");
//     if (r >= 0)
//         r = machine.run();
//
// What stands outside statements is output as it is. One machine, with its
// compiler, serves one thread at a time.
#ifndef STDKRO_XPP_H
#define STDKRO_XPP_H

#include <stdkro/base_lexer.h>
#include <stdkro/base_var.h>
#include <stdkro/config.h>
#include <stdkro/cycque.h>
#include <stdkro/dlist.h>
#include <stdkro/ecalc.h>
#include <stdkro/eparser.h>
#include <stdkro/hmap.h>
#include <stdkro/share_str.h>
#include <stdkro/xcpt.h>

#include <iosfwd>
#include <utility>
#include <vector>

namespace xpp {

class xmachine;
struct machine_state;

/// The lexer of scripts. It reads in two modes over one text: `get_x_token`
/// collects literal text up to the next statement, `get_token` reads what
/// stands inside a statement. Both put tokens back with `unget_token`.
///
/// Three characters rule the text: mark ("$" in the compiler), open ("[") and
/// close ("]"). In text, behind a mark:
///     the open character        a statement begins
///     another mark              one mark, literally
///     "."                       a comment up to and with the line feed
///     white space               skipped, with all white space that follows
///     anything else             both characters, literally
class KRO_API xlexer : public eparser::elexer {
public:
    /// The token codes of scripts beside those of expressions.
    enum {
        TK_TEXT = 14,
        TK_OPEN = 41,
        TK_CLOSE = 43,
        TK_MARK = 44,
        TK_SEMICOLON = 45,
        TK_IF = 46,
        TK_ELIF = 47,
        TK_ELSE = 48,
        TK_END = 49,
        TK_PROC = 50,
        TK_VAR = 51,
        TK_FOR = 52,
        TK_CONTINUE = 53,
        TK_BREAK = 54,
        TK_RETURN = 55,
        TK_EXIT = 56,
        TK_STATEMENT = 57
    };

    xlexer(int mark, int open, int close);

    /// Registers the symbols and keywords of scripts.
    void create_lexical(int mark, int open, int close);
    /// Replaces the three characters: the symbols made of the old ones go.
    void set_mark(int mark, int open, int close);

    /// Reads one token of text mode and returns its code: `TK_TEXT` with the
    /// text as value, `TK_STATEMENT` or `TK_EOF`.
    int read_x_token(token& out);
    /// Takes the next token, from the look-ahead when there is one. Returns its
    /// code; `out` may be null.
    int get_x_token(token* out);

protected:
    int read_token(token& out) override;
    /// A name goes on with letters, digits, "_", "." and bytes of 0x80 and more.
    int read_id(token& out) override;

private:
    struct first_of_all { };
    explicit xlexer(first_of_all);
    static const xlexer& usual();
    void set_brackets(int mark, int open, int close);
    void register_brackets();
    int read_mark(share_str& text, token& out);

    bool is_text_mode_;

    int mark_;
    int open_;
    int close_;
};

/// The instructions. Values on the operand stack; "pops b, a" takes b first.
// ORDER code_type
enum code_type : short {
    NOP,     ///< nothing
    PUSH,    ///< count: empties the argument list and moves that many values into it
    STORE,   ///< value: pushes it
    GETVAR,  ///< name: pushes a reference to the variable, a new local when there is none
    VAR,     ///< name: creates a local
    GETARG,  ///< name: creates a local from the next argument
    CALL,    ///< name: calls a procedure or a host function
    PUSHARG, ///< pops a value and appends it to the argument list
    POPARG,  ///< nothing
    RET,     ///< returns; the caller gets the return value
    RETVAL,  ///< pops the return value
    HALT,    ///< ends the run
    TRAP,    ///< interrupts the run
    XRET,    ///< ends a call from the host
    AJMP,    ///< address: goes there
    AJZ,     ///< address: pops an int, goes there when it is 0
    AJNZ,    ///< address: goes there when it is not 0
    RJMP,    ///< offset from the next instruction: goes there
    RJZ,     ///< offset: pops an int, goes there when it is 0
    RJNZ,    ///< offset: goes there when it is not 0
    REF,     ///< nothing
    OUTPUT,  ///< writes the top value
    NOT,     ///< a becomes !a
    NEG,     ///< a becomes 0 - a
    PLUS,    ///< pops b, a; pushes a + b
    MINUS,
    MUL,
    DIV,
    MOD,
    EVAL,    ///< pops b, a; assigns b to a; pushes a
    EVPLUS,
    EVMINUS,
    EVMUL,
    EVDIV,
    EVMOD,
    AND,
    OR,
    EQ,      ///< pops b, a; pushes 1 or 0
    NEQ,
    GE,
    LE,
    GT,
    LT
};

/// One instruction: an opcode and its operand (nothing, a number, a name, or
/// the value of STORE).
class KRO_API xcode {
public:
    explicit xcode(code_type type = NOP) : type_(type), quick_(quick_of(type)) {}
    xcode(code_type type, const base_var& operand) : type_(type), quick_(quick_of(type)), operand_(operand) {}
    xcode(const xcode& other) : type_(other.type_), quick_(quick_of(other.type_)), operand_(other.operand_) {}
    xcode(xcode&& other) noexcept
        : type_(other.type_), quick_(other.quick_), state_(other.state_), found_(other.found_), operand_(std::move(other.operand_))
    {
    }
    xcode& operator=(const xcode& other)
    {
        set_type(other.type_);
        operand_ = other.operand_;
        return *this;
    }

    code_type get_type() const { return type_; }
    void set_type(code_type type)
    {
        type_ = type;
        quick_ = quick_of(type);
        state_ = 0;
    }
    const base_var& get_operand() const { return operand_; }
    void set_operand(const base_var& operand)
    {
        operand_ = operand;
        state_ = 0;
    }

private:
    friend class xmachine;
    friend struct machine_state;

    static short quick_of(code_type type) { return static_cast<short>(type >= NOP && type <= LT ? static_cast<int>(type) : -1); }

    code_type type_;
    // How the machine executes it: as `type_`, or together with those behind it.
    short quick_;
    // What the machine remembers between two executions: what it found by the
    // name, and in which state of the activation's layout or of the name table
    // that was; or the target of a jump. State 0 is nothing.
    unsigned state_ = 0;
    union {
        unsigned slot;
        const void* entry;
    } found_ = { 0 };
    base_var operand_;
};

/// One procedure. The main text is the procedure "__main__".
class KRO_API xmethod {
public:
    const share_str& get_name() const { return name_; }
    /// The address of its first instruction.
    int get_entry() const { return entry_; }
    /// The address behind its last instruction.
    int get_end() const { return end_; }
    /// The index of its first entry in the line table.
    int get_first_line() const { return first_line_; }
    /// The index behind its last entry in the line table.
    int get_end_line() const { return end_line_; }

private:
    friend class xmachine;
    friend struct machine_state;
    friend class xcontext;

    /// A name that the procedure uses, and the global variable of that name as
    /// the name table had it in some state.
    struct local_name {
        share_str name;
        base_var* global;
        unsigned global_state;
    };

    xmethod(const share_str& name, int entry, int first_line)
        : name_(name), entry_(entry), end_(entry), first_line_(first_line), end_line_(first_line),
          numbered_to_(entry), layout_(0), slot_count_(0), parameters_(0)
    {
    }
    unsigned number_local(const share_str& name);

    share_str name_;
    int entry_;
    int end_;
    int first_line_;
    int end_line_;
    /// The names of its variables; the position of a name is its number.
    std::vector<local_name> locals_;
    hmap<share_str, unsigned> numbers_;
    /// The names in the code below this address have their numbers.
    int numbered_to_;
    /// The layout of its activations: another one for each number of locals.
    unsigned layout_;
    unsigned slot_count_;
    /// The number of its parameters, -1 when a call must not fill them at once.
    int parameters_;
};

/// Of the machine's inside: where the operands of an activation begin.
struct operand_mark {
    void* chunk;
    base_var* floor;
    unsigned repetitions;
};

/// One activation of a procedure. Lives while the procedure runs.
class KRO_API xcontext {
public:
    /// Return addresses that are none: of the main text, and of a procedure
    /// that the host called.
    enum { no_address = -1, to_host = -2 };

    const xmethod& get_method() const { return *method_; }
    /// Where the caller goes on, or one of the constants above.
    int get_return_addr() const { return return_addr_; }

    /// The local of that name; null when there is none. The address stays as
    /// long as the activation.
    base_var* get_var(const share_str& name);
    /// Creates a local, or returns `err::duplicated_symbol`.
    int create_var(const share_str& name, const base_var& value);
    /// The number of locals.
    unsigned count_vars() const;
    /// The local `i`, counted from 0, and its name in `name`; null behind the last.
    base_var* get_var_at(unsigned i, share_str& name);

    /// The number of values on the operand stack.
    unsigned count_operands() const;

private:
    friend class xmachine;
    friend struct machine_state;

    struct slot;
    struct extra;
    xcontext();
    ~xcontext();
    xcontext(const xcontext&) = delete;
    xcontext& operator=(const xcontext&) = delete;

    xmachine* machine_;
    xmethod* method_;
    int return_addr_;
    /// Its place among the activations, 0 being the outermost.
    unsigned index_;
    /// Locals by number. What got its number later stands in `extras_`.
    slot* slots_;
    unsigned slot_count_;
    unsigned layout_;
    extra* extras_;
    /// Whether its slots opened a chunk, and what was in use before.
    bool opened_chunk_;
    unsigned slot_chunk_;
    unsigned slots_free_;
    /// Where its operands begin.
    operand_mark operands_;
};

/// The names that scripts see beside their locals: procedures, host functions,
/// and the variables and objects that the host gives them.
///
/// The addresses of variables stay until they are removed; a variable removed
/// during a run lives on, unseen, until the run ends.
class KRO_API xfield {
public:
    enum kind {
        no_name = 0,
        procedure = 1,
        host_function = 2,
        variable = 3,       ///< a value of the field's own
        bound_variable = 4, ///< a value of the host's
        object = 5          ///< a pointer of the host's, invisible to scripts
    };

    /// Adds a global variable, or returns `err::duplicated_symbol`.
    int add_var(const share_str& name, const base_var& value);
    /// Makes `value` a global variable. It must outlive the name.
    int bind_var(const share_str& name, base_var& value);
    int add_object(const share_str& name, void* pointer);

    /// Finds the global variable of that name: `err::undefined_symbol` without
    /// the name, `err::abnormal_cast` when it is no variable. Null `out` only asks.
    int get_var(const share_str& name, base_var** out) const;
    int get_object(const share_str& name, void** out) const;
    /// `no_name` when there is none.
    kind get_kind(const share_str& name) const;

    /// Removes a variable or an object; `err::undefined_symbol` without the
    /// name, `err::abnormal_cast` for a procedure or a host function.
    int remove(const share_str& name);
    unsigned count() const;

private:
    friend class xmachine;
    friend struct machine_state;

    struct global;
    struct entry;
    struct table;

    xfield();
    ~xfield();
    xfield(const xfield&) = delete;
    xfield& operator=(const xfield&) = delete;

    int add(const share_str& name, const entry& what);
    entry* find(const share_str& name) const;
    entry* find(const char* name, unsigned length) const;
    void retire(const entry& e);
    void drop_program();
    void copy_names(const xfield& other);
    void free_removed();

    table* table_;
    /// Changes with the names: what was found in another state is looked up again.
    unsigned state_;
};

/// Raised by HALT: ends the run, which is a success.
class KRO_API xhalt : public xrterror {
public:
    xhalt() : xrterror(0, "halt") {}
};

/// Raised by TRAP: interrupts the run, which can go on behind the instruction.
class KRO_API xtrap : public xrterror {
public:
    explicit xtrap(const xcode& code) : xrterror(err::illegal_operator, "trap instruction"), code_(code) {}
    /// The trapping instruction.
    const xcode& get_code() const { return code_; }

private:
    xcode code_;
};

/// Raised by XRET: ends a call from the host.
class KRO_API xret : public xrterror {
public:
    xret() : xrterror(0, "method return") {}
};

/// The machine: instructions, procedures, names and activations.
///
/// The compiler fills it, `run` executes the main text, `call` one procedure.
/// Host functions are added with `add_methods`, global variables through
/// `get_field`.
///
/// A copy has the program, the names and the output stream, and is not running.
class KRO_API xmachine : public einterpret {
public:
    /// Knows the built-in functions of expressions and its own six:
    /// get_cur_fname, get_cur_line, print, print_trace, print_local, print_global.
    xmachine();
    xmachine(const xmachine& other);
    xmachine& operator=(const xmachine& other);
    virtual ~xmachine();

    // ---- program

    /// Appends an instruction and returns its address.
    int add_code(code_type type);
    int add_code(code_type type, const base_var& operand);
    int add_code(code_type type, int operand);
    int add_code(code_type type, double operand);
    int add_code(code_type type, const share_str& operand);
    int add_code(code_type type, const char* operand);
    /// The instruction at an address; one that does nothing outside the code.
    xcode& get_code(int addr);
    const xcode& get_code(int addr) const;
    /// The number of instructions, which is the address of the next.
    int last_addr() const;
    const xcode& get_method_entry(const xmethod& of) const;

    /// Begins a procedure at the end of the code. Null when the name is taken,
    /// by a host function too. The machine owns the record.
    xmethod* new_method(const share_str& name);
    /// Ends it at the end of the code.
    void end_method(xmethod& of);

    /// Notes that the code of `line` begins here, unless the newest entry of the
    /// line table has this address or this line. `pos` is a position in the source.
    void arrive_line(xmethod& of, int line, int pos);
    /// The line of the instruction at `addr`, -1 when unknown.
    int find_line(int addr) const;
    /// The same among the entries of one procedure.
    int find_line(const xmethod& of, int addr) const;
    /// The line of the instruction that is executed, failed or comes next.
    int find_ip_line() const;

    void set_src_fname(const share_str& name);
    const share_str& get_src_fname() const;

    /// Makes `fns[i]` callable as `names[i]`, up to the first null name. An
    /// earlier host function of that name is replaced; a name that is something
    /// else ends it with `err::duplicated_symbol`. The status that a function
    /// returns is ignored by scripts: throw an `xrterror` to end the run.
    int add_methods(const char* const* names, const method* fns);
    xfield& get_field();

    // ---- running

    /// Runs until the program ends. Returns 0 at its end and at a trap, otherwise
    /// the status of the error, which `get_last_error` keeps. A later `run`
    /// goes on behind the trap or the failed instruction; `clear_runner` makes
    /// it start afresh.
    int run();
    /// Activates the main text; `err::undefined_symbol` when there is none.
    int run_begin();
    /// Executes one instruction; `err::unprepared` when not running.
    int run_step();
    /// Executes up to the next line of the same or an outer activation.
    int run_next();
    int run_continue();
    void run_end();
    bool is_running() const;
    /// The address of the next instruction, -1 when not running.
    int get_ip() const;

    /// Calls a procedure or a host function. Returns 0, what the host function
    /// returned, or the status of the error; a failed call leaves the machine
    /// as it was before.
    int call(const share_str& name, base_var& result, cycque<base_var>& args) override;
    /// The active local of that name, else the global variable, else null. A
    /// derived class may know more variables.
    base_var* get_var(const share_str& name) override;
    /// Creates a local of the active procedure: `err::duplicated_symbol` when it
    /// exists, `err::unprepared` when no procedure is active.
    int create_var(const share_str& name, const base_var& value);
    int create_var(const share_str& name);

    /// The error that ended the last `run`, step or `call`; code 0 after a success.
    const xrterror& get_last_error() const;
    /// The source line where it arose: 0 after a success, -1 when no instruction
    /// raised it. A failed `call` drops its activations, so only this tells.
    int get_last_line() const;

    /// The innermost activation; null when not running.
    xcontext* get_active() const;
    unsigned count_contexts() const;
    /// Activation `i`, 0 being the outermost; null behind the last.
    xcontext* get_context(unsigned i) const;

    /// Empties the machine: code, procedures, variables, lines, activations. Host
    /// functions and the output stream stay.
    void clear();
    /// Drops the activations: the machine does not run any more.
    void clear_runner();

    // ---- output

    void output(const char* s);
    void output(const share_str& s);
    /// Writes the text of the value; an error value has none. Throws an
    /// `xrterror` for a value that was never set.
    void output(base_var& v);
    /// Borrows the stream and returns the previous one; the first is std::cout.
    std::ostream* set_ostream(std::ostream* os);
    std::ostream* get_ostream() const;

    // ---- printers; a value without a text form prints as nothing

    /// The source file's name and the listing.
    void dump(std::ostream& os) const;
    /// All instructions, with the lines of `source` between them when it is given.
    void print_list(std::ostream& os, const reader* source) const;
    /// One instruction, without a line end.
    void print_dyncode(std::ostream& os, int addr) const;
    /// The instructions around the current one of each activation.
    void print_context(std::ostream& os) const;
    /// Locals of all activations, and the name table.
    void print_all(std::ostream& os) const;
    void print_global(std::ostream& os) const;
    void print_local(std::ostream& os, xcontext* of) const;
    /// The active procedures, innermost first.
    void print_trace(std::ostream& os) const;
    /// The locals of the active procedure.
    void print_stack(std::ostream& os) const;

protected:
    /// Raises `xhalt`.
    void halt();

private:
    friend class xcontext;

    machine_state* state_;
};

/// Compiles scripts in one pass: the parser of expressions reports operands
/// and operators, which become instructions at once.
class KRO_API xcompiler : public eparser {
public:
    xcompiler();
    virtual ~xcompiler();
    xcompiler(const xcompiler& other);
    xcompiler& operator=(const xcompiler& other);

    /// Compiles a file into a machine that holds no program: it must be new or
    /// cleared. Returns 0 or a negative status; unless the file could not be
    /// read, a failure leaves the machine cleared.
    int compile(xmachine& m, const char* path);
    /// Compiles the text that the caller has loaded into `lexer`.
    int compile(xmachine& m, xlexer* lexer);

    /// The error of the last `compile`; code 0 after a success.
    const xrterror& get_last_error() const { return last_error_; }
    /// The line where it arose, 0 after a success.
    int get_last_line() const { return last_line_; }

    void onOperate(int op) override;
    void onEndCall(const share_str& name, unsigned argc) override;
    void onLiteral(int type, const base_var& value) override;
    void onID(const share_str& name) override;

protected:
    int parse(xmachine& m);

    // Readers of statements: each is called behind the keyword and throws an
    // `xrterror` for an error.
    void read_sentences();
    void read_sentence();
    void read_if_sentence();
    void read_for_sentence();
    void read_proc_sentence();
    void read_var_sentence();
    void read_expr_sentence();
    void read_return();
    void read_continue();
    void read_break();
    void read_exit();
    void read_text(const share_str& text);
    /// Reads an expression that may be missing when it is optional. Tells
    /// whether it made any instruction.
    bool read_expr(bool optional);
    void read_argu_list(dlist<share_str>& names);
    void eat_token(int code, const share_str& message);
    void eat_x_token(int code, const share_str& message);
    int get_x_token(token* out);

private:
    /// Where `continue` and `break` of a loop go.
    typedef std::pair<int, int> loop_targets;

    /// How `read_one` takes a token that cannot begin a sentence.
    enum block_kind { whole_block, single_sentence };

    int compile_main(xmachine& m);
    bool read_one(block_kind kind);
    void dispatch(int keyword);
    int emitted(int addr);
    int emit(code_type type);
    int emit(code_type type, const base_var& operand);
    int emit_jump(code_type type, int target = 0);
    void patch(int addr);
    void arrive_line();
    int take(token* out);
    void expect(int code, const char* message);
    void expect_x(int code, const char* message);

    xlexer* xlexer_;
    xmachine* machine_;
    xmethod* method_;
    std::vector<loop_targets> loops_;
    xrterror last_error_;
    int last_line_;
};

/// Compiles a script file into a machine of its own and runs it.
class KRO_API xmaker {
public:
    /// To the machine's output stream.
    int make(const char* path);
    /// To `os`; the machine's output stream is put back afterwards.
    int make(const char* path, std::ostream& os);
    /// To a new file. An existing one is overwritten, or with `keep_existing`
    /// refused with `err::overrun`; `err::file_system` when it cannot be opened.
    int make(const char* path, const char* out_path, bool keep_existing);

    xcompiler& xpp() { return compiler_; }
    xmachine& mac() { return machine_; }

private:
    int compile(const char* path);

    xcompiler compiler_;
    xmachine machine_;
};

} // namespace xpp

#endif
