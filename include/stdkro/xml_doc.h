// XML: an event-driven reader, and the tree of nodes that is built from it.
//
//     xml_doc settings;
//     if (settings.read("service.xml", false, false) < 0)
//         return;
//     share_str port = settings.all()->get_value("/service/listen/@port");
//
// The language is a strict subset of XML over 8-bit text: values stand in double
// quotes, a name is made of "#$%-.@_`~", digits and letters (no colon) and has at
// most 127 characters, an end tag has no blanks, and there is no DTD. Encodings are
// declared, never converted. In "&#...;", a leading "x" or "0" means hexadecimal. A
// byte 255 is the end of the text.
//
// Nothing recurses: documents may be nested as deep as memory allows. A reader, a
// handler, and all trees that came from one read belong to one thread at a time.
#ifndef STDKRO_XML_DOC_H
#define STDKRO_XML_DOC_H

#include <stdkro/base_lexer.h>
#include <stdkro/config.h>
#include <stdkro/ini_doc.h>
#include <stdkro/share_str.h>
#include <stdkro/xpath.h>

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <new>

class xml_node;
class xml_new_nodes;
class xml_node_memory;
class xml_node_search;
class xml_reader;
class xml_tree_sink;
class xml_writer;

class share_str_page;
struct path_step;

/// What a node is.
enum xml_node_t : int {
    XML_TEXT = 1,
    XML_CDATA = 2,
    XML_COMMENT = 3,
    XML_ELEMENT = 4,
    XML_PI = 5,
    XML_DOCUMENT = 6
};

/// Walks the children of a node.
class KRO_API xml_node_iter {
public:
    /// At `node`, or done when it is null.
    explicit xml_node_iter(xml_node* node = nullptr) : node_(node) {}

    /// When done, a BUG line is printed and an empty node that belongs to no tree is
    /// given.
    xml_node& operator*() const;
    /// The node, or null.
    xml_node* ptr() const { return node_; }
    /// To the next sibling, and to the one before. Past either end it is done.
    xml_node_iter& operator++();
    xml_node_iter& operator--();
    /// Whether there is no node here.
    bool IsDone() const { return !node_; }

private:
    xml_node* node_;
};

/// A node of a tree: an element, a text, a comment, ... It owns its children.
///
/// Operations do not throw. Those that need memory and get none return 0x80010002 or
/// null and leave the tree as it was; a copy that cannot be made whole is empty.
class KRO_API xml_node {
public:
    /// What `mkdir` does where the last step exists already, or might.
    enum {
        mk_new = 1,       ///< makes another one, behind those that exist
        mk_exclusive = 4, ///< fails with 0x8002000a when it exists
    };

    /// A detached element without a name.
    xml_node();
    xml_node(const share_str& name, xml_node_t kind)
        : name_(name), kind_(kind), name_mark_(0), next_(nullptr), first_(nullptr), parent_(nullptr), prev_(nullptr)
    {
    }
    /// Copies the subtree; the copy is detached.
    xml_node(const xml_node& other);
    /// As `deep_copy`.
    xml_node& operator=(const xml_node& other);
    /// Unties the node and destroys its subtree.
    ~xml_node();

    xml_node* get_parent() const { return parent_; }
    xml_node* get_prev() const { return parent_ && parent_->first_ != this ? prev_ : nullptr; }
    xml_node* get_next() const { return next_; }
    /// The node without a parent, upwards from here.
    xml_node* get_root() const;

    xml_node_t get_type() const { return kind_; }
    void set_type(xml_node_t kind) { kind_ = kind; }
    /// The name of an element or instruction, the content of any other node.
    const share_str& get_name() const { return name_; }
    void set_name(const share_str& name)
    {
        name_ = name;
        name_mark_ = 0;
    }
    attributes& get_attrs() { return attrs_; }
    const attributes& get_attrs() const { return attrs_; }

    /// Whether the node has a parent or siblings.
    bool is_tied() const { return parent_ != nullptr; }
    bool is_child_emptied() const { return !first_; }

    /// Appends a node made by `new`, which then belongs to this one, and returns it.
    /// Null, and nothing happens, when it is tied, or is this node or holds it.
    xml_node* add(xml_node* child);
    /// The same before the child `before`; null too when that is not a child.
    xml_node* add(xml_node* before, xml_node* child);
    /// Makes a node and appends or inserts it.
    xml_node* add(const share_str& name, xml_node_t kind);
    xml_node* add(xml_node* before, const share_str& name, xml_node_t kind);

    /// Detaches the node from parent and siblings. It then belongs to the caller.
    void untie();
    /// Destroys one child; 0x80020004 when it is not a child.
    int remove(xml_node* child);
    /// Destroys all children.
    void clear();

    /// Exchanges names, kinds, attributes and children; both stay where they are.
    /// Nothing happens when one of them holds the other.
    void swap(xml_node& other);
    /// Becomes a copy of `other` and its subtree, and stays where it is. `other` may
    /// hold this node, or be held by it.
    void deep_copy(const xml_node& other);

    xml_node_iter get_childs() const { return xml_node_iter(first_); }
    /// The first child of a kind, and of elements also of a name; null when there is
    /// none. The next sibling likewise. Kinds other than text, comment, element and
    /// instruction are never found.
    xml_node* find_first(xml_node_t kind, const char* name) const;
    xml_node* find_next(xml_node_t kind, const char* name) const;
    /// The child, attribute or root that one step means.
    int find_first(const xstep& step, xpath_iter& found);

    /// What the path means, from here. 0x80020004 when there is no such thing,
    /// 0x80020005 when a step that is not an element leads on, 0x80000001 for an
    /// unknown kind, or the code of a bad path; `found` is done then.
    int find(const char* path, xpath_iter& found);
    /// The same; done on any failure.
    xpath_iter find(const char* path);
    /// The element (or the root) that the path means, or null.
    xml_node* find_dir(const char* path);
    xml_node* kroFindDir(const char* path) { return find_dir(path); }

    /// The value of what the path means: see `xpath_iter`. The empty text on failure.
    int get_value(const char* path, share_str& value);
    share_str get_value(const char* path);
    /// Sets it, and makes what is missing as `mkdir` does; bit 4 of `flags` is ignored.
    int set_value(const char* path, const share_str& value, int flags = 0);
    /// The text of this element: its first child that is text. 0x80020004 and the
    /// empty text when there is none.
    int kroGetValue(share_str& value) const;
    /// Sets it; where there is none, a text is appended. 0 or 0x80010002.
    int kroSetValue(const share_str& value);

    /// Makes the elements of a path, each missing one as a new last child. The last
    /// step may also be a text, comment or attribute. A position may name the next
    /// one that does not exist yet; further ones are 0x80020004. A second root of a
    /// document is 0x80000008. On failure nothing was made. `made`, unless null, is
    /// then at the last step.
    int mkdir(const char* path, xpath_iter* made = nullptr, int flags = 0);
    /// Removes what the path means: an element with all in it, another node, or an
    /// attribute. The root of a tree cannot be removed: 0x80000007.
    int rmdir(const char* path);

    /// Reads one element, which begins at the reader's position, and appends it to
    /// this node. Without `keep_text` each text is trimmed of white space, and
    /// dropped when nothing is left. What was read before a failure stays.
    int read(xml_reader& from, bool keep_text, bool keep_comments);
    /// Prints the node; a document prints its children. `pretty` indents.
    /// 0, or 0x80020002 when the stream fails, also where it was told to throw;
    /// 0x80010002 when it throws for want of memory.
    int write(std::ostream& to, bool pretty) const;

    /// Nodes made by a reader stand together in larger blocks.
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, const std::nothrow_t&) noexcept;
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* node) noexcept;
    static void operator delete(void* node, const std::nothrow_t&) noexcept;
    static void operator delete(void*, void*) noexcept {}

private:
    friend class xml_node_handler;
    friend class xml_node_memory;
    friend class xml_node_search;
    friend class xml_tree_sink;
    friend class xml_writer;

    void insert(xml_node* before, xml_node* child);
    bool may_add(const xml_node* child) const;
    bool holds(const xml_node* node) const;
    bool has_element() const;
    bool copy_children(const xml_node& other);
    void exchange(xml_node& other);
    void adopt_children();
    int find_step(const path_step& step, xpath_iter& found);
    int create_node(const path_step& step, xpath_iter& made, xml_new_nodes& created);
    int create_attribute(const path_step& step, xpath_iter& made);
    int create_step(const path_step& step, int flags, xpath_iter& made, xml_new_nodes& created);
    int make_path(const char* path, int flags, xpath_iter& made, xml_new_nodes& created);

    share_str name_;
    xml_node_t kind_;
    mutable std::uint32_t name_mark_; // what look-ups compare first; 0 until one has asked
    xml_node* next_; // beside what look-ups compare, so that one line of the cache has both
    xml_node* first_;
    xml_node* parent_;
    xml_node* prev_; // of a first child, the last: appending takes constant time
    attributes attrs_;
};

/// What `xml_reader` reports to. A negative result stops the reader with that code.
class KRO_API xml_handler {
public:
    xml_handler() : reader_(nullptr) {}

    virtual int onBeginDocument();
    virtual int onEndDocument();
    /// Reading failed. The message is in GBK; empty where a handler stopped it.
    virtual void onError(int code, const char* message);
    /// An element begins. `attrs` may be swapped away.
    virtual int onBeginNode(const share_str& name, attributes& attrs);
    virtual int onEndNode(xml_node_t kind);
    /// Each attribute as it is read, before `onBeginNode` or `onPI`.
    virtual int onAttribute(const share_str& name, const share_str& value);
    /// An instruction. `attrs` may be swapped away.
    virtual int onPI(const share_str& name, attributes& attrs);
    virtual int onComment(const share_str& text);
    /// Text with its escapes decoded, white space and all.
    virtual int onText(const share_str& text);
    virtual int onCDATA(const share_str& text);
    virtual ~xml_handler();

    /// The reader that drives this handler; it sets itself before the first event.
    void set_reader(xml_reader* reader) { reader_ = reader; }
    xml_reader* get_reader() const { return reader_; }

private:
    xml_reader* reader_;
};

struct xml_reader_state;

/// Reads XML text, and reports what it finds to an `xml_handler`.
///
/// For the document and for each element being read there is a level, which holds
/// the element's name and a pointer for the handler to use.
class KRO_API xml_reader : public reader {
public:
    xml_reader();
    /// Copies the text and the position, not the handler.
    xml_reader(const xml_reader& other);
    xml_reader& operator=(const xml_reader& other);
    ~xml_reader();

    /// The handler of all events from now on.
    void set_handler(xml_handler* handler);
    xml_handler* get_handler() const { return handler_; }

    /// Reads a whole document from the position on. A null `handler` means the one
    /// given by `set_handler`; without any, 0x8002000e.
    ///
    /// On failure the handler's `onError` is called and the code returned. The reader
    /// can be used again at once.
    int read_doc(xml_handler* handler);
    /// Reads one element, which must begin at the position. There are no document
    /// events.
    int read_node(xml_handler* handler);
    /// "line(N): error(0x...): MESSAGE" and a line feed, of the last failure; empty
    /// before any. The reader prints it nowhere.
    const char* get_error() const { return error_; }

    /// Writes the path of the element being read, such as "/a/b", terminated and cut
    /// to `size` bytes. Returns its length, or 0x80000008 when it was cut.
    int get_path(char* buffer, unsigned size) const;

    /// Sets and reads the pointer of the current level, and reads that of the level
    /// around it: null where there is none.
    void set_para(void* para);
    void* get_para() const;
    void* get_parent_para() const;

private:
    friend struct xml_reader_state;
    friend class xml_node_handler;

    /// Memory for what is built during a read; null without one.
    share_str_page* page() const;
    int run(xml_handler* handler, bool whole_document);

    xml_handler* handler_;
    xml_reader_state* state_; // of the read in progress, or null
    char error_[512];
};

/// The handler that builds a tree.
class KRO_API xml_node_handler : public xml_handler {
public:
    /// Builds under `target`, which `read_doc` clears first. Null makes every read
    /// fail with 0x80000003.
    xml_node_handler(xml_node* target, bool keep_text, bool keep_comments);

    int onBeginDocument() override;
    int onBeginNode(const share_str& name, attributes& attrs) override;
    int onEndNode(xml_node_t kind) override;
    int onPI(const share_str& name, attributes& attrs) override;
    int onComment(const share_str& text) override;
    int onText(const share_str& text) override;
    int onCDATA(const share_str& text) override;
    ~xml_node_handler() override;

private:
    friend class xml_tree_sink;

    xml_node* make(xml_node* parent, const share_str& name, xml_node_t kind);
    xml_node* enclosing(void* para) const;
    int append_to_level(const share_str& text, xml_node_t kind, attributes* attrs = nullptr);

    xml_node* target_;
    bool keep_text_;
    bool keep_comments_;
};

/// A document: the declaration, comments, instructions, and one root element.
class KRO_API xml_doc {
public:
    /// An empty document.
    xml_doc();
    /// A declaration (version "1.0", encoding "gb2312") and an empty root element.
    explicit xml_doc(const char* root);
    xml_doc(const char* root, const char* version, const char* encoding);
    xml_doc(const xml_doc& other);
    xml_doc& operator=(const xml_doc& other);
    virtual ~xml_doc();

    /// Clears the document and writes declaration and root anew. 0x8002000e without
    /// a root's name; a null version or encoding means the usual one. The texts may
    /// stand in the document itself. On failure it stays as it was.
    int init(const char* root, const char* version = nullptr, const char* encoding = nullptr);

    /// Replaces the content by what is read: see `xml_node::read`. What was read
    /// before a failure stays.
    int read(xml_reader& from, bool keep_text, bool keep_comments);
    /// Reads a file, byte for byte.
    int read(const char* file, bool keep_text, bool keep_comments);
    int write(std::ostream& to, bool pretty) const;
    /// Replaces a file; 0x80020002 when it cannot be opened or writing fails.
    int write(const char* file, bool pretty) const;

    /// The document node, from which paths start.
    xml_node* all() { return &all_; }
    const xml_node* all() const { return &all_; }
    /// The root element, or null.
    xml_node* get_doc_node() const;
    /// Whether there is nothing in the document.
    bool is_emptied() const { return all_.is_child_emptied(); }
    void clear() { all_.clear(); }

protected:
    /// Appends the declaration and the root element. 0 or 0x80010002.
    int set_doc_title(const char* root, const char* version, const char* encoding);
    /// Finds the root element among the document's children.
    xml_node* seek_doc_node() const;

private:
    xml_node all_;
};

#endif
