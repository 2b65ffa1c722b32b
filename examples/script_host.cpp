// A program that keeps its messages in a script: the script is compiled once,
// and the program calls its procedures with values and reads back the results.
#include <stdkro/xpp.h>

#include <iostream>

namespace {

const char script_text[] = R"xpp(
$[proc greeting(name, hour)]$
    $[if hour < 12]Good morning$[elif hour < 18]Good afternoon$[else]Good evening$[end], $[@name]!
$[end]

$[proc fee(amount)]$
    $[if amount < 1000]$[return 50]$[end]$
    $[return amount / 20]$
$[end]
)xpp";

/// Calls a procedure of the script and reports a failure.
bool call(xpp::xmachine& machine, const char* name, base_var& result, cycque<base_var>& args)
{
    if (machine.call(name, result, args) >= 0)
        return true;
    std::cerr << name << ": " << machine.get_last_error().what() << "\n";
    return false;
}

} // namespace

int main()
{
    xpp::xlexer lexer('$', '[', ']');
    lexer.load_string(script_text);
    xpp::xmachine machine;
    xpp::xcompiler compiler;
    if (compiler.compile(machine, &lexer) < 0) {
        std::cerr << "line " << compiler.get_last_line() << ": " << compiler.get_last_error().what() << "\n";
        return 1;
    }

    base_var result;
    cycque<base_var> args;
    args.push_back("Ada");
    args.push_back(9);
    if (!call(machine, "greeting", result, args))
        return 1;

    args.clear();
    args.push_back(4200);
    if (!call(machine, "fee", result, args))
        return 1;
    std::cout << "The fee is " << result << ".\n";
    return 0;
}
