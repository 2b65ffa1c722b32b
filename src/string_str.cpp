// std::string under the library's operation names.
//
// std::string throws when memory runs out; none of these operations does. Each
// change runs through `attempt`, which says whether it succeeded.
#include <stdkro/share_str.h>

#include "bug.h"
#include "text_format.h"

#include <cctype>
#include <new>
#include <stdexcept>

namespace {

constexpr char module_name[] = "src/string_str";

template <class CHANGE> bool attempt(const CHANGE& change)
{
    try {
        change();
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

const char* or_empty(const char* s) { return s ? s : ""; }

} // namespace

string_str::string_str(const char* s) noexcept { *this = s; }

string_str::string_str(char c) noexcept { *this = c; }

string_str::string_str(const char* b, const char* e) noexcept
{
    if (b && b < e)
        attempt([&] { text_.assign(b, e); });
}

string_str::string_str(const std::string& s) noexcept { *this = s; }

string_str::string_str(const string_str& other) noexcept { *this = other.text_; }

string_str& string_str::operator=(const string_str& other) noexcept { return *this = other.text_; }

string_str& string_str::operator=(const std::string& s) noexcept
{
    if (!attempt([&] { text_ = s; }))
        text_.clear();
    return *this;
}

string_str& string_str::operator=(const char* s) noexcept
{
    if (!attempt([&] { text_ = or_empty(s); }))
        text_.clear();
    return *this;
}

string_str& string_str::operator=(char c) noexcept
{
    text_.assign(1, c);
    return *this;
}

string_str& string_str::operator+=(const char* s) noexcept
{
    attempt([&] { text_ += or_empty(s); });
    return *this;
}

string_str& string_str::operator+=(const string_str& other) noexcept { return *this += other.text_; }

string_str& string_str::operator+=(const std::string& s) noexcept
{
    attempt([&] { text_ += s; });
    return *this;
}

string_str& string_str::operator+=(char c) noexcept
{
    attempt([&] { text_ += c; });
    return *this;
}

void string_str::print(const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const printed_text made(fmt, arguments);
    va_end(arguments);
    *this = made.text;
}

string_str string_str::print_str(const char* fmt, ...)
{
    va_list arguments;
    va_start(arguments, fmt);
    const printed_text made(fmt, arguments);
    va_end(arguments);
    return string_str(made.text);
}

bool string_str::reserved(unsigned n) noexcept
{
    attempt([&] { text_.reserve(n); });
    return true;
}

void string_str::strlwr() noexcept
{
    for (char& c : text_)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

void string_str::strupr() noexcept
{
    for (char& c : text_)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

void string_str::set(unsigned i, char c) noexcept
{
    if (i < text_.size())
        text_[i] = c;
}

bool string_str::insert(unsigned pos, const char* s, unsigned n) noexcept
{
    if (pos > text_.size()) {
        report_bug(module_name, __LINE__);
        return false;
    }
    return n == 0 || attempt([&] { text_.insert(pos, s, n); });
}

bool string_str::insert(unsigned pos, const char* s) noexcept
{
    const std::size_t length = std::strlen(or_empty(s));
    return length <= 0xFFFFFFFF && insert(pos, s, static_cast<unsigned>(length));
}

bool string_str::insert(unsigned pos, char c) noexcept { return insert(pos, &c, 1); }

// KEEP: after the diagnostic the erase is attempted all the same, so what is there goes.
bool string_str::remove(unsigned pos, unsigned n) noexcept
{
    if (pos > text_.size() || n > text_.size() - pos)
        report_bug(module_name, __LINE__);
    if (pos <= text_.size())
        text_.erase(pos, n);
    return true;
}

string_str string_str::substr(unsigned begin, unsigned end) const noexcept
{
    if (end < begin)
        report_bug(module_name, __LINE__);
    const unsigned stop = end < length() ? end : length();
    if (begin >= stop)
        return string_str();
    return string_str(text_.data() + begin, text_.data() + stop);
}
