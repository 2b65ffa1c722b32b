// INI documents: ordered lists of named sections, each an ordered list of
// name/value pairs.
//
// Nothing is merged and nothing is sorted: names may repeat, order is kept, and
// a look-up gives the first match. Names are compared byte by byte.
//
//     ini_doc settings;
//     if (settings.read("service.ini") < 0)
//         return;
//     if (const ini_section* server = settings.find_section("server"))
//         listen(server->read("port", 8080));
//
// A list or document belongs to one thread at a time, also for look-ups: a long
// one builds itself an index when names are looked up in it.
//
// Where memory runs out, functions with a status code return 0x80010002 and the
// others throw an `xcpt` with that code; the object is then as it was before.
#ifndef STDKRO_INI_DOC_H
#define STDKRO_INI_DOC_H

#include <stdkro/base_lexer.h>
#include <stdkro/config.h>
#include <stdkro/share_str.h>

#include <iosfwd>
#include <vector>

class attribute_builder;
class attribute_index;

/// A name and its value.
class KRO_API attribute {
public:
    attribute() {}
    attribute(const share_str& name, const share_str& value) : name_(name), value_(value) {}
    attribute(const attribute& other) : name_(other.name_), value_(other.value_) {}
    attribute& operator=(const attribute& other);
    ~attribute() {}

    const share_str& get_name() const { return name_; }
    const share_str& get_value() const { return value_; }
    void set_name(const share_str& name);
    void set_value(const share_str& value) { value_ = value; }

private:
    friend class attribute_builder;
    friend class attributes;

    share_str name_;
    share_str value_;
};

/// An ordered list of pairs, which it owns. A pair keeps its address until it is
/// removed. Names may repeat; look-ups give the first match. A null name matches
/// nothing.
class KRO_API attributes {
public:
    /// A new list owns no memory.
    attributes() : list_(nullptr) {}
    /// Copies every pair.
    attributes(const attributes& other);
    attributes& operator=(const attributes& other);
    virtual ~attributes()
    {
        if (list_)
            destroy_list();
    }

    /// Appends a copy of the pair. These return the new pair.
    attribute* add_attr(const attribute& pair);
    attribute* add_attr(const share_str& name, const share_str& value);
    /// Inserts before the pair at `index`; past the end it appends.
    attribute* add_attr(unsigned index, const share_str& name, const share_str& value);

    /// Index of the first pair at or after `start` with that name, or -1.
    int find_attr(unsigned start, const char* name) const;
    /// The first pair with that name, or null.
    attribute* find_attr(const char* name);
    const attribute* find_attr(const char* name) const;
    /// The first pair with that name; where there is none, a new one at the end
    /// with an empty value.
    attribute* gen_attr(const char* name);

    /// The pair at `index`, or null past the end.
    attribute* get_attr(unsigned index);
    const attribute* get_attr(unsigned index) const;
    /// The pair at `index`. Past the end a BUG line is printed and an empty pair
    /// that belongs to no list is given.
    attribute& operator[](unsigned index);
    const attribute& operator[](unsigned index) const;
    unsigned count() const;

    /// Removes and destroys the pair at `index`; past the end it does nothing.
    void remove_attr(unsigned index);
    void clear();
    /// Exchanges the pairs of the two lists; pairs keep their addresses.
    void swap(attributes& other)
    {
        list* mine = list_;
        list_ = other.list_;
        other.list_ = mine;
    }

    /// The value as a decimal number; `def` where the name is absent or a
    /// character is left over ("12x"). An empty value is 0. Numbers outside the
    /// range of an int give its nearest end.
    int read(const char* name, int def) const;
    /// The value as a floating-point number, under the same rules. The point is
    /// "." in every locale.
    double read(const char* name, double def) const;
    /// The value as it stands.
    share_str read(const char* name, const share_str& def) const;
    share_str read(const char* name, const char* def) const;

    /// These set the value of `gen_attr(name)`: 0, or 0x80010002.
    int write(const char* name, int value);
    /// Six significant digits ("%g").
    int write(const char* name, double value);
    int write(const char* name, const share_str& value);
    int write(const char* name, const char* value);

private:
    friend class attribute_builder;
    struct list;

    void reserve(unsigned capacity);
    void make_room();
    attribute* enter(unsigned index, const share_str& name, const share_str& value);
    int find_first(const char* name) const;
    void changed();
    void remove_all();
    void destroy_list();

    list* list_; // null while nothing was ever added
};

/// A named list of pairs.
class KRO_API ini_section : public attributes {
public:
    ini_section() {}
    explicit ini_section(const share_str& name) : name_(name) {}
    ini_section(const ini_section& other) : attributes(other), name_(other.name_) {}
    ini_section& operator=(const ini_section& other);

    const share_str& get_name() const { return name_; }
    void set_name(const share_str& name);

private:
    friend class attribute_builder;

    share_str name_;
};

class ini_reader;

/// What `ini_reader` reports to. Ranges point into the reader's text, end
/// exclusive, and live as long as it does; they are not terminated. Names, keys
/// and values come trimmed of white space, comments as they stand. A negative
/// result ends reading.
class KRO_API ini_handler {
public:
    ini_handler() : reader_(nullptr) {}
    explicit ini_handler(ini_reader* reader) : reader_(reader) {}

    virtual int onBegin() = 0;
    /// Always the last call, but for an `onBegin` that failed. `result` is the
    /// last handler result; what this returns is what `read_ini` returns.
    virtual int onEnd(int result) = 0;
    /// A syntax error, the message in GBK. Reading ends whatever this returns.
    virtual int onError(int code, const char* message);
    virtual int onSection(const char* begin, const char* end) = 0;
    virtual int onKeyValue(const char* key, const char* key_end, const char* value, const char* value_end) = 0;
    virtual int onComment(const char* begin, const char* end);
    virtual ~ini_handler();

    /// The reader that drives this handler; not owned. `read_ini` sets it.
    void set_reader(ini_reader* reader) { reader_ = reader; }
    ini_reader* get_reader() const { return reader_; }

private:
    ini_reader* reader_;
};

/// Reads INI text and reports what it finds:
///
///     [name]          a section; a key may follow on the same line
///     key = value     up to the end of the line, "=" and ";" included
///     ; comment       only where a line's content begins
///
/// Two things one would not guess: a byte 255 is taken for the end of the text,
/// and a last line without a line end loses its last byte.
class KRO_API ini_reader : public reader {
public:
    /// Reads the whole text. Returns what `onEnd` returns, a negative result of
    /// `onBegin`, or 0x8002000e for a null handler.
    int read_ini(ini_handler* handler);
};

/// A document in memory. Sections keep their addresses until they are removed.
class KRO_API ini_doc {
public:
    ini_doc();
    /// Copies every section and pair.
    ini_doc(const ini_doc& other);
    ini_doc& operator=(const ini_doc& other);
    virtual ~ini_doc();

    /// Becomes a deep copy of `other`.
    void raw_copy(const ini_doc& other);

    /// Replaces the content by what the reader gives. Pairs before the first
    /// header land in a section with the empty name; comments are dropped. After
    /// an error the sections read so far stay.
    int read(ini_reader& from);
    /// Reads a file; 0x80020002 when it cannot be opened.
    int read(const char* path);

    /// Writes "[name]" and "name=value" lines, nothing quoted, no blank lines,
    /// each text up to its first NUL. 0x80020002 when the stream fails, also where it
    /// was told to throw; 0x80010002 when it throws for want of memory.
    int write(std::ostream& to) const;
    /// The same into a file, which is replaced; 0x80020002 when it cannot be
    /// opened or writing fails.
    int write(const char* path) const;

    /// Appends and returns a new section, also where the name is there already.
    ini_section* add_section(const share_str& name);
    /// Inserts before the section at `index`; past the end it appends.
    ini_section* add_section(unsigned index, const share_str& name);

    /// Index of the first section at or after `start` with that name, or -1.
    int find_section(unsigned start, const char* name) const;
    /// The first section with that name, or null.
    ini_section* find_section(const char* name);
    const ini_section* find_section(const char* name) const;

    /// The section at `index`, or null past the end.
    ini_section* get_section(unsigned index);
    const ini_section* get_section(unsigned index) const;
    unsigned get_section_count() const { return static_cast<unsigned>(sections_.size()); }
    /// All sections in order, owned by the document.
    const std::vector<ini_section*>& get_sections() const { return sections_; }

    /// Removes and destroys the section at `index`; past the end it does nothing.
    void remove_section(unsigned index);
    void clear();

private:
    friend class attribute_builder;

    int find_first(const char* name) const;
    void changed();

    std::vector<ini_section*> sections_;
    mutable attribute_index* index_; // null until many sections are looked up
};

#endif
