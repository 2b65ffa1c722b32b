// Look-ups in the tree by path, and the walk that makes what is missing.
#include <stdkro/xml_doc.h>

#include <stdkro/xcpt.h>

#include "xml_char.h"
#include "xml_node_memory.h"
#include "xpath_step.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

// The nodes that a walk made, to be removed when it fails: all of them but those that
// stand in one made just before. "//" in a path makes it begin anew at the root.
class xml_new_nodes {
public:
    /// Room for one more; false without memory.
    bool reserve()
    {
        try {
            if (tops_.size() == tops_.capacity())
                tops_.reserve(tops_.size() * 2 + 4);
            return true;
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    void enter(xml_node* node)
    {
        if (node->get_parent() != last_)
            tops_.push_back(node);
        last_ = node;
    }
    /// The newest first: an older one may hold it.
    void remove()
    {
        for (; !tops_.empty(); tops_.pop_back())
            delete tops_.back();
    }

private:
    xml_node* last_ = nullptr;
    std::vector<xml_node*> tops_;
};

namespace {

bool is_searched(xml_node_t kind)
{
    return kind == XML_TEXT || kind == XML_COMMENT || kind == XML_ELEMENT || kind == XML_PI;
}

} // namespace

// Finds nodes of a kind and, for elements, a name: by its mark first, which stands in the
// node, so that other names are not even read.
class xml_node_search {
public:
    xml_node_search(xml_node_t kind, const char* name)
        : xml_node_search(kind, name, kind == XML_ELEMENT && name ? std::strlen(name) : 0)
    {
    }
    xml_node_search(xml_node_t kind, const char* name, std::size_t length)
        : kind_(kind), name_(name), length_(length),
          mark_(kind == XML_ELEMENT && name ? xml_char::mark_of(name, length) : no_mark)
    {
    }
    explicit xml_node_search(const path_step& step)
        : xml_node_search(static_cast<xml_node_t>(step.kind), step.name, step.length)
    {
    }

    bool matches(const xml_node* node) const
    {
        if (node->kind_ != kind_)
            return false;
        if (kind_ != XML_ELEMENT)
            return true;
        return mark_of(node) == mark_ && node->name_.length() == length_
            && xml_char::same(node->name_.c_str(), name_, length_);
    }

    xml_node* first_from(xml_node* node)
    {
        while (node && !matches(node)) {
            fetch_behind(node, node->next_);
            node = node->next_;
        }
        return node;
    }

    /// Match number `index`, or null; `passed` is then how many there are.
    xml_node* nth_from(xml_node* node, int index, int& passed)
    {
        passed = 0;
        for (node = first_from(node); node && passed < index; node = first_from(node->get_next()))
            ++passed;
        return node;
    }

private:
    static constexpr std::uint32_t no_mark = 0; // of no name

    static std::uint32_t mark_of(const xml_node* node)
    {
        if (node->name_mark_ == no_mark)
            node->name_mark_ = xml_char::mark_of(node->name_.c_str(), node->name_.length());
        return node->name_mark_;
    }

    // Only `next` knows where the node behind it is, but siblings that were read stand at
    // like distances: memory is asked for what is probably there three siblings on.
    static void fetch_behind(const xml_node* node, const xml_node* next)
    {
        const auto from = reinterpret_cast<std::uintptr_t>(node), to = reinterpret_cast<std::uintptr_t>(next);
        __builtin_prefetch(reinterpret_cast<const void*>(to + 3 * (to - from) + offset_of_kind));
    }
    static constexpr std::uintptr_t offset_of_kind = sizeof(void*);

    xml_node_t kind_;
    const char* name_;
    std::size_t length_;
    std::uint32_t mark_;
};

namespace {

path_step view_of(const xstep& step)
{
    path_step view;
    view.kind = step.kind;
    view.index = step.index;
    view.name = step.name;
    view.length = static_cast<unsigned>(std::strlen(step.name));
    return view;
}

share_str name_of(const path_step& step) { return share_str(step.name, step.name + step.length); }

attribute* find_pair(attributes& list, const path_step& step)
{
    for (unsigned i = 0; i < list.count() && i < 8; ++i) {
        attribute* const pair = list.get_attr(i);
        const share_str& name = pair->get_name();
        if (name.length() == step.length && xml_char::same(name.c_str(), step.name, step.length))
            return pair;
    }
    if (list.count() <= 8)
        return nullptr;
    char name[xstep::name_limit + 1]; // takes no memory: a pair that is there must be found
    std::memcpy(name, step.name, step.length);
    name[step.length] = '\0';
    return list.find_attr(name);
}

// Where the pair stands, or the number of pairs. `guess` is right unless pairs came or
// went in front of it.
unsigned place_of(const attributes& list, const attribute* pair, unsigned guess)
{
    if (list.get_attr(guess) == pair)
        return guess;
    unsigned i = 0;
    while (i < list.count() && list.get_attr(i) != pair)
        ++i;
    return i;
}

// Whether every step of a path can be made: 0 or a status code.
int check_steps(const char* path)
{
    if (!path)
        return err::invalid_parameter;
    for (path_place at { path, nullptr };;) {
        path_step step;
        const int r = read_path_step(at, step);
        if (r < 0)
            return r;
        if (step.kind == xstep::none)
            return err::not_exist;
        if (at.at_end())
            return err::ok;
        if (!step.leads_on())
            return err::syntax;
    }
}

int remove_attribute(attributes& list, const attribute* pair)
{
    const unsigned place = place_of(list, pair, 0);
    if (place == list.count())
        return err::not_exist;
    list.remove_attr(place);
    return err::ok;
}

} // namespace

xml_node& xpath_iter::operator*() const { return node_ ? *node_ : stray_xml_node("src/xml_path", __LINE__); }

xpath_iter& xpath_iter::operator++()
{
    if (attr_) {
        attributes& list = node_->get_attrs();
        const int next = list.find_attr(place_of(list, attr_, place_) + 1, attr_->get_name().c_str());
        if (next < 0) {
            reset();
        } else {
            place_ = static_cast<unsigned>(next);
            attr_ = list.get_attr(place_);
        }
    } else if (node_) {
        node_ = node_->find_next(node_->get_type(), node_->get_name().c_str());
    }
    return *this;
}

xml_node* xpath_iter::get_dir() const
{
    if (attr_ || !node_)
        return node_;
    return node_->get_parent();
}

int xpath_iter::get_value(share_str& value) const
{
    if (!attr_ && (!node_ || node_->get_type() == XML_PI)) {
        value.clear();
        return err::not_exist;
    }
    if (!attr_ && (node_->get_type() == XML_ELEMENT || node_->get_type() == XML_DOCUMENT))
        return node_->kroGetValue(value);
    value = attr_ ? attr_->get_value() : node_->get_name();
    return err::ok;
}

int xpath_iter::set_value(const share_str& value)
{
    if (attr_) {
        attr_->set_value(value);
        return err::ok;
    }
    if (!node_ || node_->get_type() == XML_PI)
        return err::not_exist;
    if (node_->get_type() == XML_ELEMENT || node_->get_type() == XML_DOCUMENT)
        return node_->kroSetValue(value);
    node_->set_name(value);
    return err::ok;
}

// ---- look-ups

xml_node* xml_node::find_first(xml_node_t kind, const char* name) const
{
    return is_searched(kind) ? xml_node_search(kind, name).first_from(first_) : nullptr;
}

xml_node* xml_node::find_next(xml_node_t kind, const char* name) const
{
    return is_searched(kind) ? xml_node_search(kind, name).first_from(next_) : nullptr;
}

int xml_node::find_first(const xstep& step, xpath_iter& found) { return find_step(view_of(step), found); }

int xml_node::find_step(const path_step& step, xpath_iter& found)
{
    found.reset();
    int passed = 0;
    switch (step.kind) {
    case xstep::none:
        return err::not_exist;
    case xstep::text:
    case xstep::comment:
    case xstep::element:
    case xstep::pi:
        if (step.position() >= 0)
            found = xpath_iter(xml_node_search(step).nth_from(first_, step.position(), passed));
        break;
    case xstep::root:
        found = xpath_iter(get_root());
        break;
    case xstep::attr:
        if (attribute* const pair = find_pair(attrs_, step))
            found = xpath_iter(this, pair);
        break;
    default:
        return err::internal;
    }
    return found.IsDone() ? err::not_exist : err::ok;
}

int xml_node::find(const char* path, xpath_iter& found)
{
    found.reset();
    if (!path)
        return err::invalid_parameter;
    xml_node* node = this;
    for (path_place at { path, nullptr };;) {
        path_step step;
        xpath_iter here;
        int r = read_path_step(at, step);
        if (r >= 0)
            r = node->find_step(step, here);
        if (r < 0)
            return r;
        if (at.at_end()) {
            found = here;
            return err::ok;
        }
        if (!step.leads_on())
            return err::syntax;
        node = here.get_node();
    }
}

xpath_iter xml_node::find(const char* path)
{
    xpath_iter found;
    find(path, found);
    return found;
}

xml_node* xml_node::find_dir(const char* path)
{
    xpath_iter found;
    if (find(path, found) < 0 || found.get_attr())
        return nullptr;
    const xml_node_t kind = found.get_node()->get_type();
    return kind == XML_ELEMENT || kind == XML_DOCUMENT ? found.get_node() : nullptr;
}

// ---- values

int xml_node::get_value(const char* path, share_str& value)
{
    xpath_iter found;
    const int r = find(path, found);
    if (r >= 0)
        return found.get_value(value);
    value.clear();
    return r;
}

share_str xml_node::get_value(const char* path)
{
    share_str value;
    get_value(path, value);
    return value;
}

int xml_node::kroGetValue(share_str& value) const
{
    const xml_node* const text = find_first(XML_TEXT, nullptr);
    if (!text) {
        value.clear();
        return err::not_exist;
    }
    value = text->name_;
    return err::ok;
}

int xml_node::kroSetValue(const share_str& value)
{
    if (xml_node* const text = find_first(XML_TEXT, nullptr))
        text->set_name(value);
    else if (!add(value, XML_TEXT))
        return err::out_of_memory;
    return err::ok;
}

// ---- making and removing by path

// A node that a step calls for and that does not exist.
int xml_node::create_node(const path_step& step, xpath_iter& made, xml_new_nodes& created)
{
    if (step.kind == xstep::pi)
        return err::not_exist; // a step does not give its name
    const bool is_element = step.kind == xstep::element;
    if (is_element && kind_ == XML_DOCUMENT && has_element())
        return err::overflow;
    const share_str name = is_element ? name_of(step) : share_str();
    if (is_element && name.isempty())
        return err::out_of_memory;
    xml_node* const node = created.reserve() ? add(name, static_cast<xml_node_t>(step.kind)) : nullptr;
    if (!node)
        return err::out_of_memory;
    created.enter(node);
    made = xpath_iter(node);
    return err::ok;
}

int xml_node::create_attribute(const path_step& step, xpath_iter& made)
{
    const share_str name = name_of(step);
    if (step.length == 0)
        return err::bad_argument;
    if (name.isempty())
        return err::out_of_memory;
    try {
        made = xpath_iter(this, attrs_.add_attr(name, share_str()));
        return err::ok;
    } catch (const xcpt& e) {
        return e.get_err();
    }
}

// Finds what a step means, or makes it where it is the next of its kind.
int xml_node::create_step(const path_step& step, int flags, xpath_iter& made, xml_new_nodes& created)
{
    const int r = find_step(step, made);
    if (r < 0 && r != err::not_exist)
        return r;
    if (r >= 0 && !(flags & mk_new))
        return flags & mk_exclusive ? err::conflict : err::ok;
    if (step.kind == xstep::attr)
        return create_attribute(step, made);
    if (step.kind == xstep::root)
        return err::conflict;
    if (r < 0) {
        int existing = 0;
        xml_node_search(step).nth_from(first_, step.position(), existing);
        if (step.position() != existing)
            return err::not_exist;
    }
    return create_node(step, made, created);
}

int xml_node::make_path(const char* path, int flags, xpath_iter& made, xml_new_nodes& created)
{
    xml_node* node = this;
    for (path_place at { path, nullptr };;) {
        path_step step;
        int r = read_path_step(at, step);
        if (r >= 0)
            r = node->create_step(step, at.at_end() ? flags : 0, made, created);
        if (r < 0 || at.at_end())
            return r;
        node = made.get_node();
    }
}

int xml_node::mkdir(const char* path, xpath_iter* made, int flags)
{
    xpath_iter last;
    xml_new_nodes created;
    int r = check_steps(path);
    if (r >= 0)
        r = make_path(path, flags, last, created);
    if (r < 0) {
        created.remove();
        last.reset();
    }
    if (made)
        *made = last;
    return r;
}

int xml_node::set_value(const char* path, const share_str& value, int flags)
{
    xpath_iter last;
    xml_new_nodes created;
    int r = check_steps(path);
    if (r >= 0)
        r = make_path(path, flags & ~mk_exclusive, last, created);
    if (r >= 0)
        r = last.set_value(value);
    if (r < 0)
        created.remove();
    return r;
}

bool xml_node::has_element() const
{
    const xml_node* child = first_;
    while (child && child->kind_ != XML_ELEMENT)
        child = child->next_;
    return child != nullptr;
}

int xml_node::rmdir(const char* path)
{
    xpath_iter found;
    const int r = find(path, found);
    if (r < 0)
        return r;
    xml_node* const node = found.get_node();
    if (found.get_attr())
        return remove_attribute(node->attrs_, found.get_attr());
    return node->parent_ ? node->parent_->remove(node) : err::bad_argument;
}
