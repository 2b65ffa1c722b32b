// Trees beside those of pugixml, on the language that both read: double quotes, names
// without colons, no DTD, escapes whose meaning is the same.
#include <stdkro/xml_doc.h>

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <random>
#include <sstream>
#include <string>

namespace {

using std::string;

string pairs(const pugi::xml_node& node)
{
    string text;
    for (const auto& a : node.attributes())
        text += string(" ") + a.name() + "=" + a.value();
    return text;
}

// Prints a tree as text: the same for both.
string dump(const pugi::xml_node& node)
{
    string text;
    switch (node.type()) {
    case pugi::node_document: text = "#"; break;
    case pugi::node_element: text = "<" + string(node.name()) + pairs(node); break;
    case pugi::node_pcdata: text = "'" + string(node.value()); break;
    case pugi::node_cdata: text = "[" + string(node.value()); break;
    case pugi::node_comment: text = "!" + string(node.value()); break;
    case pugi::node_pi:
    case pugi::node_declaration: text = "?" + string(node.name()) + pairs(node); break;
    default: text = "unknown";
    }
    text += "(";
    for (const auto& child : node.children())
        text += dump(child) + ",";
    return text + ")";
}

string dump(const xml_node& node)
{
    static const char* const signs[] = { "", "'", "[", "!", "<", "?", "#" };
    string text = signs[node.get_type()] + string(node.get_name().c_str(), node.get_name().length());
    for (unsigned i = 0; i < node.get_attrs().count(); ++i)
        text += string(" ") + node.get_attrs()[i].get_name().c_str() + "=" + node.get_attrs()[i].get_value().c_str();
    text += "(";
    for (xml_node_iter child = node.get_childs(); !child.IsDone(); ++child)
        text += dump(*child) + ",";
    return text + ")";
}

string tree_of(const string& text, bool keep_text)
{
    xml_reader in;
    in.load_string(text.data(), text.data() + text.size(), false);
    xml_doc doc;
    return doc.read(in, keep_text, true) < 0 ? "failed" : dump(*doc.all());
}

// Without end-of-line and attribute conversions, which the library does not know.
string peer_tree_of(const string& text, bool keep_text)
{
    unsigned options = pugi::parse_cdata | pugi::parse_comments | pugi::parse_escapes | pugi::parse_declaration;
    options |= keep_text ? pugi::parse_ws_pcdata : pugi::parse_trim_pcdata;
    pugi::xml_document doc;
    return doc.load_buffer(text.data(), text.size(), options, pugi::encoding_utf8) ? dump(doc) : "failed";
}

class generator {
public:
    explicit generator(unsigned seed) : random_(seed) {}
    string document() { return (pick(2) ? "<?xml version=\"1.0\"?>" : "") + element(5); }

private:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }
    string one_of(std::initializer_list<const char*> texts) { return texts.begin()[pick(static_cast<unsigned>(texts.size()))]; }
    string blanks() { return one_of({ "", "", " ", "\n", " \t ", "\r\n" }); }
    string name() { return one_of({ "a", "b1", "long-name", "_x", "with.point", "Z" }); }
    string text()
    {
        string made;
        for (unsigned n = 1 + pick(8); n > 0; --n)
            made += one_of({ "text", " ", "&lt;", "&gt;", "&amp;", "&quot;", "&apos;", "&#65;", "&#x42;", "'", ">", "\xd6\xd0", "=" });
        return "x" + made;
    }
    string tag(const string& own)
    {
        string made = own;
        for (unsigned n = pick(3); n > 0; --n)
            made += " " + blanks() + name() + blanks() + "=" + blanks() + "\"" + text() + "\"";
        return made + blanks();
    }
    string piece(unsigned depth)
    {
        switch (pick(6)) {
        case 0: return "<!--" + one_of({ "", " c ", "<x>&lt;" }) + "-->";
        case 1: return "<![CDATA[" + one_of({ "", " d ", "<x>&lt;", "]" }) + "]]>";
        case 2: return blanks() + text() + blanks() + element(0);
        default: return blanks() + element(depth);
        }
    }
    string element(unsigned depth)
    {
        const string own = name();
        if (depth == 0)
            return "<" + tag(own) + "/>";
        string made = "<" + tag(own) + ">";
        for (unsigned n = pick(5); n > 0; --n)
            made += piece(depth - 1);
        return made + blanks() + "</" + own + ">";
    }

    std::mt19937 random_;
};

TEST(xml_pugixml, trees_of_generated_documents_agree)
{
    for (unsigned seed = 0; seed < 3000; ++seed) {
        const string text = generator(seed).document();
        for (const bool keep_text : { false, true })
            ASSERT_EQ(peer_tree_of(text, keep_text), tree_of(text, keep_text)) << text;
    }
}

TEST(xml_pugixml, what_is_written_is_read_alike)
{
    for (unsigned seed = 0; seed < 500; ++seed) {
        const string text = generator(seed).document();
        xml_reader in;
        in.load_string(text.data(), text.data() + text.size(), false);
        xml_doc doc;
        ASSERT_EQ(0, doc.read(in, false, true)) << text;
        for (const bool pretty : { false, true }) {
            std::ostringstream out;
            ASSERT_EQ(0, doc.write(out, pretty));
            ASSERT_EQ(dump(*doc.all()), peer_tree_of(out.str(), false)) << out.str();
        }
    }
}

} // namespace
