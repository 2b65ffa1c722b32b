// The output of a debugged script, marked so that it cannot be taken for the
// debugger's own words.
#ifndef STDKRO_KRO_MARKED_OUTPUT_H
#define STDKRO_KRO_MARKED_OUTPUT_H

#include "progress.h"

#include <iostream>
#include <streambuf>

/// Writes to standard output. A line of the script begins with "| "; when a stop broke
/// it, the rest follows on a line that begins with "+ ".
class marked_output : public std::streambuf {
public:
    /// Makes sure that what others write begins on a line of its own.
    void break_line()
    {
        if (place_ != inside)
            return;
        std::cout << '\n';
        place_ = broken;
    }
    /// The next text begins a line.
    void begin_line()
    {
        break_line();
        place_ = line_begin;
    }

protected:
    int_type overflow(int_type c) override
    {
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        before_output();
        if (place_ != inside)
            std::cout << (place_ == broken ? "+ " : "| ");
        std::cout << traits_type::to_char_type(c);
        place_ = c == '\n' ? line_begin : inside;
        return c;
    }

private:
    enum { line_begin, inside, broken } place_ = line_begin;
};

#endif
