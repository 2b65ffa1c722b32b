// The diagnostic of a broken precondition.
#ifndef STDKRO_SRC_BUG_H
#define STDKRO_SRC_BUG_H

/// Prints "BUG at MODULE:LINE!" and a line feed to standard output and returns:
/// it never aborts and never throws. `module` is the source path without its
/// ending, such as "src/string_str".
void report_bug(const char* module, int line);

#endif
