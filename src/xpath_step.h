// Steps of paths, in place: what the walks of the tree read.
#ifndef STDKRO_SRC_XPATH_STEP_H
#define STDKRO_SRC_XPATH_STEP_H

#include <stdkro/xpath.h>

/// A place in a path that ends at `end` or, where that is null, at its NUL.
struct path_place {
    const char* p;
    const char* end;

    bool at_end() const { return end ? p >= end : *p == '\0'; }
    bool at(char c) const { return !at_end() && *p == c; }
    bool at_digit() const { return !at_end() && *p >= '0' && *p <= '9'; }
};

/// A step whose name stands in the path: see `xstep`.
struct path_step {
    int kind = xstep::none;
    int index = -1;
    const char* name = "";
    unsigned length = 0;

    /// The position: none given counts as 0.
    int position() const { return index == -1 ? 0 : index; }
    /// Whether another step may follow.
    bool leads_on() const { return kind == xstep::root || kind == xstep::element; }
};

/// Reads a step and the "/" behind it. On failure `at` is anywhere.
int read_path_step(path_place& at, path_step& step);

#endif
