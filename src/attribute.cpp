// The ordered list of name/value pairs, shared by INI sections, command records
// and XML nodes.
//
// The list is one block: a head and the pointers to the pairs. Pairs stand in
// blocks of their own, so that they keep their addresses while others come and
// go. Long lists get an index beside them; see attribute_index.h.
#include <stdkro/ini_doc.h>

#include <stdkro/xcpt.h>

#include "attribute_builder.h"
#include "attribute_index.h"
#include "bug.h"
#include "number_text.h"
#include "thread_object.h"

#include <algorithm>
#include <charconv>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <system_error>

std::atomic<std::uint64_t> renamed_items { 0 };

namespace {

// Keeps the size of a block inside 32 bits.
constexpr unsigned most_pairs = 0x10000000;

[[noreturn]] void throw_out_of_memory() { throw xcpt(err::out_of_memory, get_err_info(err::out_of_memory)); }

/// A text that memory could not be got for is empty.
bool is_copied(const share_str& made, const char* from) { return !made.isempty() || !from || *from == '\0'; }

/// A pair of no list, for positions that do not exist.
attribute& stray_pair(int line)
{
    report_bug("src/attribute", line);
    attribute& stray = thread_object<attribute>();
    stray = attribute();
    return stray;
}

void reserve_sections(std::vector<ini_section*>& sections)
try {
    sections.reserve(sections.capacity() * 2 + 4);
} catch (const std::bad_alloc&) {
    throw_out_of_memory();
}

bool is_letter(char c, char lower) { return c == lower || c == lower - 'a' + 'A'; }

// The power of two of the first digit that is not 0 in a hexadecimal number without its
// prefix, which tells too large from too small. Below every power when there is none.
long long hexadecimal_magnitude(const char* s, const char* end)
{
    const char* const letter = std::find_if(s, end, [](char c) { return is_letter(c, 'p'); });
    const char* const point = std::find(s, letter, '.');
    const char* const first = std::find_if(s, letter, [](char c) { return c != '0' && c != '.'; });
    if (first == letter)
        return std::numeric_limits<long long>::min();
    long long exponent = 0;
    if (letter != end)
        parse_exponent(letter, end, exponent);
    return 4LL * (point - first) + exponent;
}

// strtod reads these too: infinity, not-a-number and hexadecimal numbers.
const char* parse_special_double(const char* s, double& value)
{
    const char* p = s;
    while (*p == ' ' || (*p >= '\t' && *p <= '\r'))
        ++p;
    const bool negative = *p == '-';
    p += *p == '-' || *p == '+';
    const bool hexadecimal = p[0] == '0' && is_letter(p[1], 'x') && (std::isxdigit(static_cast<unsigned char>(p[2])) || p[2] == '.');
    if (!hexadecimal && !is_letter(*p, 'i') && !is_letter(*p, 'n'))
        return s;
    const std::chars_format format = hexadecimal ? std::chars_format::hex : std::chars_format::general;
    p += hexadecimal ? 2 : 0;
    double read = 0.0;
    const std::from_chars_result r = std::from_chars(p, p + std::strlen(p), read, format);
    if (r.ec == std::errc::invalid_argument)
        return s;
    if (r.ec == std::errc::result_out_of_range)
        read = hexadecimal_magnitude(p, r.ptr) > 0 ? HUGE_VAL : 0.0;
    value = negative ? -read : read;
    return r.ptr;
}

} // namespace

attribute& attribute::operator=(const attribute& other)
{
    set_name(other.name_);
    value_ = other.value_;
    return *this;
}

void attribute::set_name(const share_str& name)
{
    if (!name_.kroCompare_(name))
        renamed_items.fetch_add(1, std::memory_order_relaxed);
    name_ = name;
}

attributes::attributes(const attributes& other) : list_(nullptr)
{
    if (other.count() == 0)
        return;
    attributes copy;
    copy.reserve(other.count());
    for (unsigned i = 0; i < other.count(); ++i)
        copy.add_attr(*other.get_attr(i));
    swap(copy);
}

attributes& attributes::operator=(const attributes& other)
{
    if (this != &other) {
        attributes copy(other);
        swap(copy);
    }
    return *this;
}

// Pairs that were read stand in pages: they are not deleted, their blocks are counted.
void attributes::remove_all()
{
    share_str_page::releases released;
    for (unsigned i = 0; i < list_->count; ++i)
        attribute_builder::destroy(list_->at()[i], released);
    list_->count = 0;
}

void attributes::destroy_list()
{
    share_str_page::releases released;
    attribute_builder::destroy(*this, released);
}

// Room for `capacity` pairs in all. Throws without memory; unchanged then.
void attributes::reserve(unsigned capacity)
{
    if (capacity > most_pairs)
        throw_out_of_memory();
    const bool in_page = list_ && share_str_page::holds(list_);
    list* const grown = static_cast<list*>(std::realloc(in_page ? nullptr : list_, list::size(capacity)));
    if (!grown)
        throw_out_of_memory();
    if (in_page) {
        std::memcpy(grown, list_, list::size(list_->count));
        share_str_page::release(list_);
    }
    if (!list_)
        *grown = list { 0, 0, nullptr };
    grown->capacity = capacity;
    list_ = grown;
}

void attributes::make_room()
{
    const unsigned capacity = list_ ? list_->capacity : 0;
    if (!list_ || list_->count == capacity)
        reserve(capacity == 0 ? 2 : capacity < 16 ? capacity * 4 : capacity * 2);
}

attribute* attributes::enter(unsigned index, const share_str& name, const share_str& value)
{
    make_room();
    attribute* const made = new (std::nothrow) attribute(name, value);
    if (!made)
        throw_out_of_memory();
    attribute** const at = list_->at();
    if (index < list_->count) {
        std::memmove(at + index + 1, at + index, (list_->count - index) * sizeof *at);
        changed();
    } else {
        index = list_->count;
    }
    at[index] = made;
    ++list_->count;
    return made;
}

void attributes::changed()
{
    if (list_->index)
        list_->index->reset();
}

attribute* attributes::add_attr(const attribute& pair) { return enter(count(), pair.get_name(), pair.get_value()); }

attribute* attributes::add_attr(const share_str& name, const share_str& value)
{
    return enter(count(), name, value);
}

attribute* attributes::add_attr(unsigned index, const share_str& name, const share_str& value)
{
    return enter(index, name, value);
}

int attributes::find_first(const char* name) const
{
    if (!name || !list_)
        return -1;
    const std::size_t length = std::strlen(name);
    if (list_->count >= attribute_index::worth_it && !list_->index)
        list_->index = new (std::nothrow) attribute_index;
    if (list_->index)
        return list_->index->find(list_->at(), list_->count, name, length);
    return scan_names(list_->at(), list_->count, 0, name, length);
}

int attributes::find_attr(unsigned start, const char* name) const
{
    const int first = find_first(name);
    if (first < 0 || static_cast<unsigned>(first) >= start)
        return first;
    return scan_names(list_->at(), list_->count, start, name, std::strlen(name));
}

attribute* attributes::find_attr(const char* name)
{
    const int i = find_first(name);
    return i < 0 ? nullptr : list_->at()[i];
}

const attribute* attributes::find_attr(const char* name) const
{
    const int i = find_first(name);
    return i < 0 ? nullptr : list_->at()[i];
}

attribute* attributes::gen_attr(const char* name)
{
    if (attribute* const found = find_attr(name))
        return found;
    const share_str text(name);
    if (!is_copied(text, name))
        throw_out_of_memory();
    return add_attr(text, share_str());
}

unsigned attributes::count() const { return list_ ? list_->count : 0; }

attribute* attributes::get_attr(unsigned index) { return index < count() ? list_->at()[index] : nullptr; }

const attribute* attributes::get_attr(unsigned index) const
{
    return index < count() ? list_->at()[index] : nullptr;
}

attribute& attributes::operator[](unsigned index)
{
    return index < count() ? *list_->at()[index] : stray_pair(__LINE__);
}

const attribute& attributes::operator[](unsigned index) const
{
    return index < count() ? *list_->at()[index] : stray_pair(__LINE__);
}

void attributes::remove_attr(unsigned index)
{
    if (index >= count())
        return;
    attribute** const at = list_->at();
    share_str_page::releases released;
    attribute_builder::destroy(at[index], released);
    --list_->count;
    std::memmove(at + index, at + index + 1, (list_->count - index) * sizeof *at);
    changed();
}

// The block stays for the pairs to come.
void attributes::clear()
{
    if (!list_)
        return;
    remove_all();
    changed();
}

int attributes::read(const char* name, int def) const
{
    const attribute* const found = find_attr(name);
    if (!found)
        return def;
    int value = 0;
    return *parse_int(found->get_value().c_str(), value) == '\0' ? value : def;
}

double attributes::read(const char* name, double def) const
{
    const attribute* const found = find_attr(name);
    if (!found)
        return def;
    const char* const text = found->get_value().c_str();
    double value = 0.0;
    const char* end = parse_special_double(text, value);
    if (end == text)
        end = parse_double(text, value);
    return *end == '\0' ? value : def;
}

share_str attributes::read(const char* name, const share_str& def) const
{
    const attribute* const found = find_attr(name);
    return found ? found->get_value() : def;
}

share_str attributes::read(const char* name, const char* def) const
{
    const attribute* const found = find_attr(name);
    return found ? found->get_value() : share_str(def);
}

int attributes::write(const char* name, int value)
{
    char text[number_text_size];
    format_int(text, value);
    return write(name, text);
}

int attributes::write(const char* name, double value)
{
    char text[number_text_size];
    format_double_g(text, value);
    return write(name, text);
}

int attributes::write(const char* name, const share_str& value)
{
    try {
        gen_attr(name)->set_value(value);
        return err::ok;
    } catch (const xcpt& e) {
        return e.get_err();
    }
}

int attributes::write(const char* name, const char* value)
{
    const share_str text(value);
    return is_copied(text, value) ? write(name, text) : err::out_of_memory;
}

void attribute_builder::fail() { throw_out_of_memory(); }

ini_section* attribute_builder::add_section(ini_doc& to, const share_str& name)
{
    // Room first: nothing can fail behind the block.
    if (to.sections_.size() == to.sections_.capacity())
        reserve_sections(to.sections_);
    to.sections_.push_back(new (block(sizeof(ini_section))) ini_section(name));
    return to.sections_.back();
}

attribute* attribute_builder::append(attributes& to, const char* name, const char* name_end, const char* value,
                                     const char* value_end)
{
    return append(to, text(name, name_end), value, value_end);
}

void attribute_builder::make_room(attributes& to)
{
    if (!to.list_)
        to.list_ = new (block(attributes::list::size(first_pairs))) attributes::list { 0, first_pairs, nullptr };
    to.make_room();
}

void attribute_builder::destroy_list(attributes& pairs, share_str_page::releases& released)
{
    attributes::list* const list = pairs.list_;
    for (unsigned i = 0; i < list->count; ++i)
        destroy(list->at()[i], released);
    delete list->index;
    if (share_str_page::holds(list))
        released.add(static_cast<void*>(list));
    else
        std::free(list);
    pairs.list_ = nullptr;
}

void attribute_builder::destroy(attribute* pair, share_str_page::releases& released)
{
    released.add(pair->name_);
    released.add(pair->value_);
    if (share_str_page::holds(pair))
        released.add(static_cast<void*>(pair));
    else
        operator delete(pair);
}

void attribute_builder::destroy(ini_section* section, share_str_page::releases& released)
{
    if (!share_str_page::holds(section)) {
        delete section;
        return;
    }
    destroy(static_cast<attributes&>(*section), released);
    released.add(section->name_);
    released.add(static_cast<void*>(section));
}
