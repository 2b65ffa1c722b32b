// The handlers: the one that ignores everything, and the one that builds a tree.
#include <stdkro/xml_doc.h>

#include <stdkro/xcpt.h>

#include "xml_char.h"
#include "xml_node_memory.h"

// KEEP: the virtual functions in the order of their slots; programs were built on it.
int xml_handler::onBeginDocument() { return err::ok; }
int xml_handler::onEndDocument() { return err::ok; }
void xml_handler::onError(int, const char*) {}
int xml_handler::onBeginNode(const share_str&, attributes&) { return err::ok; }
int xml_handler::onEndNode(xml_node_t) { return err::ok; }
int xml_handler::onAttribute(const share_str&, const share_str&) { return err::ok; }
int xml_handler::onPI(const share_str&, attributes&) { return err::ok; }
int xml_handler::onComment(const share_str&) { return err::ok; }
int xml_handler::onText(const share_str&) { return err::ok; }
int xml_handler::onCDATA(const share_str&) { return err::ok; }
xml_handler::~xml_handler() {}

// The pointer of each level is the node being built there. A read of one element
// leaves that of its outermost level unset: it is the target.

xml_node_handler::xml_node_handler(xml_node* target, bool keep_text, bool keep_comments)
    : target_(target), keep_text_(keep_text), keep_comments_(keep_comments)
{
}

xml_node_handler::~xml_node_handler() {}

xml_node* xml_node_handler::enclosing(void* para) const { return para ? static_cast<xml_node*>(para) : target_; }

// A new last child, or null without memory.
xml_node* xml_node_handler::make(xml_node* parent, const share_str& name, xml_node_t kind)
{
    xml_node* const made = xml_node_memory::make(get_reader() ? get_reader()->page() : nullptr, name, kind);
    if (made)
        xml_node_memory::append(*parent, made);
    return made;
}

int xml_node_handler::append_to_level(const share_str& text, xml_node_t kind, attributes* attrs)
{
    xml_node* const parent = get_reader() ? enclosing(get_reader()->get_para()) : target_;
    if (!parent)
        return err::not_initialized;
    xml_node* const made = make(parent, text, kind);
    if (!made)
        return err::out_of_memory;
    if (attrs)
        made->attrs_.swap(*attrs);
    return err::ok;
}

int xml_node_handler::onBeginDocument()
{
    if (!target_)
        return err::not_initialized;
    target_->clear();
    if (get_reader())
        get_reader()->set_para(target_);
    return err::ok;
}

int xml_node_handler::onBeginNode(const share_str& name, attributes& attrs)
{
    if (!get_reader())
        return err::not_initialized;
    xml_node* const parent = enclosing(get_reader()->get_parent_para());
    if (!parent)
        return err::not_initialized;
    xml_node* const made = make(parent, name, XML_ELEMENT);
    if (!made)
        return err::out_of_memory;
    made->attrs_.swap(attrs);
    get_reader()->set_para(made);
    return err::ok;
}

int xml_node_handler::onEndNode(xml_node_t kind)
{
    void* const node = get_reader() ? get_reader()->get_para() : nullptr;
    if (!node)
        return err::not_initialized;
    static_cast<xml_node*>(node)->kind_ = kind;
    return err::ok;
}

int xml_node_handler::onPI(const share_str& name, attributes& attrs)
{
    return append_to_level(name, XML_PI, &attrs);
}

int xml_node_handler::onComment(const share_str& text)
{
    return keep_comments_ ? append_to_level(text, XML_COMMENT) : err::ok;
}

int xml_node_handler::onText(const share_str& text)
{
    if (keep_text_)
        return append_to_level(text, XML_TEXT);
    const char* begin = text.c_str();
    const char* end = begin + text.length();
    xml_char::trim(begin, end);
    if (begin == end)
        return err::ok;
    if (static_cast<unsigned>(end - begin) == text.length())
        return append_to_level(text, XML_TEXT);
    const share_str trimmed(begin, end);
    return trimmed.isempty() ? err::out_of_memory : append_to_level(trimmed, XML_TEXT);
}

int xml_node_handler::onCDATA(const share_str& text) { return append_to_level(text, XML_CDATA); }
