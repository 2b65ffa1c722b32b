// Command-line options: a table of patterns, and a scanner that stores values into
// their targets or calls their handlers.
//
//     int port = 7906;
//     int verbose = 0;
//     option options;
//     options.add("port", 'p', &port);
//     options.add_bool("verbose", 'v', &verbose);
//     int position;
//     const int r = options.read_argv(argc - 1, argv + 1, &position);
//
// An option is written --name, -c, /c, or as its one character alone; a value is
// the next argument. Short options are not grouped. Scanning stops at the first
// argument that is no option; `position` then names it.
#ifndef STDKRO_OPTION_H
#define STDKRO_OPTION_H

#include <stdkro/config.h>

#include <vector>

struct option_pattern;

/// Called for a handler's option at `index` of the arguments; `number` is the matched
/// pattern's place in `table`. Returns the index of the last argument that it used,
/// or a negative status code to stop. A result below `index` counts as `index`.
typedef int (*option_handler)(int argc, char** argv, int index, const option_pattern* table, int number);

/// The same as an object.
class KRO_API option_functor {
public:
    virtual ~option_functor();
    virtual int call(int argc, char** argv, int index, const option_pattern* table, int number) = 0;
};

/// What the target of a pattern is.
enum option_kind {
    option_flag = 1,    ///< `int*`, set to 1
    option_integer = 2, ///< `int*`, set to the next argument, read as by atoi
    option_text = 3,    ///< `char**`, set to the next argument, which is not copied
    option_call = 4,    ///< an option_handler
    option_object = 5   ///< `option_functor*`
};

/// One option. A table of them ends with a null name. The texts are not owned.
struct option_pattern {
    /// The long name without dashes.
    const char* name;
    /// The short name, 0 for none. A byte above 127 may be given as itself or as a negative char.
    int short_name;
    /// An option_kind.
    int kind;
    /// Kinds 1 to 3 may have none: the value is then read and dropped.
    void* target;
};

/// The number of the pattern that `argument` names. 0x80020005 when it is not written
/// as an option, 0x80020006 when no pattern has that name.
KRO_API int match_opt(const char* argument, const option_pattern* table);

/// Reads `count` arguments, the program's name not among them. Returns `count`, or the status
/// code of the first argument that could not be used: those of `match_opt`,
/// 0x80020007 for a missing value, or what a handler returned. `position`, which may
/// be null, receives its index. Targets set before keep their values.
KRO_API int read_argv(int count, char** argv, const option_pattern* table, int* position);

/// A growable table of patterns, matched in the order they were added.
class KRO_API option {
public:
    /// Each returns 0, or 0x80010002 without memory.
    int add_bool(const char* name, int short_name, int* target);
    int add(const char* name, int short_name, int* target);
    int add(const char* name, int short_name, char** target);
    int add(const char* name, int short_name, option_handler handler);
    int add(const char* name, int short_name, option_functor* functor);

    /// As the function of that name; 0x80010002 without memory.
    int read_argv(int count, char** argv, int* position);

private:
    int append(const option_pattern& pattern);
    bool is_terminated() const { return !patterns_.empty() && !patterns_.back().name; }

    std::vector<option_pattern> patterns_;
};

#endif
