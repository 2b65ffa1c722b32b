// The tree.
//
// Children form a list: each knows its neighbours, the parent knows the first, and
// the first keeps the last in its `prev_`, which the public get_prev hides.
//
// Every walk over a subtree goes by these links and keeps no stack: trees may be
// as deep as memory allows.
#include <stdkro/xml_doc.h>

#include <stdkro/xcpt.h>

#include "bug.h"
#include "thread_object.h"
#include "xml_node_memory.h"

namespace {

bool copy_attributes(attributes& to, const attributes& from)
{
    if (from.count() == 0)
        return true;
    try {
        to = from;
        return true;
    } catch (const xcpt&) {
        return false;
    }
}

} // namespace

xml_node& stray_xml_node(const char* module, int line)
{
    report_bug(module, line);
    xml_node& stray = thread_object<xml_node>();
    stray.clear();
    stray = xml_node();
    return stray;
}

// ---- iterators

xml_node& xml_node_iter::operator*() const { return node_ ? *node_ : stray_xml_node("src/xml_node", __LINE__); }

xml_node_iter& xml_node_iter::operator++()
{
    if (node_)
        node_ = node_->get_next();
    return *this;
}

xml_node_iter& xml_node_iter::operator--()
{
    if (node_)
        node_ = node_->get_prev();
    return *this;
}

// ---- life

xml_node::xml_node() : xml_node(share_str(), XML_ELEMENT) {}

xml_node::xml_node(const xml_node& other) : xml_node() { deep_copy(other); }

xml_node& xml_node::operator=(const xml_node& other)
{
    deep_copy(other);
    return *this;
}

xml_node::~xml_node()
{
    untie();
    clear();
}

void* xml_node::operator new(std::size_t size)
{
    void* const block = std::malloc(size);
    if (!block)
        throw xcpt(err::out_of_memory, get_err_info(err::out_of_memory));
    return block;
}

void* xml_node::operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }

void xml_node::operator delete(void* node) noexcept
{
    if (share_str_page::holds(node))
        share_str_page::release(node);
    else
        std::free(node);
}

void xml_node::operator delete(void* node, const std::nothrow_t&) noexcept { operator delete(node); }

// ---- links

xml_node* xml_node::get_root() const
{
    const xml_node* at = this;
    while (at->parent_)
        at = at->parent_;
    return const_cast<xml_node*>(at);
}

bool xml_node::holds(const xml_node* node) const
{
    while (node && node != this)
        node = node->parent_;
    return node == this;
}

// Of a node without parent and children only the node itself could be this one.
bool xml_node::may_add(const xml_node* child) const
{
    if (!child || child == this || child->is_tied())
        return false;
    return !child->first_ || get_root() != child;
}

void xml_node::insert(xml_node* before, xml_node* child)
{
    child->parent_ = this;
    child->next_ = before;
    child->prev_ = before->prev_;
    before->prev_ = child;
    if (before == first_)
        first_ = child;
    else
        child->prev_->next_ = child;
}

void xml_node::untie()
{
    if (!parent_)
        return;
    xml_node* const first = parent_->first_;
    if (this == first) {
        parent_->first_ = next_;
        if (next_)
            next_->prev_ = prev_;
    } else {
        prev_->next_ = next_;
        (next_ ? next_ : first)->prev_ = prev_;
    }
    parent_ = prev_ = next_ = nullptr;
}

// After the list of children changed hands.
void xml_node::adopt_children()
{
    for (xml_node* child = first_; child; child = child->next_)
        child->parent_ = this;
}

// ---- children

xml_node* xml_node::add(xml_node* child)
{
    if (!may_add(child))
        return nullptr;
    xml_node_memory::append(*this, child);
    return child;
}

xml_node* xml_node::add(xml_node* before, xml_node* child)
{
    if (!before || before->parent_ != this || !may_add(child))
        return nullptr;
    insert(before, child);
    return child;
}

xml_node* xml_node::add(const share_str& name, xml_node_t kind)
{
    xml_node* const made = new (std::nothrow) xml_node(name, kind);
    if (made)
        xml_node_memory::append(*this, made);
    return made;
}

xml_node* xml_node::add(xml_node* before, const share_str& name, xml_node_t kind)
{
    if (!before || before->parent_ != this)
        return nullptr;
    xml_node* const made = new (std::nothrow) xml_node(name, kind);
    if (made)
        insert(before, made);
    return made;
}

int xml_node::remove(xml_node* child)
{
    if (!child || child->parent_ != this)
        return err::not_exist;
    delete child;
    return err::ok;
}

// In document order, which is that of memory for what was read: the children of each
// node are put in front of its next sibling, and the node goes.
void xml_node::clear()
{
    share_str_page::releases released;
    xml_node* at = first_;
    first_ = nullptr;
    while (at) {
        xml_node* next = at->next_;
        if (xml_node* const first = at->first_) {
            first->prev_->next_ = next;
            next = first;
        }
        xml_node_memory::destroy(at, released);
        at = next;
    }
}

void xml_node::exchange(xml_node& other)
{
    const xml_node_t kind = kind_;
    kind_ = other.kind_;
    other.kind_ = kind;
    xml_node* const first = first_;
    first_ = other.first_;
    other.first_ = first;
    name_.swap(other.name_);
    name_mark_ = other.name_mark_ = 0;
    attrs_.swap(other.attrs_);
    adopt_children();
    other.adopt_children();
}

void xml_node::swap(xml_node& other)
{
    if (!holds(&other) && !other.holds(this))
        exchange(other);
}

// The copy is made whole before anything of this node goes: `other` may be part of it.
void xml_node::deep_copy(const xml_node& other)
{
    if (this == &other)
        return;
    xml_node copy(other.name_, other.kind_);
    if (copy_attributes(copy.attrs_, other.attrs_) && copy.copy_children(other))
        exchange(copy);
}

bool xml_node::copy_children(const xml_node& other)
{
    share_str_page page;
    xml_node* to = this;
    const xml_node* at = other.first_;
    while (at) {
        xml_node* const made = xml_node_memory::make(&page, at->name_, at->kind_);
        if (!made)
            return false;
        xml_node_memory::append(*to, made);
        if (!copy_attributes(made->attrs_, at->attrs_))
            return false;
        if (at->first_) {
            to = made;
            at = at->first_;
            continue;
        }
        while (!at->next_) {
            at = at->parent_;
            if (at == &other)
                return true;
            to = to->parent_;
        }
        at = at->next_;
    }
    return true;
}

// ---- text

int xml_node::read(xml_reader& from, bool keep_text, bool keep_comments)
{
    xml_node_handler builder(this, keep_text, keep_comments);
    return from.read_node(&builder);
}
