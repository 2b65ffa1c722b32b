// Statics that log and read texts, made before and after everything else in the program and so
// destroyed after and before it. statics.cmake compares what is written.
//
// The program is linked twice: with the shared library, as its users do, and with the
// library's own objects. `silent` and `earliest` are then made before the statics of
// the library itself.
#include "speaker.h"

#include <stdkro/process.h>
#include <stdkro/writer.h>
#include <stdkro/xpp.h>

#include <cstdlib>
#include <cstring>
#include <sstream>

namespace {

// Speaks at its end only. Nothing has made the debug channel before it: its words come
// after the channel has gone, or just before where libraries end after the program.
class last_word {
public:
    ~last_word()
    {
        logger::print(lv_hint, "silent ends\n");
        DBGDC::dc().print("silent prints\n");
        DBGDC::dc().get_writer().write("silent writes\n");
    }
};

// Evaluates and runs a script at its end, when what the library made later has gone.
class last_reader {
public:
    ~last_reader()
    {
        if (!evaluates() || !runs())
            std::_Exit(4);
    }
    static bool evaluates()
    {
        ecalc calc;
        base_var v;
        return calc.calc_expr(v, "1 + 2 * 3") >= 0 && v.is_int() && v.get_int() == 7;
    }
    static bool runs()
    {
        xpp::xlexer lexer('$', '[', ']');
        xpp::xmachine machine;
        xpp::xcompiler compiler;
        std::ostringstream out;
        machine.set_ostream(&out);
        lexer.load_string("$[if 1]a$[@3]$[end]");
        return compiler.compile(machine, &lexer) >= 0 && machine.run() >= 0 && out.str() == "a3";
    }
};

constexpr int first_of_all = 101, last_of_all = 65535;

__attribute__((init_priority(first_of_all))) last_word silent;
__attribute__((init_priority(first_of_all))) last_reader reading;
__attribute__((init_priority(first_of_all))) speaker earliest("earliest");
__attribute__((init_priority(last_of_all))) speaker latest("latest");

// Loads the module, unloads it, and leaves it loaded for the end of the program.
void load(const char* name)
{
    module first, second;
    if (first.load(name) < 0)
        std::exit(2);
    first.unload();
    if (second.load(name) < 0)
        std::exit(3);
    second.set_handle(nullptr); // forgotten
}

} // namespace

// program file PATH | program module NAME | program
int main(int count, char** words)
{
    if (count == 3 && std::strcmp(words[1], "file") == 0 && !DBGDC::dc().get_writer().open_file(words[2], "w"))
        return 1;
    logger::print(lv_hint, "main\n");
    if (!last_reader::evaluates() || !last_reader::runs())
        return 4;
    if (count == 3 && std::strcmp(words[1], "module") == 0)
        load(words[2]);
    static const speaker in_main("in main");
    return 0;
}
