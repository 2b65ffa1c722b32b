// The commands of the tool, each in its cmd_NAME.cpp.
#ifndef STDKRO_KRO_COMMANDS_H
#define STDKRO_KRO_COMMANDS_H

#include "command.h"

int err_command(const arguments& words);
int eval_command(const arguments& words);
int match_command(const arguments& words);
int scan_command(const arguments& words);
int automaton_command(const arguments& words);
int list_command(const arguments& words);
int run_command(const arguments& words);
/// The same among the output of others.
int run_script(const arguments& words);
int debug_command(const arguments& words);
int ini_command(const arguments& words);
int xml_command(const arguments& words);
int mml_command(const arguments& words);
int proc_command(const arguments& words);
int log_command(const arguments& words);
int logd_command(const arguments& words);
int messages_command(const arguments& words);
int shell_command(const arguments& words);
int net_command(const arguments& words);

#endif
