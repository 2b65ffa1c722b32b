// The functions that every expression and every script can call.
//
// Each is a small function over its argument queue. The argument checks stand
// first in each, because what a failed call leaves in the result differs from
// function to function and programs may look at it.
#include <stdkro/ecalc.h>

#include "number_text.h"

#include <stdkro/xcpt.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <utility>

// ORDER built_in
const char* const einterpret::built_in::names[count + 1] = {
    "oct",       "hex",    "toupper",   "tolower",   "string",   "int",      "echo",
    "align",     "format", "exist",     "getvar",    "is_string", "is_int",  "is_lvalue",
    "is_rvalue", "is_valid", "is_const", "is_ref",   nullptr,
};

// ORDER built_in
const method einterpret::built_in::methods[count] = {
    var_oct,       var_hex,      var_toupper,  var_tolower,   var_tostring, var_toint,     var_echo,
    var_align,     var_format,   var_exist,    var_getvar,    var_is_string, var_is_int,   var_is_lvalue,
    var_is_rvalue, var_is_valid, var_is_const, var_is_ref,
};

namespace {

typedef cycque<base_var> arguments;

/// Stores what `predicate` says of the only argument.
int ask(base_var& result, arguments& args, bool (base_var::*predicate)() const)
{
    if (args.count() != 1)
        throw xrterror(err::invalid_parameter, "argument must be 1.");
    result = (args[0].*predicate)() ? 1 : 0;
    return err::ok;
}

/// A copy of the only argument, to be cast.
base_var only_argument(arguments& args)
{
    // KEEP: the message is "1"; programs compare it.
    if (args.count() != 1)
        throw xrterror(err::invalid_parameter, "1");
    return base_var::fresh(args[0]);
}

bool is_one_string(arguments& args) { return args.count() == 1 && args[0].is_string(); }

share_str only_string(arguments& args)
{
    if (!is_one_string(args))
        throw xrterror(err::invalid_parameter, "argument must be a string.");
    return args[0].get_string();
}

/// The text with each byte from `first` on to 'A'..'Z' or 'a'..'z' moved to `other`.
share_str recased(const share_str& text, char first, char other)
{
    share_str changed(text);
    const unsigned length = changed.length();
    char* const bytes = changed.lock();
    if (!bytes)
        return share_str();
    for (unsigned i = 0; i < length; ++i) {
        const int letter = bytes[i] - first;
        if (letter >= 0 && letter < 26)
            bytes[i] = static_cast<char>(other + letter);
    }
    changed.unlock(length);
    return changed;
}

constexpr int widest = 4096;

/// "%*f" with six digits behind the point.
share_str fixed_text(double value)
{
    // The largest double has 309 digits before its point.
    char text[400];
    if (std::isnan(value))
        return share_str("nan");
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6);
    return share_str(text, end.ptr);
}

/// `text` up to its NUL, padded with blanks to `width`, on the right when that is
/// negative. A longer text stays whole.
share_str padded(const share_str& text, int width)
{
    const int limited = width > widest ? widest : width < -widest ? -widest : width;
    const unsigned wanted = static_cast<unsigned>(limited < 0 ? -limited : limited);
    const unsigned length = static_cast<unsigned>(std::strlen(text.c_str()));
    if (length >= wanted)
        return length == text.length() ? text : text.substr(0, length);
    char blanks[widest];
    const unsigned missing = wanted - length;
    std::memset(blanks, ' ', missing);
    share_str line;
    if (!line.reserved(wanted))
        return share_str();
    if (limited > 0)
        line.insert(0, blanks, missing);
    line += text.c_str();
    if (limited < 0)
        line.insert(length, blanks, missing);
    return line;
}

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// Appends the bytes from `begin` up to `end`.
void append(share_str& out, const char* begin, const char* end)
{
    if (begin != end)
        out.insert(out.length(), begin, static_cast<unsigned>(end - begin));
}

/// Reads the number behind "%[". It stops growing once it is past the last
/// argument, so that no text of digits can wrap it.
unsigned read_index(const char*& p, unsigned count)
{
    unsigned index = 0;
    for (; is_digit(*p); ++p) {
        if (index < count)
            index = index * 10 + static_cast<unsigned>(*p - '0');
    }
    return index;
}

share_str formatted(const share_str& text, arguments& args)
{
    share_str out;
    out.reserved(text.length());
    const unsigned count = args.count();
    const char* p = text.c_str();
    const char* const end = p + text.length();
    const char* plain = p;
    while (p != end) {
        if (p[0] != '%' || p[1] != '[' || !is_digit(p[2])) {
            ++p;
            continue;
        }
        append(out, plain, p);
        p += 2;
        plain = p;
        const unsigned index = read_index(p, count);
        // KEEP: without its "]" a "%[" vanishes and the number stays as text.
        if (*p != ']')
            continue;
        if (index >= count)
            throw xrterror(err::undefined_symbol, "%s", "");
        out += args[index].to_string();
        plain = ++p;
    }
    append(out, plain, end);
    return out;
}

} // namespace

int einterpret::built_in::var_oct(einterpret&, base_var& result, arguments& args)
{
    // KEEP: the result is emptied first, so a failed call leaves "" behind; hex too.
    result = "";
    if (args.count() != 1 || !args[0].is_int())
        throw xrterror(err::invalid_parameter, "argument must be a integer.");
    char text[16];
    std::snprintf(text, sizeof text, "%o", static_cast<unsigned>(args[0].to_int()));
    result = text;
    return err::ok;
}

int einterpret::built_in::var_hex(einterpret&, base_var& result, arguments& args)
{
    result = "";
    if (args.count() < 1 || !args[0].is_int())
        throw xrterror(err::invalid_parameter, "argument less than 1 or first isn't integer.");
    const int asked = args.count() > 1 ? args[1].to_int() : 0;
    const int width = asked >= 1 && asked <= 8 ? asked : 0;
    char text[16];
    std::snprintf(text, sizeof text, "%0*x", width, static_cast<unsigned>(args[0].to_int()));
    result = text;
    return err::ok;
}

int einterpret::built_in::var_toupper(einterpret&, base_var& result, arguments& args)
{
    result = recased(only_string(args), 'a', 'A');
    return err::ok;
}

int einterpret::built_in::var_tolower(einterpret&, base_var& result, arguments& args)
{
    result = recased(only_string(args), 'A', 'a');
    return err::ok;
}

int einterpret::built_in::var_tostring(einterpret&, base_var& result, arguments& args)
{
    base_var value = only_argument(args);
    value.cast_string();
    result = std::move(value);
    return err::ok;
}

int einterpret::built_in::var_toint(einterpret&, base_var& result, arguments& args)
{
    base_var value = only_argument(args);
    value.cast_int();
    result = std::move(value);
    return err::ok;
}

int einterpret::built_in::var_echo(einterpret&, base_var& result, arguments& args)
{
    for (unsigned i = 0; i < args.count(); ++i)
        std::cout << args[i];
    std::cout.flush();
    result = static_cast<int>(args.count());
    return err::ok;
}

int einterpret::built_in::var_align(einterpret&, base_var& result, arguments& args)
{
    if (args.count() != 2)
        throw xrterror(err::invalid_parameter, "argument must be 2.");
    const base_var& value = args[0];
    if (!value.is_rvalue())
        throw xrterror(err::non_right_value, "first argument must be right value.");
    if (!args[1].is_int())
        throw xrterror(err::abnormal_cast, "second argument must be integer.");
    const int width = args[1].to_int();
    if (value.is_double())
        result = padded(fixed_text(value.to_double()), width);
    else if (value.is_int() || value.is_string())
        result = padded(value.to_string(), width);
    else
        throw xrterror(err::internal, "internal error.");
    return err::ok;
}

int einterpret::built_in::var_format(einterpret&, base_var& result, arguments& args)
{
    if (args.count() < 1 || !args[0].is_string())
        throw xrterror(err::invalid_parameter, "argument less than 1 or first isn't string.");
    result = formatted(args[0].get_string(), args);
    return err::ok;
}

int einterpret::built_in::var_exist(einterpret& interpreter, base_var& result, arguments& args)
{
    result = interpreter.get_var(only_string(args)) ? 1 : 0;
    return err::ok;
}

int einterpret::built_in::var_getvar(einterpret& interpreter, base_var& result, arguments& args)
{
    if (!is_one_string(args)) {
        result = "<not exist>";
        result.set_valid(false);
    }
    const share_str name = only_string(args);
    base_var* const variable = interpreter.get_var(name);
    if (!variable) {
        result = base_var();
        result.set_error(err::undefined_symbol);
        throw xrterror(err::undefined_symbol, "undefined symbol: %s", name.c_str());
    }
    result.refer(*variable);
    return err::ok;
}

int einterpret::built_in::var_is_string(einterpret&, base_var& result, arguments& args)
{
    return ask(result, args, &base_var::is_string);
}

int einterpret::built_in::var_is_int(einterpret&, base_var& result, arguments& args)
{
    return ask(result, args, &base_var::is_int);
}

int einterpret::built_in::var_is_lvalue(einterpret&, base_var& result, arguments& args)
{
    return ask(result, args, &base_var::is_lvalue);
}

int einterpret::built_in::var_is_rvalue(einterpret&, base_var& result, arguments& args)
{
    return ask(result, args, &base_var::is_rvalue);
}

int einterpret::built_in::var_is_valid(einterpret&, base_var& result, arguments& args)
{
    return ask(result, args, &base_var::is_valid);
}

int einterpret::built_in::var_is_const(einterpret&, base_var& result, arguments& args)
{
    return ask(result, args, &base_var::is_const);
}

int einterpret::built_in::var_is_ref(einterpret&, base_var& result, arguments& args)
{
    return ask(result, args, &base_var::is_ref);
}
