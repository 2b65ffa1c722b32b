// Documents: a tree under a document node, and files.
#include <stdkro/xml_doc.h>

#include <stdkro/xcpt.h>

#include "xml_writer.h"

namespace {

constexpr char usual_version[] = "1.0";
constexpr char usual_encoding[] = "gb2312";

bool is_empty(const char* s) { return !s || *s == '\0'; }

// A new last child, null where memory lacks for it or its name.
xml_node* add_child(xml_node& parent, const char* name, xml_node_t kind)
{
    const share_str text(name);
    return text.isempty() ? nullptr : parent.add(text, kind);
}

} // namespace

xml_doc::xml_doc() : all_(share_str(), XML_DOCUMENT) {}

xml_doc::xml_doc(const char* root) : xml_doc() { init(root); }

xml_doc::xml_doc(const char* root, const char* version, const char* encoding) : xml_doc()
{
    init(root, version, encoding);
}

xml_doc::xml_doc(const xml_doc& other) : all_(other.all_) { all_.set_type(XML_DOCUMENT); }

xml_doc& xml_doc::operator=(const xml_doc& other)
{
    all_ = other.all_;
    return *this;
}

xml_doc::~xml_doc() {}

int xml_doc::init(const char* root, const char* version, const char* encoding)
{
    if (is_empty(root))
        return err::invalid_parameter;
    xml_doc made; // the texts may be those of this document, which therefore goes last
    const int r = made.set_doc_title(root, version ? version : usual_version, encoding ? encoding : usual_encoding);
    if (r >= 0)
        all_.swap(made.all_);
    return r;
}

int xml_doc::set_doc_title(const char* root, const char* version, const char* encoding)
{
    xml_node* const declaration = add_child(all_, "xml", XML_PI);
    if (!declaration)
        return err::out_of_memory;
    int r = declaration->get_attrs().write("version", version);
    if (r >= 0)
        r = declaration->get_attrs().write("encoding", encoding);
    if (r < 0)
        return r;
    return add_child(all_, root, XML_ELEMENT) ? err::ok : err::out_of_memory;
}

// Looked up each time, among a few children: a remembered one could have been removed
// by an operation of the tree.
xml_node* xml_doc::seek_doc_node() const
{
    xml_node_iter child = all_.get_childs();
    while (!child.IsDone() && child.ptr()->get_type() != XML_ELEMENT)
        ++child;
    return child.ptr();
}

xml_node* xml_doc::get_doc_node() const { return seek_doc_node(); }

int xml_doc::read(xml_reader& from, bool keep_text, bool keep_comments)
{
    xml_node_handler builder(&all_, keep_text, keep_comments);
    return from.read_doc(&builder);
}

int xml_doc::read(const char* file, bool keep_text, bool keep_comments)
{
    xml_reader from;
    const int r = from.load_file(file, "rb");
    return r < 0 ? r : read(from, keep_text, keep_comments);
}

int xml_doc::write(std::ostream& to, bool pretty) const { return all_.write(to, pretty); }

int xml_doc::write(const char* file, bool pretty) const { return write_xml_file(file, all_, pretty); }
