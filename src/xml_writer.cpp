// Printing trees: a walk along the links, through one buffer.
//
// Each child stands on a line of its own, indented or not; an element whose only
// child is a text is one line. Nothing but the four characters "<", ">", "&" and the
// double quote is escaped, and only in texts and attribute values.
#include "xml_writer.h"

#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include "stream_status.h"
#include "xml_char.h"

#include <cstdio>
#include <cstring>
#include <ostream>

namespace {

// Where the printed text goes.
class xml_sink {
public:
    virtual bool put(const char* text, std::size_t n) = 0;

protected:
    ~xml_sink() = default;
};

class stream_sink : public xml_sink {
public:
    explicit stream_sink(std::ostream& to) : to_(to) {}
    bool put(const char* text, std::size_t n) override
    {
        return static_cast<bool>(to_.write(text, static_cast<std::streamsize>(n)));
    }

private:
    std::ostream& to_;
};

class file_sink : public xml_sink {
public:
    explicit file_sink(std::FILE* to) : to_(to) {}
    bool put(const char* text, std::size_t n) override { return std::fwrite(text, 1, n, to_) == n; }

private:
    std::FILE* to_;
};

const char* escape_of(char c)
{
    switch (c) {
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '&': return "&amp;";
    default: return "&quot;"; // KEEP: the apostrophe is written as it is
    }
}

constexpr int indent_width = 3;

} // namespace

class xml_writer {
public:
    xml_writer(xml_sink& to, bool pretty) : to_(to), is_pretty_(pretty) {}

    /// False when the sink failed.
    bool print(const xml_node& top);

private:
    void walk(const xml_node& top);
    bool begin(const xml_node& node);
    void end(const xml_node& node);
    void tag(const char* open, const xml_node& node);
    void indent();

    void put(const char* text, std::size_t n);
    void put(const char* text) { put(text, std::strlen(text)); }
    void put(const share_str& text) { put(text.c_str(), text.length()); }
    void escaped(const share_str& text);
    void flush();

    xml_sink& to_;
    bool is_pretty_;
    unsigned level_ = 0;
    bool failed_ = false;
    std::size_t used_ = 0;
    char buffer_[8192];
};

// ---- the buffer

void xml_writer::flush()
{
    if (!failed_ && used_ > 0)
        failed_ = !to_.put(buffer_, used_);
    used_ = 0;
}

void xml_writer::put(const char* text, std::size_t n)
{
    if (n > sizeof buffer_ - used_) {
        flush();
        if (n > sizeof buffer_) {
            failed_ = failed_ || !to_.put(text, n);
            return;
        }
    }
    std::memcpy(buffer_ + used_, text, n);
    used_ += n;
}

void xml_writer::escaped(const share_str& text)
{
    const char* p = text.c_str();
    const char* const end = p + text.length();
    for (;;) {
        const char* const stop = xml_char::find(p, end, xml_char::is_escaped);
        put(p, static_cast<std::size_t>(stop - p));
        if (stop == end)
            return;
        put(escape_of(*stop));
        p = stop + 1;
    }
}

void xml_writer::indent()
{
    if (!is_pretty_)
        return;
    for (unsigned i = 0; i < level_; ++i)
        put("   ", indent_width);
}

// ---- nodes

void xml_writer::tag(const char* open, const xml_node& node)
{
    put(open);
    put(node.name_);
    for (unsigned i = 0; i < node.attrs_.count(); ++i) {
        const attribute* const pair = node.attrs_.get_attr(i);
        put(" ", 1);
        put(pair->get_name());
        put("=\"", 2);
        escaped(pair->get_value());
        put("\"", 1);
    }
}

// Prints what stands before the children, and all of it where they need no lines of
// their own. Whether children follow.
bool xml_writer::begin(const xml_node& node)
{
    switch (node.kind_) {
    case XML_TEXT:
        escaped(node.name_);
        return false;
    case XML_CDATA:
        put("<![CDATA[");
        put(node.name_);
        put("]]>");
        return false;
    case XML_COMMENT:
        put("<!--");
        put(node.name_);
        put("-->");
        return false;
    case XML_PI:
        tag("<?", node);
        put("?>", 2);
        return false;
    case XML_DOCUMENT:
        return node.first_ != nullptr;
    case XML_ELEMENT:
        break;
    default:
        return false;
    }
    tag("<", node);
    const xml_node* const first = node.first_;
    if (!first) {
        put("/>", 2);
        return false;
    }
    put(">", 1);
    if (first->kind_ == XML_TEXT && !first->next_) {
        escaped(first->name_);
        end(node);
        return false;
    }
    put("\n", 1); // KEEP: lines end also where nothing is indented
    ++level_;
    return true;
}

void xml_writer::end(const xml_node& node)
{
    put("</", 2);
    put(node.name_);
    put(">", 1);
}

void xml_writer::walk(const xml_node& top)
{
    const xml_node* at = &top;
    while (!failed_) {
        if (begin(*at)) {
            at = at->first_;
            indent();
            continue;
        }
        // Up to the next node that has a sibling; each left on the way is complete.
        while (at != &top) {
            put("\n", 1);
            if (at->next_)
                break;
            at = at->parent_;
            if (at->kind_ == XML_ELEMENT) {
                --level_;
                indent();
                end(*at);
            }
        }
        if (at == &top)
            return;
        at = at->next_;
        indent();
    }
}

bool xml_writer::print(const xml_node& top)
{
    walk(top);
    flush();
    return !failed_;
}

int xml_node::write(std::ostream& to, bool pretty) const
{
    stream_sink sink(to);
    return stream_status([&] { return xml_writer(sink, pretty).print(*this); });
}

int write_xml_file(const char* path, const xml_node& node, bool pretty)
{
    if (!path)
        return err::invalid_parameter;
    std::FILE* const file = std::fopen(path, "wb");
    if (!file)
        return err::file_system;
    file_sink sink(file);
    const bool written = xml_writer(sink, pretty).print(node);
    return std::fclose(file) == 0 && written ? err::ok : err::file_system;
}
