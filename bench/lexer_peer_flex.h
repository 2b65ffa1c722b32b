// What the flex scanner of the lexer benchmark delivers.
#ifndef STDKRO_BENCH_LEXER_PEER_FLEX_H
#define STDKRO_BENCH_LEXER_PEER_FLEX_H

#include <cstdlib>
#include <string>

struct flex_value {
    std::string text;
    long integer = 0;
    double real = 0;
};

#endif
