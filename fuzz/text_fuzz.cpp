// The text functions beside slow and obvious ones, and there and back again.
//
// The first byte chooses what is tried, the second a room for the result; the rest
// is the input. Texts and rooms have heap blocks of exactly their size, so that a
// byte read or written outside is found.
#include <stdkro/platform_types.h>
#include <stdkro/str.h>
#include <stdkro/xcpt.h>

#include "require.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace {

using std::string;

/// A terminated text in a block of its own.
class exact_text {
public:
    explicit exact_text(const string& s) : text_(new char[s.size() + 1]) { std::memcpy(text_.get(), s.c_str(), s.size() + 1); }
    const char* begin() const { return text_.get(); }
    operator const char*() const { return text_.get(); }

private:
    std::unique_ptr<char[]> text_;
};

/// `size` bytes in a block of their own.
struct exact_room {
    explicit exact_room(unsigned n) : size(n), bytes(new char[n]) { std::memset(bytes.get(), '#', n); }
    char* text() { return bytes.get(); }
    unsigned char* raw() { return reinterpret_cast<unsigned char*>(bytes.get()); }
    string first(std::size_t n) const { return string(bytes.get(), n); }
    bool untouched_from(std::size_t n) const
    {
        return n <= size && std::all_of(bytes.get() + n, bytes.get() + size, [](char c) { return c == '#'; });
    }

    unsigned size;
    std::unique_ptr<char[]> bytes;
};

const unsigned char* raw(const string& s) { return reinterpret_cast<const unsigned char*>(s.data()); }
unsigned length_of(const string& s) { return static_cast<unsigned>(s.size()); }
bool space(char c) { return c != '\0' && std::strchr(" \t\n\v\f\r", c) != nullptr; }

// ---- bytes as text ------------------------------------------------------------

const string base64_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
const string hex_alphabet = "0123456789ABCDEF";

string naive_base64(const string& data)
{
    string bits;
    for (const char c : data)
        for (int i = 7; i >= 0; --i)
            bits += static_cast<char>('0' + (static_cast<unsigned char>(c) >> i & 1));
    while (bits.size() % 6)
        bits += '0';
    string text;
    for (std::size_t i = 0; i < bits.size(); i += 6)
        text += base64_alphabet[std::stoul(bits.substr(i, 6), nullptr, 2)];
    while (text.size() % 4)
        text += '=';
    return text;
}

// All bits of the run, cut to whole bytes.
string naive_bytes(const string& run)
{
    string bits;
    for (const char c : run) {
        const std::size_t value = base64_alphabet.find(c);
        for (int i = 5; i >= 0; --i)
            bits += static_cast<char>('0' + (value >> i & 1));
    }
    string data;
    for (std::size_t i = 0; i + 8 <= bits.size(); i += 8)
        data += static_cast<char>(std::stoul(bits.substr(i, 8), nullptr, 2));
    return data;
}

void try_base64_writing(const string& data, unsigned room)
{
    const string whole = naive_base64(data);
    CHECK(str::write_base64(nullptr, 0, raw(data), length_of(data)) == static_cast<int>(whole.size()));
    exact_room to(room);
    const string expected = whole.substr(0, room / 4 * 4);
    CHECK(str::write_base64(to.text(), room, raw(data), length_of(data)) == static_cast<int>(expected.size()));
    CHECK(to.first(expected.size()) == expected && to.untouched_from(expected.size()));
    exact_room back(length_of(data));
    const exact_text text(whole);
    CHECK(str::read_base64(back.raw(), back.size, text, nullptr) == static_cast<int>(data.size()));
    CHECK(back.first(data.size()) == data);
}

void try_base64_reading(const string& input, unsigned room)
{
    const exact_text text(input);
    const string run = input.substr(0, std::min(input.find_first_not_of(base64_alphabet), input.size()));
    const string data = naive_bytes(run);
    const int size = static_cast<int>(data.size());
    const char* end = nullptr;
    CHECK(str::read_base64(nullptr, 0, text, &end) == size && end == text + run.size());
    exact_room to(room);
    CHECK(str::read_base64(to.raw(), room, text, &end) == size && end == text + run.size());
    string expected = room < data.size() ? data.substr(0, room / 3 * 3) : data;
    if (run.size() % 4 == 1 && room > data.size())
        expected += static_cast<char>(base64_alphabet.find(run.back()) << 2);
    CHECK(to.first(expected.size()) == expected && to.untouched_from(expected.size()));
}

void try_hex_writing(const string& data, unsigned room)
{
    string whole;
    for (const char c : data) {
        whole += hex_alphabet[static_cast<unsigned char>(c) / 16];
        whole += hex_alphabet[static_cast<unsigned char>(c) % 16];
    }
    CHECK(str::write_hex(nullptr, 0, raw(data), length_of(data)) == static_cast<int>(whole.size()));
    exact_room to(room);
    const string expected = whole.substr(0, room);
    CHECK(str::write_hex(to.text(), room, raw(data), length_of(data)) == static_cast<int>(expected.size()));
    CHECK(to.first(expected.size()) == expected && to.untouched_from(expected.size()));
    exact_room back(length_of(data));
    const exact_text text(whole);
    CHECK(str::read_hex(back.raw(), back.size, text, nullptr) == static_cast<int>(data.size()));
    CHECK(back.first(data.size()) == data);
}

void try_hex_reading(const string& input, unsigned room)
{
    const exact_text text(input);
    const auto digit = [&](std::size_t i) {
        return i < input.size() ? hex_alphabet.find(static_cast<char>(std::toupper(static_cast<unsigned char>(input[i]))))
                                : string::npos;
    };
    for (const bool storing : { true, false }) {
        string data;
        std::size_t at = 0;
        for (;;) {
            while (at < input.size() && space(input[at]))
                ++at;
            if (digit(at) == string::npos || digit(at + 1) == string::npos || (storing && data.size() == room))
                break;
            data += static_cast<char>(digit(at) * 16 + digit(at + 1));
            at += 2;
        }
        exact_room to(room);
        const char* end = nullptr;
        const int count = str::read_hex(storing ? to.raw() : nullptr, room, text, &end);
        CHECK(end == text + at);
        CHECK(count == (storing ? static_cast<int>(data.size()) : 0));
        if (storing)
            CHECK(to.first(data.size()) == data && to.untouched_from(data.size()));
    }
}

// ---- quoting ------------------------------------------------------------------

string naive_quote(const string& text)
{
    const string escaped = "\t\n\r\"\\";
    const string letters = "tnr\"\\";
    string quoted;
    for (const char c : text) {
        const std::size_t i = escaped.find(c);
        quoted += i == string::npos ? string(1, c) : string("\\") + letters[i];
    }
    return quoted;
}

string unquote(const string& quoted)
{
    string text;
    for (std::size_t i = 0; i < quoted.size(); ++i) {
        if (quoted[i] != '\\') {
            text += quoted[i];
            continue;
        }
        const char c = quoted[++i];
        text += c == 't' ? '\t' : c == 'n' ? '\n' : c == 'r' ? '\r' : c;
    }
    return text;
}

void try_quoting(const string& input, unsigned room)
{
    const exact_text text(input);
    const string quoted = naive_quote(input);
    const int length = static_cast<int>(quoted.size());
    CHECK(unquote(quoted) == input);
    CHECK(str::write_quote(nullptr, 0, text) == length);
    CHECK(str::write_quote(text) == quoted.c_str());
    exact_room to(room);
    const bool fits = quoted.size() < room;
    CHECK(str::write_quote(to.text(), room, text) == (fits ? length : -1));
    CHECK(!fits || quoted == to.text());
    exact_room value(room);
    const bool value_fits = quoted.size() + 2 < room;
    CHECK(str::write_value(nullptr, 0, text) == length + 2);
    CHECK(str::write_value(value.text(), room, share_str(text)) == (value_fits ? length + 2 : -1));
    if (value_fits) {
        CHECK('"' + quoted + '"' == value.text());
        CHECK(str::skip_value(value.text()) == value.text() + length + 2);
    }
    // The end of the input itself, read as a value.
    std::size_t end = 0;
    if (!input.empty() && input[0] == '"') {
        for (end = 1; end < input.size() && input[end] != '"'; ++end)
            end += input[end] == '\\' ? 1 : 0;
        end = std::min(end + 1, input.size());
    } else {
        while (end < input.size() && !space(input[end]) && input[end] != ',' && input[end] != ';')
            ++end;
    }
    CHECK(str::skip_value(text) == text + end);
}

// ---- numbers ------------------------------------------------------------------

// The longest prefix that is white space, a sign and digits; its value, saturated.
std::size_t naive_int(const string& text, std::size_t at, unsigned radix, bool sign, long& value)
{
    const std::size_t start = at;
    while (sign && at < text.size() && space(text[at]))
        ++at;
    bool negative = false;
    if (sign && at < text.size() && (text[at] == '-' || text[at] == '+'))
        negative = text[at++] == '-';
    const std::size_t digits = at;
    double sum = 0;
    for (; at < text.size(); ++at) {
        const std::size_t digit = hex_alphabet.find(static_cast<char>(std::toupper(static_cast<unsigned char>(text[at]))));
        if (digit >= radix)
            break;
        sum = std::min(sum * radix + static_cast<double>(digit), 1e10);
    }
    value = static_cast<long>(negative ? std::max(-sum, -2147483648.0) : std::min(sum, 2147483647.0));
    return at == digits ? start : at;
}

// The longest prefix that is a decimal number, tried one after the other.
bool is_decimal(const string& text)
{
    std::size_t i = 0;
    while (i < text.size() && space(text[i]))
        ++i;
    i += i < text.size() && (text[i] == '-' || text[i] == '+') ? 1 : 0;
    const std::size_t exponent = text.find_first_of("eE", i);
    const string mantissa = text.substr(i, exponent == string::npos ? string::npos : exponent - i);
    const auto points = std::count(mantissa.begin(), mantissa.end(), '.');
    if (mantissa.find_first_not_of("0123456789.") != string::npos || points > 1 || mantissa.size() == static_cast<std::size_t>(points))
        return false;
    if (exponent == string::npos)
        return true;
    string power = text.substr(exponent + 1);
    if (!power.empty() && (power[0] == '-' || power[0] == '+'))
        power.erase(0, 1);
    return !power.empty() && power.find_first_not_of("0123456789") == string::npos;
}

std::size_t naive_double(const string& text, double& value)
{
    for (std::size_t n = text.size(); n; --n) {
        const string prefix = text.substr(0, n);
        if (!is_decimal(prefix))
            continue;
        value = std::strtod(prefix.c_str(), nullptr);
        return n;
    }
    value = 0;
    return 0;
}

void try_numbers(const string& whole, unsigned)
{
    const string input = whole.substr(0, 100);
    const exact_text text(input);
    const auto second = [&](const char* set) { return input.size() > 1 && std::strchr(set, input[1]); };
    int radix = 10;
    long integer;
    std::size_t stop;
    if (!input.empty() && input[0] == '0' && second("xX")) {
        radix = 16;
        stop = naive_int(input, 2, 16, false, integer);
        stop = stop == 2 ? 1 : stop;
    } else if (!input.empty() && input[0] == '0' && second("0123456789")) {
        radix = 8;
        stop = naive_int(input, 1, 8, false, integer);
    } else {
        stop = naive_int(input, 0, 10, true, integer);
    }
    const char* end = nullptr;
    CHECK(str::str2int(text, &end) == integer && end == text + stop);

    double number;
    const std::size_t number_stop = naive_double(input, number);
    std::size_t point = 0;
    while (point < input.size() && space(input[point]))
        ++point;
    point += point < input.size() && (input[point] == '-' || input[point] == '+') ? 1 : 0;
    while (point < input.size() && std::isdigit(static_cast<unsigned char>(input[point])))
        ++point;
    const bool floating = radix == 10 && number_stop && point < input.size() && input[point] == '.';
    int found = -1;
    const double value = str::str2num(text, &end, &found);
    CHECK(found == (floating ? 0 : radix));
    CHECK(value == (floating ? number : static_cast<double>(integer)));
    CHECK(end == text + (floating ? number_stop : stop));

    const std::size_t decimal_stop = naive_int(input, 0, 10, true, integer);
    CHECK(str::read_int(text, 77) == (decimal_stop && decimal_stop == input.size() ? integer : 77));
    CHECK(str::read_double(text, 77) == (number_stop && number_stop == input.size() ? number : 77));
}

void try_lists(const string& data, unsigned room)
{
    std::vector<int> numbers(data.size() / sizeof(int));
    if (!numbers.empty())
        std::memcpy(numbers.data(), data.data(), numbers.size() * sizeof(int));
    const char sep = data.empty() ? ',' : data[0];
    string text;
    std::size_t whole = 0;
    bool fits = true;
    for (std::size_t i = 0; i < numbers.size() && fits; ++i) {
        text += std::to_string(numbers[i]);
        if (i + 1 < numbers.size() && sep)
            text += sep;
        fits = text.size() < room;
        whole = fits ? text.size() : whole;
    }
    exact_room to(room);
    const int result = str::write_multi(to.text(), room, numbers.data(), static_cast<unsigned>(numbers.size()), sep);
    CHECK(result == (fits ? static_cast<int>(whole) : -static_cast<int>(whole)));
    if (room && !numbers.empty()) {
        const string expected = fits ? text : text.substr(0, room - 1);
        CHECK(std::strlen(to.text()) == expected.size() || sep == '\0');
        CHECK(to.first(expected.size()) == expected && to.text()[expected.size()] == '\0');
    }
}

void try_addresses_and_versions(const string& input, unsigned)
{
    const exact_text text(input);
    in_addr address;
    const std::size_t taken = std::min({ input.find_first_not_of("0123456789."), input.size(), std::size_t { 15 } });
    CHECK(str::read_value(text, address) == text + taken);

    // A version: three numbers, whatever stands before each.
    std::size_t at = 0;
    std::size_t stop = 0;
    unsigned parts[3] = { 0, 0, 0 };
    int count = 0;
    while (count < 3) {
        std::size_t digits = at;
        while (digits < input.size() && space(input[digits]))
            ++digits;
        const bool negative = digits < input.size() && input[digits] == '-';
        digits += digits < input.size() && (input[digits] == '-' || input[digits] == '+') ? 1 : 0;
        std::size_t behind = digits;
        for (; behind < input.size() && std::isdigit(static_cast<unsigned char>(input[behind])); ++behind)
            parts[count] = parts[count] * 10 + static_cast<unsigned>(input[behind] - '0');
        if (behind == digits)
            break;
        parts[count] = negative ? 0u - parts[count] : parts[count];
        stop = behind;
        ++count;
        if (behind == input.size() || input[behind] != '.')
            break;
        at = behind + 1;
    }
    const version packed(static_cast<int>(parts[0]), static_cast<int>(parts[1]), static_cast<int>(parts[2]));
    version v(1);
    CHECK(str::read_value(text, v) == text + stop);
    CHECK(v.get_ver() == (count == 3 && stop == input.size() ? packed.get_ver() : 0));
    CHECK(read_ver(text) == (count == 3 ? packed.get_ver() : 0));
    if (count == 3) {
        char formatted[14];
        CHECK(read_ver(format_ver(formatted, packed)) == packed.get_ver());
    }
}

// ---- words, paths, command lines ------------------------------------------------

void try_paths(const string& input, unsigned)
{
    const exact_text path(input);
    const std::size_t separator = input.find_last_of("/\\");
    const string component = separator == string::npos ? input : input.substr(separator + 1);
    const std::size_t dot = component.rfind('.');
    const bool extended = dot != string::npos && dot > 0;
    exact_room name(length_of(component) + 1);
    exact_room ext(length_of(component) + 1);
    str::split_path(path, name.text(), ext.text());
    CHECK(name.text() == (extended ? component.substr(0, dot) : component));
    CHECK(ext.text() == (extended ? component.substr(dot) : ""));
    CHECK(string(name.text()) + ext.text() == component);
}

void try_words(const string& input, unsigned room)
{
    const exact_text text(input);
    std::vector<std::size_t> starts;
    for (std::size_t i = 0; i < input.size(); i += (input[i] & 0x80) && i + 1 < input.size() ? 2 : 1)
        starts.push_back(i);
    CHECK(str::strword(text) == starts.size());
    for (unsigned i = 0; i < starts.size(); ++i)
        CHECK(str::getword(text, i) == text + starts[i]);
    CHECK(!str::getword(text, static_cast<unsigned>(starts.size())));

    std::size_t at = 0;
    while (at < input.size() && space(input[at]))
        ++at;
    string run;
    while (at < input.size() && !space(input[at]) && run.size() < room)
        run += input[at++];
    exact_room to(room);
    CHECK(str::read_para(to.text(), room, text) == text + at);
    CHECK(to.first(run.size()) == run);
    CHECK(run.size() == room || to.text()[run.size()] == '\0');

    exact_room copy(room);
    str::nstrcpy(copy.text(), room, text);
    CHECK(room == 0 || input.substr(0, room - 1) == copy.text());

    const std::size_t half = std::min<std::size_t>(room, input.size());
    const string first = input.substr(0, half);
    const string second = input.substr(half);
    const auto sign = [](int n) { return (n > 0) - (n < 0); };
    const exact_text left(first);
    CHECK(sign(str::nstrcmp(left, second.data(), second.data() + second.size())) == sign(std::strcmp(left, second.c_str())));
}

using attempt = void (*)(const string& input, unsigned room);

// Those that take any bytes, and those that take texts.
const attempt on_bytes[] = { try_base64_writing, try_hex_writing, try_lists };
const attempt on_text[] = { try_base64_reading, try_hex_reading, try_quoting, try_numbers, try_addresses_and_versions,
                            try_paths, try_words };

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2)
        return 0;
    constexpr unsigned byte_kinds = sizeof on_bytes / sizeof on_bytes[0];
    constexpr unsigned text_kinds = sizeof on_text / sizeof on_text[0];
    const unsigned kind = data[0] % (byte_kinds + text_kinds);
    const unsigned room = data[1];
    const string input(reinterpret_cast<const char*>(data + 2), size - 2);
    if (kind < byte_kinds)
        on_bytes[kind](input, room);
    else
        on_text[kind - byte_kinds](input.c_str(), room);
    return 0;
}
