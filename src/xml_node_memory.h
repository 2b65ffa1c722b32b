// Where nodes stand: those that a reader or a copy makes in pages, together with
// their texts and pairs, and others in blocks of their own.
#ifndef STDKRO_SRC_XML_NODE_MEMORY_H
#define STDKRO_SRC_XML_NODE_MEMORY_H

#include <stdkro/xml_doc.h>

#include "attribute_builder.h"
#include "share_str_page.h"

#include <cstdlib>
#include <new>

/// A node of no tree, for iterators that are done; prints the BUG line of `module`.
xml_node& stray_xml_node(const char* module, int line);

class xml_node_memory {
public:
    /// A detached node in the page, or by itself where that is null. Null without memory.
    static xml_node* make(share_str_page* page, const share_str& name, xml_node_t kind)
    {
        void* const place = page ? page->take(sizeof(xml_node)) : std::malloc(sizeof(xml_node));
        return place ? new (place) xml_node(name, kind) : nullptr;
    }

    /// Makes a detached node the last child.
    static void append(xml_node& parent, xml_node* child)
    {
        child->parent_ = &parent;
        xml_node* const first = parent.first_;
        if (first) {
            child->prev_ = first->prev_;
            first->prev_->next_ = child;
            first->prev_ = child;
        } else {
            child->prev_ = child;
            parent.first_ = child;
        }
    }

    /// Asks memory for the nodes that were made before this one.
    static void fetch_before(const xml_node* node) { share_str_page::fetch(node, -4096); }

    /// Destroys a node without children, whatever it is linked with.
    static void destroy(xml_node* node, share_str_page::releases& released)
    {
        attribute_builder::destroy(node->attrs_, released);
        released.add(node->name_);
        if (share_str_page::holds(node))
            released.add(static_cast<void*>(node));
        else
            std::free(static_cast<void*>(node));
    }
};

#endif
