// What the commands on scripts have in common.
#ifndef STDKRO_KRO_SCRIPT_H
#define STDKRO_KRO_SCRIPT_H

#include "definition.h"

#include <stdkro/xpp.h>

#include <string>
#include <vector>

/// A script in memory: its name for messages, and the lexer that holds its text.
struct script {
    std::string name;
    xpp::xlexer lexer { '$', '[', ']' };

    /// Loads the file; "-" is standard input.
    int load(const std::string& path);
    /// Line `number`, counted from 1, without its end.
    std::string line(int number) const;
    /// At least 1; what stands behind the last line end is a line too unless it is empty.
    int count_lines() const;
};

/// "FILE:LINE: error 0x...: MESSAGE" and the source line, as text.
std::string describe_error(const script& s, int line, const xrterror& e);

/// Makes the global variables; a later definition of a name replaces the earlier.
/// Throws `usage_error` for the name of a function.
void define(xpp::xfield& names, const std::vector<definition>& definitions);

/// Fills the machine, or prints what is wrong with the script. Returns the exit status.
int compile(xpp::xmachine& machine, script& s);

/// Prints that the file cannot be read. Returns the exit status.
int report_unreadable(const script& s, int status);

#endif
