// Numbers as text and back.
//
// std::from_chars and std::to_chars know no locale and round correctly. What they
// lack is done here: leading white space and "+", saturation, and the refusal of
// "inf", "nan" and hexadecimal, which is settled by looking at the text before it
// is converted.
#include "number_text.h"

#include "text_class.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace {

const char* skip_space(const char* s, const char* end)
{
    while (s < end && is_space(*s))
        ++s;
    return s;
}

const char* skip_digits(const char* s, const char* end)
{
    while (s < end && is_digit(*s))
        ++s;
    return s;
}

// The shape of an unsigned number: how far it goes, and the power of ten of its
// first digit that is not 0, which tells too large from too small.
struct decimal_shape {
    const char* end;
    long long magnitude;
};

// number := digits ['.' [digits]] [exponent] | '.' digits [exponent]
bool shape_of(const char* s, const char* end, decimal_shape& shape)
{
    const char* const point = skip_digits(s, end);
    const char* p = point;
    if (p < end && *p == '.')
        p = skip_digits(p + 1, end);
    if (point == s && p - s < 2)
        return false;
    const char* first = s;
    while (first < p && (*first == '0' || *first == '.'))
        ++first;
    long long exponent = 0;
    shape.end = p < end && (*p == 'e' || *p == 'E') ? parse_exponent(p, end, exponent) : p;
    shape.magnitude = point - first + exponent;
    return true;
}

} // namespace

const char* parse_int(const char* s, int& value, int radix)
{
    value = 0;
    const char* p = skip_space(s);
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    const char* const digits = p;
    const long long limit = negative ? 2147483648LL : 2147483647LL;
    long long sum = 0;
    for (int digit; (digit = hex_value(*p)) >= 0 && digit < radix; ++p) {
        sum = sum * radix + digit;
        if (sum > limit)
            sum = limit;
    }
    if (p == digits)
        return s;
    value = static_cast<int>(negative ? -sum : sum);
    return p;
}

// exponent := letter [sign] digits
const char* parse_exponent(const char* s, const char* end, long long& exponent)
{
    const char* p = s + 1;
    exponent = 0;
    const bool negative = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+'))
        ++p;
    const char* const digits = p;
    for (; p < end && is_digit(*p); ++p) {
        if (exponent < 100000000000)
            exponent = exponent * 10 + (*p - '0');
    }
    if (negative)
        exponent = -exponent;
    return p == digits ? s : p;
}

const char* parse_double(const char* s, const char* end, double& value)
{
    value = 0;
    const char* p = skip_space(s, end);
    const bool negative = p < end && *p == '-';
    if (p < end && (*p == '-' || *p == '+'))
        ++p;
    decimal_shape shape;
    if (!shape_of(p, end, shape))
        return s;
    const std::from_chars_result read = std::from_chars(p, shape.end, value);
    if (read.ec == std::errc::result_out_of_range)
        value = shape.magnitude > 0 ? std::numeric_limits<double>::infinity() : 0.0;
    if (negative)
        value = -value;
    return shape.end;
}

const char* parse_double(const char* s, double& value) { return parse_double(s, s + std::strlen(s), value); }

int format_int(char* dst, int value)
{
    char* const end = std::to_chars(dst, dst + number_text_size - 1, value).ptr;
    *end = '\0';
    return static_cast<int>(end - dst);
}

int format_double_g(char* dst, double value)
{
    const double shown = std::isnan(value) ? std::numeric_limits<double>::quiet_NaN() : value;
    char* const end
        = std::to_chars(dst, dst + number_text_size - 1, shown, std::chars_format::general, 6).ptr;
    *end = '\0';
    return static_cast<int>(end - dst);
}
