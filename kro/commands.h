// The commands of the tool, each in its cmd_NAME.cpp.
#ifndef STDKRO_KRO_COMMANDS_H
#define STDKRO_KRO_COMMANDS_H

#include "command.h"

int err_command(const command_words& words);
int eval_command(const command_words& words);
int match_command(const command_words& words);
int scan_command(const command_words& words);
int automaton_command(const command_words& words);
int list_command(const command_words& words);
int run_command(const command_words& words);
/// The same while the console is in use.
int run_script(const command_words& words);
int debug_command(const command_words& words);
int ini_command(const command_words& words);
int xml_command(const command_words& words);
int mml_command(const command_words& words);
int proc_command(const command_words& words);
int log_command(const command_words& words);
int logd_command(const command_words& words);
int messages_command(const command_words& words);
int shell_command(const command_words& words);
int net_command(const command_words& words);

#endif
