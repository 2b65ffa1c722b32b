// INI documents in memory: sections in order, filled by a handler of their own.
#include <stdkro/ini_doc.h>

#include <stdkro/xcpt.h>

#include "attribute_builder.h"
#include "attribute_index.h"
#include "stream_status.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <ostream>

namespace {

[[noreturn]] void throw_out_of_memory() { throw xcpt(err::out_of_memory, get_err_info(err::out_of_memory)); }

// Fills a document with what a reader reports.
class document_builder : public ini_handler {
public:
    explicit document_builder(ini_doc& doc) : doc_(doc), section_(nullptr) {}

    int onBegin() override
    {
        doc_.clear();
        return 0;
    }
    int onEnd(int result) override { return result; }
    int onSection(const char* begin, const char* end) override
    try {
        section_ = builder_.add_section(doc_, builder_.text(begin, end));
        return 0;
    } catch (const xcpt& e) {
        return e.get_err();
    }
    int onKeyValue(const char* key, const char* key_end, const char* value, const char* value_end) override
    try {
        if (!section_)
            section_ = builder_.add_section(doc_, share_str());
        builder_.append(*section_, key, key_end, value, value_end);
        return 0;
    } catch (const xcpt& e) {
        return e.get_err();
    }

private:
    ini_doc& doc_;
    attribute_builder builder_;
    ini_section* section_; // the last one; null before the first header or pair
};

// Collects text and hands it on in large pieces.
template <class put_function> class text_buffer {
public:
    explicit text_buffer(put_function put) : put_(put), used_(0), is_good_(true) {}

    void append(char c)
    {
        if (used_ == sizeof text_)
            flush();
        text_[used_++] = c;
    }
    /// The text up to its first NUL.
    void append(const share_str& s)
    {
        const char* const text = s.c_str();
        const std::size_t length = std::strlen(text);
        if (length > sizeof text_ - used_)
            flush();
        if (length > sizeof text_) {
            put(text, length);
            return;
        }
        std::memcpy(text_ + used_, text, length);
        used_ += length;
    }
    /// False when any piece could not be handed on.
    bool flush()
    {
        put(text_, used_);
        used_ = 0;
        return is_good_;
    }

private:
    void put(const char* text, std::size_t length) { is_good_ = is_good_ && put_(text, length); }

    put_function put_;
    std::size_t used_;
    bool is_good_;
    char text_[8192];
};

template <class put_function> bool write_document(const ini_doc& doc, put_function put)
{
    text_buffer<put_function> out(put);
    for (const ini_section* section : doc.get_sections()) {
        out.append('[');
        out.append(section->get_name());
        out.append(']');
        out.append('\n');
        for (unsigned i = 0; i < section->count(); ++i) {
            const attribute& pair = (*section)[i];
            out.append(pair.get_name());
            out.append('=');
            out.append(pair.get_value());
            out.append('\n');
        }
    }
    return out.flush();
}

} // namespace

ini_section& ini_section::operator=(const ini_section& other)
{
    attributes::operator=(other);
    set_name(other.name_);
    return *this;
}

void ini_section::set_name(const share_str& name)
{
    if (!name_.kroCompare_(name))
        renamed_items.fetch_add(1, std::memory_order_relaxed);
    name_ = name;
}

ini_doc::ini_doc() : index_(nullptr) {}

ini_doc::ini_doc(const ini_doc& other) : index_(nullptr) { raw_copy(other); }

ini_doc& ini_doc::operator=(const ini_doc& other)
{
    raw_copy(other);
    return *this;
}

ini_doc::~ini_doc()
{
    clear();
    delete index_;
}

void ini_doc::raw_copy(const ini_doc& other)
try {
    if (this == &other)
        return;
    ini_doc copy;
    copy.sections_.reserve(other.sections_.size());
    for (const ini_section* section : other.sections_)
        copy.sections_.push_back(new ini_section(*section));
    sections_.swap(copy.sections_);
    changed();
} catch (const std::bad_alloc&) {
    throw_out_of_memory();
}

int ini_doc::read(ini_reader& from)
{
    document_builder builder(*this);
    return from.read_ini(&builder);
}

int ini_doc::read(const char* path)
{
    ini_reader from;
    const int r = from.load_file(path, "r");
    if (r < 0)
        return r;
    return read(from);
}

int ini_doc::write(std::ostream& to) const
{
    const auto put = [&to](const char* text, std::size_t length) {
        return static_cast<bool>(to.write(text, static_cast<std::streamsize>(length)));
    };
    return stream_status([&] { return write_document(*this, put); });
}

int ini_doc::write(const char* path) const
{
    std::FILE* const file = path ? std::fopen(path, "w+") : nullptr;
    if (!file)
        return err::file_system;
    const auto put = [file](const char* text, std::size_t length) {
        return std::fwrite(text, 1, length, file) == length;
    };
    const bool written = write_document(*this, put);
    const bool closed = std::fclose(file) == 0;
    return written && closed ? err::ok : err::file_system;
}

ini_section* ini_doc::add_section(const share_str& name)
{
    return add_section(get_section_count(), name);
}

ini_section* ini_doc::add_section(unsigned index, const share_str& name)
try {
    std::unique_ptr<ini_section> made(new ini_section(name));
    const bool is_last = index >= sections_.size();
    sections_.insert(is_last ? sections_.end() : sections_.begin() + index, made.get());
    if (!is_last)
        changed();
    return made.release();
} catch (const std::bad_alloc&) {
    throw_out_of_memory();
}

int ini_doc::find_first(const char* name) const
{
    if (!name)
        return -1;
    const std::size_t length = std::strlen(name);
    if (sections_.size() >= attribute_index::worth_it && !index_)
        index_ = new (std::nothrow) attribute_index;
    if (index_)
        return index_->find(sections_.data(), get_section_count(), name, length);
    return scan_names(sections_.data(), get_section_count(), 0, name, length);
}

int ini_doc::find_section(unsigned start, const char* name) const
{
    const int first = find_first(name);
    if (first < 0 || static_cast<unsigned>(first) >= start)
        return first;
    return scan_names(sections_.data(), get_section_count(), start, name, std::strlen(name));
}

ini_section* ini_doc::find_section(const char* name)
{
    const int i = find_first(name);
    return i < 0 ? nullptr : sections_[static_cast<unsigned>(i)];
}

const ini_section* ini_doc::find_section(const char* name) const
{
    const int i = find_first(name);
    return i < 0 ? nullptr : sections_[static_cast<unsigned>(i)];
}

ini_section* ini_doc::get_section(unsigned index)
{
    return index < sections_.size() ? sections_[index] : nullptr;
}

const ini_section* ini_doc::get_section(unsigned index) const
{
    return index < sections_.size() ? sections_[index] : nullptr;
}

void ini_doc::remove_section(unsigned index)
{
    if (index >= sections_.size())
        return;
    share_str_page::releases released;
    attribute_builder::destroy(sections_[index], released);
    sections_.erase(sections_.begin() + index);
    changed();
}

void ini_doc::clear()
{
    share_str_page::releases released;
    for (ini_section* section : sections_)
        attribute_builder::destroy(section, released);
    sections_.clear();
    changed();
}

void ini_doc::changed()
{
    if (index_)
        index_->reset();
}
