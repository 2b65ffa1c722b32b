// The dynamically typed value.
//
// A value is one 64-bit word, a text and a tag. Only strings have a text: numbers
// neither make nor release one, which keeps copying them to two plain stores.
// What is frequent and short stands in the header; here is what needs the text,
// the two-operand rules, and the conversions.
#include <stdkro/base_var.h>

#include <stdkro/str.h>

#include "gbk_texts.h"
#include "number_text.h"
#include "text_class.h"

#include <cmath>
#include <new>
#include <ostream>

namespace {

int wrap(std::uint32_t v) { return static_cast<int>(v); }
std::uint32_t bits_of(int v) { return static_cast<std::uint32_t>(v); }

// The quotient and the remainder of the smallest int and -1 have no int: they wrap.
int quotient(int a, int b) { return b == -1 ? wrap(0u - bits_of(a)) : a / b; }
int remainder_of(int a, int b) { return b == -1 ? 0 : a % b; }

// KEEP: what lies outside the ints compares as 0x80000000, so as "below".
int difference(double a, double b) { return double_to_int(a - b); }

// The sign only: strcmp's number differs between platforms.
int compare_texts(const share_str& a, const share_str& b)
{
    const int order = std::strcmp(a.c_str(), b.c_str());
    return (order > 0) - (order < 0);
}

bool is_whole_int(const char* text, int& v) { return *parse_int(text, v) == '\0'; }
bool is_whole_double(const char* text, double& v) { return *parse_double(text, v) == '\0'; }

} // namespace

const share_str& base_var::no_text()
{
    // Never destroyed, so that values have texts in destructors of statics too.
    alignas(share_str) static unsigned char place[sizeof(share_str)];
    static const share_str& empty = *new (place) share_str;
    return empty;
}

// ---- assignment --------------------------------------------------------------

base_var& base_var::assign_slowly(const base_var& other) noexcept
{
    const base_var& final_target = other.get_ref();
    if (&final_target == this)
        return *this; // this itself, or a loop of references
    if (other.is_ref()) // `other` may refer to its target through this object
        return store(reinterpret_cast<std::uintptr_t>(&final_target), other.flags_);
    if (other.has_text()) {
        *this = other.text_;
        return mark(other.bits_, other.flags_);
    }
    return store(other.bits_, other.flags_);
}

base_var& base_var::move_slowly(base_var& other) noexcept
{
    if (&other == this || !other.has_text())
        return assign_slowly(other);
    if (has_text())
        text_.swap(other.text_);
    else
        new (&text_) share_str(std::move(other.text_));
    mark(other.bits_, other.flags_);
    other.become(none, err::not_initialized);
    return *this;
}

base_var& base_var::raw_evaluate(const base_var& v) noexcept
{
    const base_var& source = v.get_ref();
    if (raw_type() == error)
        return *this; // an error stays the first one
    if (!raw_is_lvalue()) {
        raw_set_error(err::non_left_value);
        return *this;
    }
    if (&source == this)
        return *this;
    if (source.has_text()) {
        *this = source.text_;
        bits_ = source.bits_;
        return *this;
    }
    return store(source.bits_, source.raw_type());
}

base_var& base_var::raw_evaluate(const share_str& v) noexcept { return raw_evaluate(base_var(v)); }
base_var& base_var::raw_evaluate(long v) noexcept { return raw_evaluate(base_var(v)); }
base_var& base_var::raw_evaluate(double v) noexcept { return raw_evaluate(base_var(v)); }

// ---- questions and flags -----------------------------------------------------

int base_var::get_err() const
{
    const base_var& v = get_ref();
    switch (v.raw_type()) {
    case none:
        return err::not_initialized;
    case error:
        return v.raw_int();
    default:
        return err::ok;
    }
}

void base_var::set_const(bool on)
{
    base_var& v = target();
    v.flags_ = static_cast<std::uint16_t>(on ? v.flags_ | const_flag : v.flags_ & ~const_flag);
}

void base_var::set_valid(bool on)
{
    base_var& v = target();
    if ((v.raw_type() != error) != on)
        v.become(on ? none : error, err::not_initialized);
}

void base_var::raw_set_error(int code) { become(error, code); }

void base_var::refer(base_var& other)
{
    base_var& final_target = other.get_ref();
    if (&final_target == this)
        return;
    store(reinterpret_cast<std::uintptr_t>(&final_target), ref_flag);
}

// ---- conversion ----------------------------------------------------------------

share_str base_var::text_of(int v)
{
    char text[number_text_size];
    format_int(text, v);
    return text;
}

share_str base_var::text_of(double v)
{
    char text[number_text_size];
    format_double_g(text, v);
    return text;
}

share_str base_var::to_string() const
{
    const base_var& v = get_ref();
    switch (v.raw_type()) {
    case string:
        return v.text_;
    case integer:
        return text_of(v.raw_int());
    case real:
        return text_of(v.raw_double());
    case none:
    case error:
        throw xrterror(v.get_err(), "%s", "");
    }
    return gbk::bad_type_flag;
}

int base_var::to_int() const
{
    const base_var& v = get_ref();
    int number = 0;
    switch (v.raw_type()) {
    case string:
        parse_int(v.text_.c_str(), number);
        return number;
    case real:
        return double_to_int(v.raw_double());
    case none:
    case integer:
    case error:
        return v.raw_int();
    }
    return err::internal;
}

double base_var::to_double() const
{
    const base_var& v = get_ref();
    double number = 0;
    switch (v.raw_type()) {
    case string:
        parse_double(v.text_.c_str(), number);
        return number;
    case real:
        return v.raw_double();
    case none:
    case integer:
    case error:
        return v.raw_int();
    }
    return err::internal;
}

// KEEP: the number stays in the value word; only the text and the tag are new.
void base_var::become(share_str&& text)
{
    const std::uint64_t number = bits_;
    const unsigned constness = flags_ & const_flag;
    *this = text;
    mark(number, constness | string);
}

// What has no value is no value of another type either; an error stays as it is.
static bool refuse_cast(base_var& v)
{
    if (v.raw_type() != base_var::error)
        v.raw_set_error(v.raw_type() == base_var::none ? err::not_initialized : err::internal);
    return false;
}

bool base_var::cast(type to)
{
    switch (to) {
    case string:
        return cast_string();
    case integer:
        return cast_int();
    case real:
        return cast_double();
    default:
        return false;
    }
}

bool base_var::cast_string()
{
    base_var& v = target();
    switch (v.raw_type()) {
    case string:
        return true;
    case integer:
        v.become(text_of(v.raw_int()));
        return true;
    case real:
        v.become(text_of(v.raw_double()));
        return true;
    default:
        return refuse_cast(v);
    }
}

bool base_var::cast_int()
{
    base_var& v = target();
    int number = 0;
    switch (v.raw_type()) {
    case string:
        if (!is_whole_int(v.text_.c_str(), number))
            return v.fail(err::abnormal_cast);
        v.become(integer, number);
        return true;
    case integer:
        return true;
    case real:
        v.become(integer, double_to_int(v.raw_double()));
        return true;
    default:
        return refuse_cast(v);
    }
}

bool base_var::cast_double()
{
    base_var& v = target();
    double number = 0;
    switch (v.raw_type()) {
    case string:
        if (*v.text_.c_str() != '\0' && !is_whole_double(v.text_.c_str(), number))
            return v.fail(err::abnormal_cast);
        v.become(number);
        return true;
    case integer:
        v.become(static_cast<double>(v.raw_int()));
        return true;
    case real:
        return true;
    default:
        return refuse_cast(v);
    }
}

// KEEP: the empty text is the int 0: unset options and empty fields count as zero.
bool base_var::from_string(const char* text)
{
    const char* const whole = text ? text : "";
    int number = 0;
    double fraction = 0;
    if (is_whole_int(whole, number))
        evaluate(number);
    else if (is_whole_double(whole, fraction))
        evaluate(fraction);
    else
        evaluate(whole);
    return true;
}

// ---- two operands ----------------------------------------------------------------

const base_var* base_var::raw_prepare2(const base_var& rhs, base_var& tmp)
{
    const base_var& r = rhs.get_ref();
    const type mine = raw_type();
    const type theirs = r.raw_type();
    int code = err::internal;
    if (mine == error)
        return nullptr; // the first error of a chain survives
    if (!raw_is_lvalue()) {
        code = err::non_left_value;
    } else if (!r.raw_is_rvalue()) {
        code = err::non_right_value;
    } else if (mine == none) {
        code = err::not_initialized;
    } else if (mine == theirs) {
        return &r;
    } else if (mine == string || theirs == string) {
        code = err::illegal_operator;
    } else if (mine == integer && theirs == real) {
        become(static_cast<double>(raw_int()));
        return &r;
    } else if (mine == real && theirs == integer) {
        tmp = static_cast<double>(r.raw_int());
        return &tmp;
    }
    raw_set_error(code);
    return nullptr;
}

// The operation sees two operands of one type, which is string, int or double.
template <class OPERATION>
base_var& base_var::raw_oper2(const base_var& rhs, OPERATION operation)
{
    base_var tmp;
    if (const base_var* r = raw_prepare2(rhs, tmp))
        operation(*this, *r);
    return *this;
}

// An operation on numbers: what it makes of two ints, and of two doubles.
template <class INTS, class DOUBLES>
base_var& base_var::raw_numeric2(const base_var& rhs, INTS ints, DOUBLES doubles)
{
    return raw_oper2(rhs, [&](base_var& a, const base_var& b) {
        if (a.raw_type() == integer)
            a.become(integer, static_cast<int>(ints(a.raw_int(), b.raw_int())));
        else if (a.raw_type() == real)
            a.become(static_cast<double>(doubles(a.raw_double(), b.raw_double())));
        else
            a.raw_set_error(err::illegal_operator);
    });
}

base_var& base_var::add(const base_var& rhs)
{
    return raw_oper2(rhs, [](base_var& a, const base_var& b) {
        if (a.raw_type() == integer) {
            a.become(integer, wrap(bits_of(a.raw_int()) + bits_of(b.raw_int())));
        } else if (a.raw_type() == real) {
            a.become(a.raw_double() + b.raw_double());
        } else if (a.has_text()) {
            const unsigned sum = a.text_.length() + b.text_.length();
            a.text_ += b.text_;
            if (a.text_.length() != sum)
                a.raw_set_error(err::out_of_memory);
        }
    });
}

base_var& base_var::subtract(const base_var& rhs)
{
    return raw_numeric2(
        rhs, [](int a, int b) { return wrap(bits_of(a) - bits_of(b)); }, [](double a, double b) { return a - b; });
}

base_var& base_var::multiply(const base_var& rhs)
{
    return raw_numeric2(
        rhs, [](int a, int b) { return wrap(bits_of(a) * bits_of(b)); }, [](double a, double b) { return a * b; });
}

base_var& base_var::divide(const base_var& rhs)
{
    return raw_oper2(rhs, [](base_var& a, const base_var& b) {
        if (a.raw_type() == real)
            a.become(a.raw_double() / b.raw_double());
        else if (a.raw_type() != integer)
            a.raw_set_error(err::illegal_operator);
        else if (b.raw_int() == 0)
            a.raw_set_error(err::divide_zero);
        else
            a.become(integer, quotient(a.raw_int(), b.raw_int()));
    });
}

base_var& base_var::remainder(const base_var& rhs)
{
    return raw_oper2(rhs, [](base_var& a, const base_var& b) {
        if (a.raw_type() != integer)
            a.raw_set_error(err::illegal_operator);
        else if (b.raw_int() == 0)
            a.raw_set_error(err::divide_zero);
        else
            a.become(integer, remainder_of(a.raw_int(), b.raw_int()));
    });
}

base_var base_var::cmp(const base_var& a, const base_var& b)
{
    base_var result = fresh(a);
    result.raw_oper2(b, [](base_var& x, const base_var& y) {
        if (x.raw_type() == integer)
            x.become(integer, wrap(bits_of(x.raw_int()) - bits_of(y.raw_int())));
        else if (x.raw_type() == real)
            x.become(integer, difference(x.raw_double(), y.raw_double()));
        else if (x.has_text())
            x.become(integer, compare_texts(x.text_, y.text_));
    });
    return result;
}

base_var base_var::op_or(const base_var& a, const base_var& b)
{
    base_var result = fresh(a);
    const auto either = [](auto x, auto y) { return x != 0 || y != 0; };
    result.raw_numeric2(b, either, either);
    return result;
}

base_var base_var::op_and(const base_var& a, const base_var& b)
{
    base_var result = fresh(a);
    const auto both = [](auto x, auto y) { return x != 0 && y != 0; };
    result.raw_numeric2(b, both, both);
    return result;
}

base_var base_var::op_not() const
{
    base_var result = fresh(*this);
    switch (result.raw_type()) {
    case integer:
        result.become(integer, result.raw_int() == 0);
        break;
    case real:
        result.become(integer, result.raw_double() == 0.0);
        break;
    case string:
        result.raw_set_error(err::illegal_operator);
        break;
    case none:
        result.raw_set_error(err::not_initialized);
        break;
    case error:
        break;
    }
    return result;
}

std::ostream& operator<<(std::ostream& out, const base_var& v) { return out << v.to_string(); }

// ---- the text form of one value ------------------------------------------------

namespace {

// `s` stands behind the opening quote, `end` where the value ends.
share_str quoted_text(const char* s, const char* end)
{
    share_str text;
    char* const first = text.lock(static_cast<unsigned>(end - s));
    if (!first)
        return text;
    char* to = first;
    while (s < end && *s != '"') {
        if (*s == '\\' && s + 1 < end)
            *to++ = unescaped(*++s);
        else
            *to++ = *s;
        ++s;
    }
    *to = '\0';
    text.unlock(static_cast<unsigned>(to - first));
    return text;
}

} // namespace

const char* str::read_value(const char* s, base_var& out)
{
    const char* const text = s ? s : "";
    const char* const end = skip_value(text);
    if (*text == '"')
        out.evaluate(quoted_text(text + 1, end));
    else
        out.from_string(share_str(text, end).c_str());
    return s ? end : nullptr;
}
