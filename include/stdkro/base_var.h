// The dynamically typed value of the languages.
#ifndef STDKRO_BASE_VAR_H
#define STDKRO_BASE_VAR_H

#include <stdkro/config.h>
#include <stdkro/share_str.h>
#include <stdkro/xcpt.h>

#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <new>
#include <utility>

/// A value: nothing yet, a string, a 32-bit int, a double, an error with its status
/// code, or a reference to another value.
///
/// Operations do not throw for bad operands. They turn the left operand into an
/// error value, which every further operation leaves alone: look once, at the end
/// of a chain, and find the first error.
///
/// Every operation follows a reference first and acts on what it refers to. The
/// exceptions are assignment with `=`, `copy`, `refer`, `is_ref`, and the
/// operations that begin with `raw_`: these act on the object itself.
///
/// A reference does not keep its target alive.
class KRO_API base_var {
public:
    /// The type tags.
    enum type {
        none = 0, ///< constructed but never given a value
        string = 1,
        integer = 2, ///< signed, 32 bits
        real = 3, ///< double
        error = 128 ///< holds a status code
    };

    // ---- construction -------------------------------------------------------

    base_var() noexcept : bits_(word(err::not_initialized)), flags_(none) {}
    base_var(char v) noexcept : base_var(static_cast<int>(static_cast<signed char>(v))) {}
    base_var(unsigned char v) noexcept : base_var(static_cast<int>(v)) {}
    base_var(int v) noexcept : bits_(word(v)), flags_(integer) {}
    base_var(unsigned v) noexcept : bits_(v), flags_(integer) {}
    /// The low 32 bits.
    base_var(long v) noexcept : bits_(static_cast<std::uint32_t>(v)), flags_(integer) {}
    base_var(unsigned long v) noexcept : bits_(static_cast<std::uint32_t>(v)), flags_(integer) {}
    base_var(float v) noexcept : base_var(static_cast<double>(v)) {}
    base_var(double v) noexcept : bits_(real_bits(v)), flags_(real) {}
    base_var(const char* v) noexcept : bits_(0), flags_(string) { new (&text_) share_str(v); }
    base_var(const share_str& v) noexcept : bits_(0), flags_(string) { new (&text_) share_str(v); }
    base_var(const base_var& other) noexcept : bits_(other.bits_), flags_(other.flags_)
    {
        if (has_text())
            new (&text_) share_str(other.text_);
    }
    /// Takes the other's text and leaves it `none`.
    base_var(base_var&& other) noexcept : bits_(other.bits_), flags_(other.flags_)
    {
        if (has_text()) {
            new (&text_) share_str(std::move(other.text_));
            other.become(none, err::not_initialized);
        }
    }
    ~base_var()
    {
        if (has_text())
            text_.~share_str();
    }

    // ---- plain assignment: replaces all of this object, its flags too -------

    // KEEP: no test for const, and const and reference are dropped. This is the low-level
    // store that variables, tokens and stacks are filled with; `evaluate` is the checked one.
    // Nothing happens when `other` is, or refers to, this object.
    base_var& operator=(const base_var& other) noexcept
    {
        if (has_text() || other.has_text() || other.is_ref())
            return assign_slowly(other);
        bits_ = other.bits_;
        flags_ = other.flags_;
        return *this;
    }
    base_var& operator=(base_var&& other) noexcept
    {
        if (has_text() || other.has_text() || other.is_ref())
            return move_slowly(other);
        bits_ = other.bits_;
        flags_ = other.flags_;
        return *this;
    }
    base_var& operator=(const share_str& v) noexcept
    {
        if (has_text())
            text_ = v;
        else
            new (&text_) share_str(v);
        return mark(0, string);
    }
    base_var& operator=(const char* v) noexcept
    {
        if (has_text())
            text_ = v;
        else
            new (&text_) share_str(v);
        return mark(0, string);
    }
    base_var& operator=(char v) noexcept { return *this = static_cast<int>(static_cast<signed char>(v)); }
    base_var& operator=(unsigned char v) noexcept { return *this = static_cast<int>(v); }
    base_var& operator=(int v) noexcept { return store(word(v), integer); }
    base_var& operator=(unsigned v) noexcept { return store(v, integer); }
    base_var& operator=(long v) noexcept { return store(static_cast<std::uint32_t>(v), integer); }
    base_var& operator=(unsigned long v) noexcept { return store(static_cast<std::uint32_t>(v), integer); }
    base_var& operator=(double v) noexcept { return store(real_bits(v), real); }
    /// The same as `=`.
    base_var& copy(const base_var& other) noexcept { return *this = other; }

    // ---- checked assignment -------------------------------------------------

    /// Gives the target a new value and type and keeps its flags. A const target
    /// becomes the error `err::non_left_value`, an error stays as it is. An error or
    /// `none` on the right is copied. Returns the target.
    base_var& evaluate(const base_var& v) noexcept { return target().raw_evaluate(v); }
    base_var& evaluate(const share_str& v) noexcept { return target().raw_evaluate(v); }
    base_var& evaluate(const char* v) noexcept { return target().raw_evaluate(share_str(v)); }
    base_var& evaluate(long v) noexcept { return target().raw_evaluate(v); }
    base_var& evaluate(int v) noexcept { return target().raw_evaluate(static_cast<long>(v)); }
    base_var& evaluate(double v) noexcept { return target().raw_evaluate(v); }
    base_var& raw_evaluate(const base_var& v) noexcept;
    base_var& raw_evaluate(const share_str& v) noexcept;
    base_var& raw_evaluate(long v) noexcept;
    base_var& raw_evaluate(double v) noexcept;

    // ---- questions ----------------------------------------------------------

    type get_type() const { return get_ref().raw_type(); }
    bool is_string() const { return get_type() == string; }
    bool is_int() const { return get_type() == integer; }
    bool is_double() const { return get_type() == real; }
    /// Not an error.
    bool is_valid() const { return get_type() != error; }
    /// Not `none`; errors count as initialized.
    bool is_initialized() const { return get_type() != none; }
    bool is_const() const { return (get_ref().flags_ & const_flag) != 0; }
    /// May be read: neither `none` nor an error.
    bool is_rvalue() const { return get_ref().raw_is_rvalue(); }
    /// May be assigned: neither const nor an error.
    bool is_lvalue() const { return get_ref().raw_is_lvalue(); }
    /// Is this object itself a reference?
    bool is_ref() const { return (flags_ & ref_flag) != 0; }
    /// The code of an error, `err::not_initialized` for `none`, otherwise 0.
    int get_err() const;

    /// The same type, flags and value, texts being the same when they share their buffer.
    bool raw_is_identical(const base_var& other) const
    {
        return bits_ == other.bits_ && flags_ == other.flags_
            && (!has_text() || text_.c_str() == other.text_.c_str());
    }
    type raw_type() const { return static_cast<type>(flags_ & tag_mask); }
    bool raw_is_rvalue() const { return raw_type() != none && raw_type() != error; }
    bool raw_is_lvalue() const { return (flags_ & (const_flag | error)) == 0; }

    // ---- flags --------------------------------------------------------------

    void set_const(bool on);
    /// When the validity changes, the value is lost: valid gives `none`, invalid the
    /// error `err::not_initialized`.
    void set_valid(bool on);
    /// Makes this the error `code`.
    void set_error(int code) { target().raw_set_error(code); }
    void raw_set_error(int code);

    // ---- the fields, without conversion --------------------------------------

    /// The int, or the status code of an error or `none`; otherwise the low word.
    int get_int() const { return get_ref().raw_int(); }
    double get_double() const { return get_ref().raw_double(); }
    /// The text of a string, otherwise the empty text. Valid until the value changes.
    const share_str& get_string() const
    {
        const base_var& v = get_ref();
        return v.has_text() ? v.text_ : no_text();
    }

    // ---- conversion without change -------------------------------------------

    /// A string as it is, an int as "%d", a double as "%g". Throws `xrterror` for
    /// `none` and errors, with the code and an empty message.
    share_str to_string() const;
    /// The decimal prefix of a string, 0 when it has none; a double truncated toward
    /// zero. `none` and errors give their code.
    int to_int() const;
    /// The same as a double.
    double to_double() const;

    // ---- conversion in place ---------------------------------------------------

    /// `string`, `integer` or `real`; false for any other tag. A failed conversion
    /// returns false and leaves an error. A text must be a number from its begin to
    /// its end, else the error is `err::abnormal_cast`; the empty text is 0. Const
    /// values are converted too and stay const.
    bool cast(type to);
    bool cast_string();
    bool cast_int();
    bool cast_double();
    /// Assigns `text`, by `evaluate`, as an int if all of it is one, else as a double
    /// if all of it is one, else as a string. The empty text is 0. Always true.
    bool from_string(const char* text);

    // ---- references ------------------------------------------------------------

    /// Makes this a reference to `target`, or to what `target` refers to. Nothing
    /// happens when that is this object.
    void refer(base_var& target);
    /// A new reference to `target`, or to what `target` refers to.
    static base_var reference_to(base_var& target) { return base_var(target.get_ref(), as_reference()); }
    /// What this refers to, or this.
    base_var& get_ref()
    {
        base_var* v = this;
        while (v->flags_ & ref_flag)
            v = v->pointer();
        return *v;
    }
    const base_var& get_ref() const { return const_cast<base_var*>(this)->get_ref(); }

    // ---- arithmetic --------------------------------------------------------------

    // The target must be an lvalue (`err::non_left_value`) and have a value
    // (`err::not_initialized`), the other side a value (`err::non_right_value`). Ints
    // wrap at 32 bits; int with double gives double; a string goes with a string and
    // only with `+` (`err::illegal_operator`). An int division or remainder by zero is
    // `err::divide_zero`; doubles have no remainder (`err::illegal_operator`).

    // Pairs of one number type are computed at once.
    base_var& operator+=(const base_var& rhs)
    {
        if (are_both(integer, rhs)) {
            bits_ = static_cast<std::uint32_t>(static_cast<std::uint32_t>(bits_) + static_cast<std::uint32_t>(rhs.bits_));
            return *this;
        }
        if (are_both(real, rhs)) {
            bits_ = real_bits(raw_double() + rhs.raw_double());
            return *this;
        }
        return target().add(rhs);
    }
    base_var& operator-=(const base_var& rhs)
    {
        if (are_both(integer, rhs)) {
            bits_ = static_cast<std::uint32_t>(static_cast<std::uint32_t>(bits_) - static_cast<std::uint32_t>(rhs.bits_));
            return *this;
        }
        if (are_both(real, rhs)) {
            bits_ = real_bits(raw_double() - rhs.raw_double());
            return *this;
        }
        return target().subtract(rhs);
    }
    base_var& operator*=(const base_var& rhs)
    {
        if (are_both(integer, rhs)) {
            bits_ = static_cast<std::uint32_t>(static_cast<std::uint32_t>(bits_) * static_cast<std::uint32_t>(rhs.bits_));
            return *this;
        }
        if (are_both(real, rhs)) {
            bits_ = real_bits(raw_double() * rhs.raw_double());
            return *this;
        }
        return target().multiply(rhs);
    }
    base_var& operator/=(const base_var& rhs) { return target().divide(rhs); }
    base_var& operator%=(const base_var& rhs) { return target().remainder(rhs); }

    friend base_var operator+(const base_var& a, const base_var& b)
    {
        base_var result(fresh(a));
        result += b;
        return result;
    }
    friend base_var operator-(const base_var& a, const base_var& b)
    {
        base_var result(fresh(a));
        result -= b;
        return result;
    }
    friend base_var operator*(const base_var& a, const base_var& b)
    {
        base_var result(fresh(a));
        result *= b;
        return result;
    }
    friend base_var operator/(const base_var& a, const base_var& b)
    {
        base_var result(fresh(a));
        result /= b;
        return result;
    }
    friend base_var operator%(const base_var& a, const base_var& b)
    {
        base_var result(fresh(a));
        result %= b;
        return result;
    }

    /// Compares: an int below, equal to or above 0, or an error. Strings go by bytes.
    /// Numbers give the difference as an int, so doubles less than 1 apart are equal
    /// and ints further than 31 bits apart have the wrapped sign.
    static base_var cmp(const base_var& a, const base_var& b);
    /// Logical or, and: 1 or 0 as an int, or as a double when either is one.
    static base_var op_or(const base_var& a, const base_var& b);
    static base_var op_and(const base_var& a, const base_var& b);
    /// Logical not of a number: the int 1 or 0.
    base_var op_not() const;

    /// The value that `v` or its target has, without const and reference.
    static base_var fresh(const base_var& v) { return base_var(v.get_ref(), keep_value()); }

    /// The common start of the operations on two values, with this object as target.
    /// Gives the operand to combine with: `rhs`, or `tmp` made of it; an int target may
    /// have become a double. Null when this has become, or was, an error.
    const base_var* raw_prepare2(const base_var& rhs, base_var& tmp);

private:
    static constexpr unsigned tag_mask = 0xFF;
    static constexpr unsigned const_flag = 0x100;
    static constexpr unsigned ref_flag = 0x400;

    struct as_reference { };
    base_var(base_var& target, as_reference) noexcept
        : bits_(reinterpret_cast<std::uintptr_t>(&target)), flags_(ref_flag)
    {
    }

    struct keep_value { };
    base_var(const base_var& v, keep_value) noexcept
        : bits_(v.bits_), flags_(static_cast<std::uint16_t>(v.flags_ & tag_mask))
    {
        if (has_text())
            new (&text_) share_str(v.text_);
    }

    static std::uint64_t word(int v) { return static_cast<std::uint32_t>(v); }
    static std::uint64_t real_bits(double v)
    {
        std::uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        return bits;
    }

    base_var& target() { return get_ref(); }
    base_var* pointer() const { return reinterpret_cast<base_var*>(static_cast<std::uintptr_t>(bits_)); }
    int raw_int() const { return static_cast<int>(static_cast<std::uint32_t>(bits_)); }
    double raw_double() const
    {
        double v;
        std::memcpy(&v, &bits_, sizeof v);
        return v;
    }
    // Plain values of one type, without const and reference?
    bool are_both(type tag, const base_var& rhs) const
    {
        return flags_ == static_cast<unsigned>(tag) && rhs.flags_ == static_cast<unsigned>(tag);
    }
    bool has_text() const { return (flags_ & tag_mask) == string; }
    static const share_str& no_text();

    void drop_text()
    {
        if (has_text())
            text_.~share_str();
    }
    // All flags at once; the text must agree with the tag already.
    base_var& mark(std::uint64_t bits, unsigned flags)
    {
        bits_ = bits;
        flags_ = static_cast<std::uint16_t>(flags);
        return *this;
    }
    base_var& store(std::uint64_t bits, unsigned flags)
    {
        drop_text();
        return mark(bits, flags);
    }
    // A type without text, keeping const.
    void become(type tag, std::uint64_t bits) { store(bits, (flags_ & const_flag) | tag); }
    void become(type tag, int value) { become(tag, word(value)); }
    void become(double value) { become(real, real_bits(value)); }
    void become(share_str&& text);
    bool fail(int code)
    {
        raw_set_error(code);
        return false;
    }

    base_var& assign_slowly(const base_var& other) noexcept;
    base_var& move_slowly(base_var& other) noexcept;

    template <class OPERATION>
    base_var& raw_oper2(const base_var& rhs, OPERATION operation);
    template <class INTS, class DOUBLES>
    base_var& raw_numeric2(const base_var& rhs, INTS ints, DOUBLES doubles);
    base_var& add(const base_var& rhs);
    base_var& subtract(const base_var& rhs);
    base_var& multiply(const base_var& rhs);
    base_var& divide(const base_var& rhs);
    base_var& remainder(const base_var& rhs);
    static share_str text_of(int v);
    static share_str text_of(double v);

    // The int in the low word, the double, the status code, or the target's address.
    std::uint64_t bits_;
    // Invariant: alive exactly while the tag is `string`, so that numbers never touch it.
    union {
        share_str text_;
    };
    std::uint16_t flags_;
};

/// Writes `to_string()`, and throws as it does.
KRO_API std::ostream& operator<<(std::ostream& out, const base_var& v);

#endif
