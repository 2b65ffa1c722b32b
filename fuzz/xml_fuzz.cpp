// A path in the first line, and a document in the rest. The tree built from events must
// be the one built without them, a written document must be read back, a look-up must
// find what a walk by the book finds, and a change that fails must change nothing.
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include "require.h"

#include <cstdint>
#include <cstring>
#include <sstream>
#include <string>

namespace {

std::string printed(const xml_node& node, bool pretty = false)
{
    std::ostringstream out;
    require(node.write(out, pretty) == 0, "a tree is not written");
    return out.str();
}

int read(xml_doc& doc, const std::string& text, bool keep_text)
{
    xml_reader in;
    require(in.load_string(text.data(), text.data() + text.size()) == 0, "a text does not load");
    return doc.read(in, keep_text, true);
}

// A builder that the reader knows nothing of.
class watching_builder : public xml_node_handler {
public:
    using xml_node_handler::xml_node_handler;
    int onBeginNode(const share_str& name, attributes& attrs) override
    {
        require(attrs.count() == pairs_, "an attribute was not reported");
        pairs_ = 0;
        ++depth_;
        deepest_ = depth_ > deepest_ ? depth_ : deepest_;
        return xml_node_handler::onBeginNode(name, attrs);
    }
    int onEndNode(xml_node_t kind) override
    {
        --depth_;
        return xml_node_handler::onEndNode(kind);
    }
    int onPI(const share_str& name, attributes& attrs) override
    {
        require(attrs.count() == pairs_, "an attribute was not reported");
        pairs_ = 0;
        return xml_node_handler::onPI(name, attrs);
    }
    int onAttribute(const share_str& name, const share_str& value) override
    {
        require(!name.isempty(), "a name is empty");
        ++pairs_;
        is_readable_ = is_readable_ && !std::memchr(value.c_str(), '\n', value.length())
            && !std::memchr(value.c_str(), '\xff', value.length());
        return 0;
    }
    int onText(const share_str& text) override
    {
        is_readable_ = is_readable_ && !std::memchr(text.c_str(), '\xff', text.length());
        return xml_node_handler::onText(text);
    }
    void onError(int, const char* message) override
    {
        require(message != nullptr, "an error has no message");
        ++errors_;
    }

    unsigned pairs_ = 0;
    unsigned depth_ = 0;
    unsigned deepest_ = 0;
    unsigned errors_ = 0;
    // Line feeds in values and bytes 255, which escapes can make, are not escaped when
    // they are written.
    bool is_readable_ = true;
};

// Reads in both ways. True if the text is a document whose printed form can be read.
bool read_both_ways(const std::string& text, bool keep_text, unsigned& depth)
{
    xml_doc doc;
    const int r = read(doc, text, keep_text);
    xml_node target("", XML_DOCUMENT);
    watching_builder watching(&target, keep_text, true);
    xml_reader in;
    in.load_string(text.data(), text.data() + text.size());
    require(in.read_doc(&watching) == r, "events end with another code");
    require(printed(*doc.all()) == printed(target), "events build another tree");
    require(watching.errors_ == (r < 0), "an error is not reported once");
    require((in.get_error()[0] != '\0') == (r < 0), "an error is not kept");
    require(in.get_para() == nullptr && in.get_parent_para() == nullptr, "a level is left");
    depth = watching.deepest_;
    return r == 0 && watching.is_readable_;
}

void check_writing(const std::string& text, unsigned depth)
{
    xml_doc doc;
    require(read(doc, text, false) == 0, "a text is not read again");
    for (const bool pretty : { false, true }) {
        if (pretty && depth > 200)
            continue; // the indentation grows with the square
        const std::string once = printed(*doc.all(), pretty);
        xml_doc back;
        require(read(back, once, false) == 0, "what was written is not read");
        require(printed(*back.all(), pretty) == once, "writing again gives another text");
    }
    const xml_doc copy(doc);
    require(printed(*copy.all()) == printed(*doc.all()), "a copy is not the same");
}

void check_steps(const char* path)
{
    const char* const end = path + std::strlen(path);
    for (const char* at = path;;) {
        xstep one, other;
        const char *next = nullptr, *bounded_next = nullptr;
        const int r = xpath::split_step(at, &one, &next);
        require(xpath::split_step(at, end, &other, &bounded_next) == r, "a bound changes the code");
        require(next == bounded_next && one.kind == other.kind && one.index == other.index
                    && std::strcmp(one.name, other.name) == 0,
                "a bound changes a step");
        if (r < 0 || one.kind == xstep::none)
            return;
        require(next > at && next <= end, "a step takes nothing");
        at = next;
    }
}

bool matches(const xml_node& node, const xstep& step)
{
    return static_cast<int>(node.get_type()) == step.kind && (step.kind != xstep::element || node.get_name() == step.name);
}

// Looks a path up step by step.
int find_by_the_book(xml_node* node, const char* path, xpath_iter& found)
{
    for (;;) {
        xstep step;
        const int r = xpath::split_step(path, &step, &path);
        if (r < 0)
            return r;
        int index = step.index == -1 ? 0 : step.index;
        xml_node* here = nullptr;
        attribute* pair = nullptr;
        if (step.kind == xstep::none)
            return err::not_exist;
        if (step.kind == xstep::root) {
            for (here = node; here->get_parent();)
                here = here->get_parent();
        } else if (step.kind == xstep::attr) {
            for (unsigned i = 0; i < node->get_attrs().count() && !pair; ++i) {
                if (node->get_attrs()[i].get_name() == step.name)
                    pair = node->get_attrs().get_attr(i);
            }
            here = pair ? node : nullptr;
        } else {
            for (xml_node_iter child = node->get_childs(); !child.IsDone() && !here && index >= 0; ++child) {
                if (matches(*child, step) && index-- == 0)
                    here = child.ptr();
            }
        }
        if (!here)
            return err::not_exist;
        if (*path == '\0') {
            found = xpath_iter(here, pair);
            return err::ok;
        }
        if (step.kind != xstep::root && step.kind != xstep::element)
            return err::syntax;
        node = here;
    }
}

void check_path(xml_doc& doc, const char* path)
{
    xpath_iter found, expected;
    const int r = doc.all()->find(path, found);
    require(find_by_the_book(doc.all(), path, expected) == r, "a look-up ends with another code");
    require(found.get_node() == expected.get_node() && found.get_attr() == expected.get_attr(), "a look-up finds something else");

    const std::string before = printed(*doc.all());
    const bool is_set = doc.all()->set_value(path, "value") == 0;
    require(is_set || printed(*doc.all()) == before, "a change that failed left something behind");
    require(!is_set || doc.all()->get_value(path) == "value", "a value that was set is not found");
    require(r < 0 || is_set || (found.get_node()->get_type() == XML_PI && !found.get_attr()), "what was found cannot be set");

    const int mode = static_cast<int>(std::strlen(path) % 8);
    const std::string set = printed(*doc.all());
    require(doc.all()->mkdir(path, nullptr, mode) == 0 || printed(*doc.all()) == set, "a failed mkdir left something behind");
    doc.all()->rmdir(path);
    printed(*doc.all());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t line_end = input.find('\n');
    const std::string path = input.substr(0, line_end);
    const std::string text = line_end == std::string::npos ? input : input.substr(line_end + 1);

    unsigned depth = 0;
    read_both_ways(text, true, depth);
    if (read_both_ways(text, false, depth))
        check_writing(text, depth);

    xml_doc doc;
    read(doc, text, false);
    check_steps(path.c_str());
    check_path(doc, path.c_str());

    xml_reader in;
    in.load_string(text.data(), text.data() + text.size());
    xml_node target;
    while (target.read(in, true, false) == 0)
        ;
    return 0;
}
