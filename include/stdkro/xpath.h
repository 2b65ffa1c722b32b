// Paths into an XML tree: "/cfg/log[2]/@level".
//
// A path is a sequence of steps separated by "/":
//
//     name        a child element of that name
//     name[2]     the third of them: positions count from 0
//     #text       a child that is text; #comment and #pi likewise, each with a position
//     @name       an attribute
//     (nothing)   the root of the tree: at the start of a path, or in "//"
//
// `xpath` cuts a path into steps and knows no tree. The walks are operations of
// `xml_node`, and `xpath_iter` is what they find.
#ifndef STDKRO_XPATH_H
#define STDKRO_XPATH_H

#include <stdkro/config.h>
#include <stdkro/share_str.h>

class attribute;
class xml_node;

/// One step of a path.
class KRO_API xstep {
public:
    /// What a step selects.
    enum { none = 0, text = 1, comment = 3, element = 4, pi = 5, root = 6, attr = 7 };
    /// The longest name.
    enum { name_limit = 127 };

    xstep() { reset(); }
    /// Kind 0, index -1, no name.
    void reset()
    {
        kind = none;
        index = -1;
        name[0] = '\0';
    }

    int kind;
    /// The position in brackets; -1 when there was none.
    int index;
    /// Terminated.
    char name[name_limit + 1];
};

/// Cuts paths into steps. A class only to hold its static functions, which return
/// 0 or a status code: 0x80020005 for a byte that does not belong where it stands,
/// 0x80020006 for an unknown "#" word, 0x80000008 for a name over 127 bytes,
/// 0x8002000e for null.
class KRO_API xpath {
public:
    /// Reads the step at `text`. `next` is then where the following step begins; on
    /// failure it is `text`. The end of the path is a step of kind 0.
    static int split_step(const char* text, xstep* step, const char** next);
    /// The same up to `end`, where the text need not be terminated.
    static int split_step(const char* begin, const char* end, xstep* step, const char** next);

    /// Reads the last step; `last` is where it begins, behind the last "/".
    static int split(const char* begin, const char* end, const char** last, xstep* step);
    /// Reads the last step and copies what stands before it, its "/" included, to
    /// `parent`, which must hold 1,024 bytes. A part that does not fit is 0x80000008.
    /// `parent` is empty on failure.
    static int split(const char* path, char* parent, xstep* step);
};

/// What a look-up found: a node, or an attribute of a node. It is valid until that
/// is removed.
class KRO_API xpath_iter {
public:
    /// Found nothing.
    xpath_iter() : node_(nullptr), attr_(nullptr), place_(0) {}
    explicit xpath_iter(xml_node* node, attribute* found = nullptr) : node_(node), attr_(found), place_(0) {}

    /// Whether there is nothing here.
    bool IsDone() const { return !node_; }
    /// The node; of an attribute, its element. When done, a BUG line is printed and
    /// an empty node that belongs to no tree is given.
    xml_node& operator*() const;
    /// Moves to the next sibling of the same kind (of an element: and name), or the
    /// next attribute of the same name; done when there is none.
    xpath_iter& operator++();
    /// Becomes done.
    void reset()
    {
        node_ = nullptr;
        attr_ = nullptr;
    }

    /// The node; of an attribute, its element. Null when done.
    xml_node* get_node() const { return node_; }
    /// The element that holds the node or attribute. Null when done or at a root.
    xml_node* get_dir() const;
    /// The attribute, or null when this is not at one.
    attribute* get_attr() const { return attr_; }

    /// The value of the attribute, the text of the element, or the content of the
    /// text, comment or CDATA section. Where there is none, 0x80020004 and the empty
    /// text.
    int get_value(share_str& value) const;
    /// Sets the same; an element without text gets one. 0x80020004 for an
    /// instruction and when done.
    int set_value(const share_str& value);

private:
    xml_node* node_;
    attribute* attr_;
    unsigned place_; // of the attribute when it was reached: where to look for it first
};

#endif
