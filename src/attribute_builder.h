// How readers of documents make pairs and sections: from ranges of the text, in pages.
#ifndef STDKRO_SRC_ATTRIBUTE_BUILDER_H
#define STDKRO_SRC_ATTRIBUTE_BUILDER_H

#include <stdkro/ini_doc.h>

#include "share_str_page.h"

struct attributes::list {
    unsigned count;
    unsigned capacity;
    attribute_index* index; // null until a long list is looked up

    static std::size_t size(unsigned capacity) { return sizeof(list) + capacity * sizeof(attribute*); }
    attribute** at() { return reinterpret_cast<attribute**>(this + 1); }
};

class attribute_builder {
public:
    /// These throw an xcpt where memory is short; nothing is appended then.
    attribute* append(attributes& to, const char* name, const char* name_end, const char* value,
                      const char* value_end);
    attribute* append(attributes& to, const share_str& name, const char* value, const char* value_end)
    {
        share_str name_text = name;
        share_str value_text = text(value, value_end);
        return append(to, name_text, value_text);
    }
    /// Takes the two texts.
    attribute* append(attributes& to, share_str& name, share_str& value)
    {
        if (!to.list_ || to.list_->count == to.list_->capacity)
            make_room(to);
        attribute* const made = new (block(sizeof(attribute))) attribute;
        made->name_.swap(name);
        made->value_.swap(value);
        to.list_->at()[to.list_->count++] = made;
        return made;
    }
    share_str text(const char* begin, const char* end)
    {
        share_str made = page_.text(begin, end);
        if (made.isempty() && begin != end)
            fail();
        return made;
    }
    ini_section* add_section(ini_doc& to, const share_str& name);

    /// These end the life of what stands in a page or has memory of its own.
    static void destroy(attribute* pair, share_str_page::releases& released);
    /// The list is empty afterwards, and owns nothing.
    static void destroy(attributes& pairs, share_str_page::releases& released)
    {
        if (pairs.list_)
            destroy_list(pairs, released);
    }
    static void destroy(ini_section* section, share_str_page::releases& released);

    /// For other blocks beside the pairs.
    share_str_page& page() { return page_; }

private:
    static constexpr unsigned first_pairs = 3;

    static void destroy_list(attributes& pairs, share_str_page::releases& released);
    [[noreturn]] static void fail();
    void make_room(attributes& to);
    void* block(std::size_t size)
    {
        void* const taken = page_.take(size);
        if (!taken)
            fail();
        return taken;
    }

    share_str_page page_;
};

#endif
