// One expression, evaluated for somebody who reads the answer.
#ifndef STDKRO_KRO_EVALUATION_H
#define STDKRO_KRO_EVALUATION_H

#include <stdkro/ecalc.h>

#include <string>

/// Prints the value of the expression, or to standard error what is wrong and where.
/// Returns the exit status.
int evaluate_and_print(ecalc& calc, const std::string& text);

#endif
