// MML records: one command in one line,
//
//     INTERFACE.METHOD:name=value,name="text",...;
//
// "METHOD:..." and a bare list of pairs are read too. A number is digits and
// points and has no sign; a text stands in double quotes, with \n \r \t and a
// backslash before any other byte for that byte.
//
// Reading what was written does not restore every record: written without a
// method, the interface reads back as a method; written without an interface,
// the method is lost.
#ifndef STDKRO_MML_DOC_H
#define STDKRO_MML_DOC_H

#include <stdkro/ini_doc.h>

/// A record: interface, method and the pairs, which are the list itself.
class KRO_API mml_doc : public attributes {
public:
    mml_doc() {}
    mml_doc(const mml_doc& other)
        : attributes(other), interface_(other.interface_), method_(other.method_)
    {
    }
    mml_doc& operator=(const mml_doc& other);

    using attributes::read;
    using attributes::write;

    /// Replaces the record by the one that `text` begins with; what follows its
    /// ";" is ignored. 0, or 0x80020005 for a syntax error: the pairs before it
    /// stay. A null text is a syntax error. The text may be a value of the record.
    int read(const char* text);
    /// Appends the record to `out`: 0, or 0x80010002 with `out` unchanged.
    int write(share_str& out) const;
    /// Reserved: writes nothing and returns 0x8002000b.
    int write(char* buffer, unsigned size);

    /// Empties interface, method and the pairs.
    void clear();

    attributes& get_attrs() { return *this; }
    const attributes& get_attrs() const { return *this; }
    const share_str& get_interface() const { return interface_; }
    const share_str& get_method() const { return method_; }
    void set_interface(const share_str& name) { interface_ = name; }
    void set_method(const share_str& name) { method_ = name; }

private:
    share_str interface_;
    share_str method_;
};

#endif
