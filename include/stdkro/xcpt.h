// Status codes, their messages, and the exceptions that carry them.
//
// A status code is an `int`: zero or positive is success, negative is an error,
// built as 0x80000000 | class << 16 | number. Functions return status codes; an
// `xcpt` is thrown only where a code cannot be returned.
//
// Beside them stand the small calendar and version helpers.
#ifndef STDKRO_XCPT_H
#define STDKRO_XCPT_H

#include <stdkro/config.h>

/// The status codes of the library. Their texts come from `get_err_info`.
namespace err {

/// The status code of number `minor` in class `major` (0..15).
constexpr int make(unsigned major, unsigned minor)
{
    return static_cast<int>(0x80000000u | major << 16 | minor);
}

constexpr int ok = 0;

// Class 0, bug: a misuse or an internal inconsistency.         ORDER messages
constexpr int internal = make(0, 1);
constexpr int divide_zero = make(0, 2);
constexpr int not_initialized = make(0, 3);
constexpr int non_left_value = make(0, 4);
constexpr int non_right_value = make(0, 5);
constexpr int illegal_operator = make(0, 6);
constexpr int bad_argument = make(0, 7);
constexpr int overflow = make(0, 8);
constexpr int underflow = make(0, 9);

// Class 1, panic: an exhausted resource.                       ORDER messages
constexpr int overrun = make(1, 1);
constexpr int out_of_memory = make(1, 2);
constexpr int little_of_resource = make(1, 3);

// Class 2, runtime: an ordinary failure of an operation.       ORDER messages
constexpr int failed = make(2, 1);
constexpr int file_system = make(2, 2);
constexpr int execute_process = make(2, 3);
constexpr int not_exist = make(2, 4);
constexpr int syntax = make(2, 5);
constexpr int unexpected = make(2, 6);
constexpr int abnormal_end = make(2, 7);
constexpr int undefined_symbol = make(2, 8);
constexpr int duplicated_symbol = make(2, 9);
constexpr int conflict = make(2, 10);
constexpr int not_implemented = make(2, 11);
constexpr int timeout = make(2, 12);
constexpr int rejected = make(2, 13);
constexpr int invalid_parameter = make(2, 14);
constexpr int abnormal_cast = make(2, 15);
constexpr int exit = make(2, 16);
constexpr int unprepared = make(2, 17);

// Class 3, network.                                            ORDER messages
constexpr int network = make(3, 1);
constexpr int shut_up = make(3, 2);
constexpr int connection_reset = make(3, 3);
constexpr int receive = make(3, 4);
constexpr int send = make(3, 5);
constexpr int connection = make(3, 6);
constexpr int unblock = make(3, 7);
constexpr int interrupted = make(3, 8);
constexpr int shut_up_by_peer = make(3, 9);
constexpr int setsockopt = make(3, 10);

} // namespace err

/// The exception of the library: a status code and a borrowed text.
/// Thrown by value. The text is never copied or freed: pass a literal.
class KRO_API xcpt {
public:
    xcpt(int err, const char* msg) : err_(err), msg_(msg) {}

    /// The status code.
    int get_err() const { return err_; }
    /// The text as given; may be null.
    const char* what() const { return msg_; }

protected:
    int err_;
    const char* msg_;
};

/// The run-time error of the languages and document readers: an `xcpt` whose
/// text is formatted into a buffer of its own (at most 255 characters).
/// Catch it by reference: a copy made into an `xcpt` would point into an
/// object that is gone.
class KRO_API xrterror : public xcpt {
public:
    /// Code 0 and an empty text.
    xrterror();
    /// printf-style; a longer text is cut at 255 characters.
    xrterror(int err, const char* format, ...) KRO_PRINTF(3, 4);
    xrterror(const xrterror& other);
    xrterror& operator=(const xrterror& other);

private:
    char text_[256];
};

/// The message of a status code. Never null and never fails: "<OK>" for codes
/// that are not errors, "<MAJOR ERROR>" for classes above 15, "<MAJOR NONE>" for
/// a class without messages, "<MINOR ERROR>" for a number without a message.
/// The text belongs to whoever registered it.
KRO_API const char* get_err_info(int code);

/// Installs or replaces the messages of class `major`, which must be 0..15 and
/// is not checked. `table` holds `count` texts, entry 0 being the placeholder;
/// it is not copied and must outlive its use. Call at start-up, from one thread.
KRO_API void set_err_info(int major, const char* const* table, unsigned count);

/// The local calendar date, raw: years since 1900, month 0..11, day 1..31.
/// Null pointers are skipped. Not safe against concurrent calls.
KRO_API void gettime(int* year, int* month, int* day);
/// Years since 1900.
KRO_API int getyear();
/// Month, 0..11.
KRO_API int getmonth();
/// Day of the month, 1..31.
KRO_API int getday();

/// Writes the local time of `t` (seconds since 1970) as
/// "2026-01-31, 23:59:59" into at most `n` bytes. A text that fills all `n`
/// bytes is not terminated; a time without a local form is the empty text.
/// Returns `dst`.
KRO_API char* print_time(char* dst, int n, long t);
/// The same into 24 bytes.
KRO_API char* print_time(char* dst, long t);

/// Writes a duration in seconds as "1d2h3m4s" into at most `n` bytes. A text
/// that fills all `n` bytes is not terminated. Returns `dst`.
KRO_API char* print_time_span(char* dst, int n, long seconds);
/// The same into 24 bytes.
KRO_API char* print_time_span(char* dst, long seconds);

/// Reads "major.minor.micro"; 0 unless all three numbers were there.
KRO_API int read_ver(const char* s);
/// Writes a packed version as "major.minor.micro" into `dst` (14 bytes or more).
/// Returns `dst`.
KRO_API char* format_ver(char* dst, int ver);

/// A version number in one `int`: major in bits 24..31, minor in bits 16..23,
/// micro in bits 0..15. An odd micro number marks a beta.
class KRO_API version {
public:
    /// `ver` is stored as given, not masked.
    version(int ver) : ver_(ver) {}
    /// Each part is cut to its width.
    version(int major, int minor, int micro);

    int get_ver() const { return ver_; }
    operator int() const { return ver_; }
    int get_major() const { return static_cast<int>(static_cast<unsigned>(ver_) >> 24); }
    int get_minor() const { return ver_ >> 16 & 0xFF; }
    int get_micro() const { return ver_ & 0xFFFF; }
    bool is_beta() const { return (ver_ & 1) != 0; }

    version& operator=(int ver)
    {
        ver_ = ver;
        return *this;
    }

private:
    int ver_;
};

#endif
