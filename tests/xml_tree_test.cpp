// The XML tree: building, walking, changing, look-ups by path, printing, files.
#include <stdkro/xml_doc.h>

#include <stdkro/xcpt.h>

#include "document_text.h"
#include "guarded_text.h"
#include "throwing_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using std::string;

// Prints a tree: "name[pair,pair](child child)"; texts are 'text', CDATA sections
// [text], comments !text!, instructions ?name[pairs], documents #(...). Checks the
// links on the way.
string dump(const xml_node& node)
{
    string text = node.get_name().c_str();
    switch (node.get_type()) {
    case XML_TEXT: text = "'" + text + "'"; break;
    case XML_CDATA: text = "[" + text + "]"; break;
    case XML_COMMENT: text = "!" + text + "!"; break;
    case XML_PI: text = "?" + text; break;
    case XML_DOCUMENT: text = "#" + text; break;
    case XML_ELEMENT: break;
    }
    const attributes& attrs = node.get_attrs();
    for (unsigned i = 0; i < attrs.count(); ++i)
        text += string(i ? "," : "[") + attrs[i].get_name().c_str() + "=" + attrs[i].get_value().c_str();
    text += attrs.count() ? "]" : "";
    const xml_node* before = nullptr;
    for (xml_node_iter child = node.get_childs(); !child.IsDone(); ++child) {
        EXPECT_EQ(&node, child.ptr()->get_parent());
        EXPECT_EQ(before, child.ptr()->get_prev());
        EXPECT_TRUE(child.ptr()->is_tied());
        text += (before ? " " : "(") + dump(*child);
        before = child.ptr();
    }
    EXPECT_EQ(before == nullptr, node.is_child_emptied());
    return before ? text + ")" : text;
}

string printed(const xml_node& node, bool pretty = false)
{
    std::ostringstream out;
    EXPECT_EQ(0, node.write(out, pretty));
    return out.str();
}

string printed(const xml_doc& doc, bool pretty = false) { return printed(*doc.all(), pretty); }

int read(xml_doc& doc, const string& text, bool keep_text = false, bool keep_comments = true)
{
    xml_reader in;
    EXPECT_EQ(0, in.load_string(text.data(), text.data() + text.size()));
    return doc.read(in, keep_text, keep_comments);
}

xml_doc doc_of(const string& text, bool keep_text = false, bool keep_comments = true)
{
    xml_doc doc;
    EXPECT_EQ(0, read(doc, text, keep_text, keep_comments)) << text;
    return doc;
}

// ---- building

TEST(xml_tree, is_built_from_the_events)
{
    const struct {
        const char* text;
        bool keep_text;
        bool keep_comments;
        const char* tree;
    } cases[] = {
        { "<a/>", false, false, "#(a)" },
        { "<?xml version=\"1.0\"?>\n<!--c-->\n<a b=\"1\" c=\"2\" b=\"3\">x</a>", false, true,
          "#(?xml[version=1.0] !c! a[b=1,c=2,b=3]('x'))" },
        { "<a><!--c--></a><!--d-->", false, false, "#(a)" },
        { "<a><!--c--></a><!--d-->", false, true, "#(a(!c!) !d!)" },
        { "<a><!-- --><!----></a>", false, true, "#(a(! ! !!))" }, // comments are never trimmed
        // Text is trimmed, or dropped when nothing is left; kept, it is kept whole.
        { "<a> x </a>", false, true, "#(a('x'))" },
        { "<a> x </a>", true, true, "#(a(' x '))" },
        { "<a>\t\n\v\f\r x y\t\n\v\f\r </a>", false, true, "#(a('x y'))" },
        { "<a>   </a>", false, true, "#(a)" },
        { "<a>   </a>", true, true, "#(a('   '))" },
        { " <a/> ", false, true, "#(a)" },
        { " <a/> ", true, true, "#(' ' a ' ')" },
        { "t<a/>u", false, true, "#('t' a 'u')" },
        { "<a>&#32;x&#32;</a>", false, true, "#(a('x'))" }, // decoded first
        { "<a> &#32; </a>", false, true, "#(a)" },
        { "<a>&#x0;</a>", false, true, "#(a)" },
        { "<a>&#x0;</a>", true, true, "#(a(''))" },
        { "<a>\xa0x\xa0</a>", false, true, "#(a('\xa0x\xa0'))" },
        { "<a> x <b/> y </a>", false, true, "#(a('x' b 'y'))" },
        { "<a><![CDATA[ x ]]> <![CDATA[]]></a>", false, true, "#(a([ x ] []))" },
        { "<a><?p b=\"1\" c=\"\"?><b/></a>", false, true, "#(a(?p[b=1,c=] b))" },
        { "<a><b><c><d/></c><e/></b><f/></a>", false, true, "#(a(b(c(d) e) f))" },
    };
    for (const auto& c : cases) {
        xml_doc doc;
        EXPECT_EQ(0, read(doc, c.text, c.keep_text, c.keep_comments));
        EXPECT_EQ(c.tree, dump(*doc.all())) << c.text;
        // A handler derived from the builder is told of everything and builds the same.
        struct derived : xml_node_handler {
            using xml_node_handler::xml_node_handler;
            int onText(const share_str& text) override
            {
                runs += text.c_str();
                return xml_node_handler::onText(text);
            }
            string runs;
        };
        xml_node target("", XML_DOCUMENT);
        derived handler(&target, c.keep_text, c.keep_comments);
        xml_reader in;
        in.load_string(c.text);
        EXPECT_EQ(0, in.read_doc(&handler));
        EXPECT_EQ(c.tree, dump(target)) << c.text;
        EXPECT_LE(std::count(c.text, c.text + std::strlen(c.text), '\n') - 2, std::count(handler.runs.begin(), handler.runs.end(), '\n'));
    }
}

TEST(xml_tree, what_was_read_before_a_failure_stays)
{
    xml_doc doc;
    EXPECT_EQ(err::unexpected, read(doc, "<a x=\"1\"><b>t</b><c></d></a>"));
    EXPECT_EQ("#(a[x=1](b('t') c))", dump(*doc.all()));
    EXPECT_EQ(err::overflow, read(doc, "<a/><b/>"));
    EXPECT_EQ("#(a)", dump(*doc.all()));
    EXPECT_EQ(err::overflow, read(doc, ""));
    EXPECT_TRUE(doc.is_emptied());
    EXPECT_EQ(0, read(doc, "<a/>"));
    EXPECT_EQ("#(a)", dump(*doc.all()));
}

TEST(xml_tree, a_document_is_cleared_before_it_is_read)
{
    xml_doc doc("old", "1.1", "gbk");
    EXPECT_EQ(0, read(doc, "<new/>"));
    EXPECT_EQ("#(new)", dump(*doc.all()));
    // A declaration in the text is kept as it is read.
    EXPECT_EQ(0, read(doc, "<?xml encoding=\"x\"?><new/>"));
    EXPECT_EQ("#(?xml[encoding=x] new)", dump(*doc.all()));
}

TEST(xml_tree, a_builder_knows_its_reader_which_stands_behind_what_was_read)
{
    struct derived : xml_node_handler {
        using xml_node_handler::xml_node_handler;
    };
    xml_node target("", XML_DOCUMENT);
    xml_node_handler builder(&target, false, false);
    derived other(&target, false, false);
    for (xml_node_handler* handler : { &builder, static_cast<xml_node_handler*>(&other) }) {
        target.add("old", XML_ELEMENT);
        xml_reader in;
        in.load_string("<a> t </a> \n");
        EXPECT_EQ(0, in.read_doc(handler));
        EXPECT_EQ(&in, handler->get_reader());
        EXPECT_EQ(in.get_size(), in.get_pos());
        EXPECT_EQ("#(a('t'))", dump(target)) << "cleared first";
        in.seek(0);
        EXPECT_EQ(0, in.read_node(handler));
        EXPECT_EQ(10u, in.get_pos());
    }
}

TEST(xml_tree, a_builder_needs_a_target)
{
    xml_node_handler handler(nullptr, false, false);
    xml_reader in;
    in.load_string("<a/>");
    EXPECT_EQ(err::not_initialized, in.read_doc(&handler));
    EXPECT_EQ(0u, in.get_pos());
    EXPECT_EQ(err::not_initialized, in.read_node(&handler));
    // Without a reader there are no levels to build at.
    xml_node target;
    attributes none;
    xml_node_handler idle(&target, false, false);
    EXPECT_EQ(err::not_initialized, idle.onBeginNode("a", none));
    EXPECT_EQ(err::not_initialized, idle.onEndNode(XML_ELEMENT));
    EXPECT_EQ(0, idle.onBeginDocument());
    EXPECT_EQ(0, idle.onText(" t "));
    EXPECT_EQ("('t')", dump(target));
}

TEST(xml_tree, a_builder_keeps_the_node_of_each_level_in_its_pointer)
{
    struct watching : xml_node_handler {
        using xml_node_handler::xml_node_handler;
        int onBeginNode(const share_str& name, attributes& attrs) override
        {
            const int r = xml_node_handler::onBeginNode(name, attrs);
            pointers.push_back(get_reader()->get_parent_para());
            pointers.push_back(get_reader()->get_para());
            return r;
        }
        int onComment(const share_str& text) override
        {
            pointers.push_back(get_reader()->get_para());
            return xml_node_handler::onComment(text);
        }
        std::vector<void*> pointers;
    };
    xml_node target("", XML_DOCUMENT);
    watching handler(&target, false, true);
    xml_reader in;
    in.load_string("<!--c--><a><b/><!--d--></a><!--e-->");
    ASSERT_EQ(0, in.read_doc(&handler));
    xml_node* const a = target.find_dir("a");
    xml_node* const b = target.find_dir("a/b");
    EXPECT_EQ((std::vector<void*> { &target, &target, a, a, b, a, &target }), handler.pointers);
}

TEST(xml_tree, a_builder_gives_a_node_the_kind_that_it_is_ended_with)
{
    struct retyping : xml_node_handler {
        using xml_node_handler::xml_node_handler;
        int onEndNode(xml_node_t) override { return xml_node_handler::onEndNode(kinds[ended++]); }
        std::vector<xml_node_t> kinds { XML_COMMENT, XML_PI, XML_ELEMENT };
        std::size_t ended = 0;
    };
    xml_node target("", XML_DOCUMENT);
    retyping handler(&target, false, false);
    xml_reader in;
    in.load_string("<a><b/><c x=\"1\">t</c></a>");
    ASSERT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ("#(a(!b! ?c[x=1]('t')))", dump(target));
}

TEST(xml_tree, a_builder_can_be_copied)
{
    xml_node first("f", XML_DOCUMENT), second("s", XML_DOCUMENT);
    xml_node_handler builder(&first, true, true);
    xml_reader in;
    in.load_string("<a> </a>");
    EXPECT_EQ(0, in.read_doc(&builder));
    xml_node_handler copy(builder);
    in.seek(0);
    EXPECT_EQ(0, in.read_doc(&copy));
    EXPECT_EQ("#f(a(' '))", dump(first));
    builder = xml_node_handler(&second, false, false);
    in.seek(0);
    EXPECT_EQ(0, in.read_doc(&builder));
    EXPECT_EQ("#s(a)", dump(second));
}

TEST(xml_tree, read_appends_one_element_to_a_node)
{
    xml_doc doc("root");
    xml_node* const root = doc.get_doc_node();
    xml_reader in;
    in.load_string("<a x=\"1\"> t <!--c--></a><b/>");
    EXPECT_EQ(0, root->read(in, false, true));
    EXPECT_EQ(0, root->read(in, false, true));
    EXPECT_EQ("root(a[x=1]('t' !c!) b)", dump(*root));
    EXPECT_EQ(err::syntax, root->read(in, false, true));
    in.load_string("<c><d></c>");
    EXPECT_EQ(err::unexpected, root->read(in, true, false));
    EXPECT_EQ("root(a[x=1]('t' !c!) b c(d))", dump(*root));
}

// ---- nodes

TEST(xml_node, a_new_node_is_detached)
{
    const xml_node node("n", XML_COMMENT);
    EXPECT_EQ("!n!", dump(node));
    EXPECT_EQ(nullptr, node.get_parent());
    EXPECT_EQ(nullptr, node.get_prev());
    EXPECT_EQ(nullptr, node.get_next());
    EXPECT_EQ(&node, node.get_root());
    EXPECT_FALSE(node.is_tied());
    EXPECT_TRUE(node.is_child_emptied());
    EXPECT_EQ("", dump(xml_node()));
    EXPECT_EQ(XML_ELEMENT, xml_node().get_type());
    EXPECT_EQ(1, XML_TEXT);
    EXPECT_EQ(2, XML_CDATA);
    EXPECT_EQ(3, XML_COMMENT);
    EXPECT_EQ(4, XML_ELEMENT);
    EXPECT_EQ(5, XML_PI);
    EXPECT_EQ(6, XML_DOCUMENT);
}

TEST(xml_node, name_kind_and_attributes_can_be_changed)
{
    xml_node node("n", XML_ELEMENT);
    node.set_name("m");
    node.set_type(XML_PI);
    node.get_attrs().add_attr("a", "1");
    EXPECT_EQ("?m[a=1]", dump(node));
}

TEST(xml_node, children_are_appended_and_inserted)
{
    xml_node root("r", XML_ELEMENT);
    xml_node* const b = root.add("b", XML_ELEMENT);
    xml_node* const d = root.add(new xml_node("d", XML_ELEMENT));
    xml_node* const a = root.add(b, "a", XML_TEXT);
    xml_node* const c = root.add(d, new xml_node("c", XML_CDATA));
    EXPECT_EQ("r('a' b [c] d)", dump(root));
    EXPECT_EQ(c, b->get_next());
    EXPECT_EQ(b, c->get_prev());
    EXPECT_EQ(nullptr, a->get_prev());
    EXPECT_EQ(nullptr, d->get_next());
    EXPECT_EQ(&root, d->get_root());
}

TEST(xml_node, what_cannot_be_added_is_refused)
{
    xml_node root("r", XML_ELEMENT);
    xml_node* const a = root.add("a", XML_ELEMENT);
    xml_node* const b = a->add("b", XML_ELEMENT);
    xml_node other("o", XML_ELEMENT);
    std::unique_ptr<xml_node> loose(new xml_node("l", XML_ELEMENT));
    EXPECT_EQ(nullptr, root.add(static_cast<xml_node*>(nullptr)));
    EXPECT_EQ(nullptr, root.add(&root));
    EXPECT_EQ(nullptr, other.add(a));
    EXPECT_EQ(nullptr, root.add(a));
    EXPECT_EQ(nullptr, b->add(&root));
    EXPECT_EQ(nullptr, root.add(b, loose.get())); // b is a grandchild
    EXPECT_EQ(nullptr, root.add(&other, loose.get()));
    EXPECT_EQ(nullptr, root.add(nullptr, loose.get()));
    EXPECT_EQ(nullptr, root.add(b, "x", XML_ELEMENT));
    EXPECT_EQ(nullptr, root.add(nullptr, "x", XML_ELEMENT));
    EXPECT_EQ(nullptr, root.add(a, &root));
    EXPECT_EQ(nullptr, root.add(a, a));
    EXPECT_EQ("r(a(b))", dump(root));
    EXPECT_EQ("o", dump(other));
    EXPECT_FALSE(loose->is_tied());
    EXPECT_EQ(loose.get(), b->add(loose.get()));
    loose.release();
    EXPECT_EQ("r(a(b(l)))", dump(root));
}

TEST(xml_node, untie_takes_a_node_out_and_keeps_it)
{
    const struct {
        const char* name;
        const char* rest;
    } cases[] = {
        { "a", "r(b('x') c('x'))" },
        { "b", "r(a('x') c('x'))" },
        { "c", "r(a('x') b('x'))" },
    };
    for (const auto& c : cases) {
        xml_node root("r", XML_ELEMENT);
        for (const char* child : { "a", "b", "c" })
            root.add(child, XML_ELEMENT)->add("x", XML_TEXT);
        xml_node* const node = root.find_dir(c.name);
        node->untie();
        EXPECT_EQ(c.name + string("('x')"), dump(*node));
        EXPECT_FALSE(node->is_tied());
        EXPECT_EQ(nullptr, node->get_next());
        EXPECT_EQ(nullptr, node->get_prev());
        EXPECT_EQ(c.rest, dump(root));
        node->untie(); // nothing to do
        root.add(node);
        EXPECT_THAT(dump(root), testing::EndsWith(c.name + string("('x'))")));
    }
    xml_node root("r", XML_ELEMENT);
    xml_node* const only = root.add("only", XML_ELEMENT);
    only->untie();
    EXPECT_EQ("r", dump(root));
    delete only;
}

TEST(xml_node, remove_destroys_one_child)
{
    xml_doc doc = doc_of("<r><a/><b><c/></b><d/></r>");
    xml_node* const root = doc.get_doc_node();
    EXPECT_EQ(0, root->remove(root->find_dir("b")));
    EXPECT_EQ("r(a d)", dump(*root));
    EXPECT_EQ(err::not_exist, root->remove(nullptr));
    EXPECT_EQ(err::not_exist, root->remove(root));
    EXPECT_EQ(err::not_exist, doc.all()->remove(root->find_dir("a")));
    EXPECT_EQ("r(a d)", dump(*root));
    EXPECT_EQ(0, root->remove(root->find_dir("a")));
    EXPECT_EQ(0, root->remove(root->find_dir("d")));
    EXPECT_EQ("r", dump(*root));
}

TEST(xml_node, destroying_a_node_takes_it_from_its_parent)
{
    xml_node root("r", XML_ELEMENT);
    xml_node* const a = root.add("a", XML_ELEMENT);
    root.add("b", XML_ELEMENT);
    delete a;
    EXPECT_EQ("r(b)", dump(root));
    root.clear();
    EXPECT_EQ("r", dump(root));
    root.clear();
}

TEST(xml_node, nodes_of_a_document_may_live_on_by_themselves)
{
    std::unique_ptr<xml_node> kept;
    {
        xml_doc doc = doc_of("<r><a x=\"value\"><b>text</b></a><c/></r>");
        kept.reset(doc.all()->find_dir("/r/a"));
        kept->untie();
    }
    EXPECT_EQ("a[x=value](b('text'))", dump(*kept));
    xml_node other("o", XML_ELEMENT);
    other.add(kept.release());
    EXPECT_EQ("o(a[x=value](b('text')))", dump(other));
}

TEST(xml_node, a_copy_is_deep_and_detached)
{
    xml_doc doc = doc_of("<r><a x=\"1\">t<b/><c><d/></c></a><e/></r>");
    xml_node* const a = doc.all()->find_dir("/r/a");
    const xml_node copy(*a);
    EXPECT_EQ("a[x=1]('t' b c(d))", dump(copy));
    EXPECT_FALSE(copy.is_tied());
    a->get_attrs()[0].set_value("2");
    a->clear();
    EXPECT_EQ("a[x=1]('t' b c(d))", dump(copy));
    EXPECT_EQ("#(r(a[x=2] e))", dump(*doc.all()));
}

TEST(xml_node, an_assigned_node_stays_in_its_place)
{
    xml_doc doc = doc_of("<r><a x=\"1\"><b/></a><c>t</c></r>");
    xml_node* const root = doc.get_doc_node();
    *root->find_dir("a") = *root->find_dir("c");
    EXPECT_EQ("r(c('t') c('t'))", dump(*root));
    // The source may hold the target, or be held by it.
    root->find_dir("c")->deep_copy(*root);
    EXPECT_EQ("r(r(c('t') c('t')) c('t'))", dump(*root));
    root->deep_copy(*root->find_dir("r"));
    EXPECT_EQ("r(c('t') c('t'))", dump(*root));
    root->deep_copy(*root);
    *root = *root;
    EXPECT_EQ("#(r(c('t') c('t')))", dump(*doc.all()));
}

TEST(xml_node, swap_exchanges_content_and_not_places)
{
    xml_doc doc = doc_of("<r><a x=\"1\"><b/></a><c>t</c></r>");
    xml_node* const root = doc.get_doc_node();
    xml_node* const a = root->find_dir("a");
    a->swap(*root->find_dir("c"));
    EXPECT_EQ("r(c('t') a[x=1](b))", dump(*root));
    xml_node loose("l", XML_COMMENT);
    loose.swap(*a);
    EXPECT_EQ("r(!l! a[x=1](b))", dump(*root));
    EXPECT_EQ("c('t')", dump(loose));
    // One that holds the other.
    root->swap(*root->find_dir("a"));
    root->find_dir("a")->swap(*root);
    root->swap(*root);
    EXPECT_EQ("r(!l! a[x=1](b))", dump(*root));
}

TEST(xml_node, iterators_walk_the_children_both_ways)
{
    xml_doc doc = doc_of("<r><a/><b/>t</r>");
    string names;
    xml_node_iter last;
    for (xml_node_iter i = doc.get_doc_node()->get_childs(); !i.IsDone(); ++i) {
        names += (*i).get_name().c_str();
        last = i;
    }
    EXPECT_EQ("abt", names);
    for (; !last.IsDone(); --last)
        names += last.ptr()->get_name().c_str();
    EXPECT_EQ("abttba", names);
    EXPECT_EQ(nullptr, last.ptr());
    ++last;
    --last;
    EXPECT_TRUE(last.IsDone());
    EXPECT_TRUE(xml_node("n", XML_ELEMENT).get_childs().IsDone());
}

TEST(xml_node, an_iterator_that_is_done_gives_an_empty_node_and_a_bug_line)
{
    testing::internal::CaptureStdout();
    (*xml_node_iter()).add("a", XML_ELEMENT);
    EXPECT_EQ("", dump(*xml_node_iter()));
    EXPECT_EQ("", dump(*xpath_iter()));
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::MatchesRegex("BUG at src/xml_node:.+!\nBUG at src/xml_node:.+!\nBUG at src/xml_path:.+!\n"));
}

TEST(xml_node, find_next_is_the_next_sibling_of_a_kind_and_name)
{
    xml_doc doc = doc_of("<r>t<a/><!--c--><b/><?p?><![CDATA[d]]><a/>u<?q?><!--e--></r>", true);
    xml_node* const first = doc.get_doc_node()->get_childs().ptr();
    const struct {
        xml_node_t kind;
        const char* name;
        const char* found;
    } cases[] = {
        { XML_TEXT, nullptr, "'u'" },
        { XML_TEXT, "other", "'u'" }, // only elements are found by name
        { XML_COMMENT, "", "!c!" },
        { XML_ELEMENT, "a", "a" },
        { XML_ELEMENT, "b", "b" },
        { XML_ELEMENT, "x", "" },
        { XML_ELEMENT, nullptr, "" },
        { XML_PI, nullptr, "?p" },
        { XML_CDATA, nullptr, "" },
        { XML_DOCUMENT, nullptr, "" },
        { static_cast<xml_node_t>(0), nullptr, "" },
        { static_cast<xml_node_t>(9), nullptr, "" },
    };
    for (const auto& c : cases) {
        const xml_node* const found = first->find_next(c.kind, c.name);
        EXPECT_EQ(c.found, found ? dump(*found) : "") << c.kind;
    }
    const xml_node* const a = first->find_next(XML_ELEMENT, "a");
    EXPECT_NE(nullptr, a->find_next(XML_ELEMENT, "a"));
    EXPECT_EQ(nullptr, a->find_next(XML_ELEMENT, "a")->find_next(XML_ELEMENT, "a"));
    EXPECT_EQ(first, doc.get_doc_node()->find_first(XML_TEXT, nullptr));
    EXPECT_EQ(nullptr, doc.get_doc_node()->find_first(XML_CDATA, nullptr));
}

// ---- look-ups

const char* const looked_up = "<?xml version=\"1.0\"?><r id=\"0\" id=\"1\"><a>t0</a><b/><a x=\"y\">t1<c>t2</c>t3</a>"
                              "<!--c0--><!--c1--><?p q=\"z\"?><![CDATA[d]]><e><![CDATA[f]]></e><a/></r>";

TEST(xml_find, a_path_leads_to_a_node)
{
    const struct {
        const char* path;
        const char* found; // the node, "@name=value", or the code
    } cases[] = {
        { "/r/b", "b" },
        { "r/b", "b" },
        { "/r/a", "a('t0')" },
        { "/r/a[0]", "a('t0')" },
        { "/r/a[-1]", "a('t0')" }, // as if none were given
        { "/r/a[1]", "a[x=y]('t1' c('t2') 't3')" },
        { "/r/a[2]", "a" },
        { "/r/a[3]", "80020004" },
        { "/r/a[-2]", "80020004" },
        { "/r/A", "80020004" },
        { "/r/a[1]/c", "c('t2')" },
        { "/r/a[1]/#text", "'t1'" },
        { "/r/a[1]/#text[1]", "'t3'" },
        { "/r/a[1]/#text[2]", "80020004" },
        { "/r/#comment[1]", "!c1!" },
        { "/r/#pi", "?p[q=z]" },
        { "/#pi", "?xml[version=1.0]" },
        { "/r/#text", "80020004" },
        { "/r/@id", "@id=0" }, // the first of that name
        { "/r/@id[1]", "@id=0" }, // attributes have no positions
        { "/r/a[1]/@x", "@x=y" },
        { "/r/@none", "80020004" },
        { "/@x", "80020004" },
        { "@", "80020004" },
        // The root: of the whole tree, wherever it stands.
        { "/", "#" },
        { "//", "#" },
        { "r//r/b", "b" },
        { "/r/a[1]/c//r/b", "b" },
        // A slash at the end changes nothing.
        { "/r/b/", "b" },
        { "/r/@id/", "@id=0" },
        { "/r/#comment/", "!c0!" },
        { "/r/a[1]/c//", "#" },
        { "", "80020004" },
        { "/r/b/x", "80020004" },
        // Only the root and elements lead on; what does not exist fails first.
        { "/r/#comment/x", "80020005" },
        { "/r/#pi/@q", "80020005" },
        { "/r/@id/x", "80020005" },
        { "/r/#text/x", "80020004" },
        { "/r/@none/x", "80020004" },
        // Bad paths.
        { "/r/a b", "80020005" },
        { "/r/a[x]", "80020005" },
        { "/r/#cdata", "80020006" },
        { "/x/#cdata", "80020004" }, // never reached
        { " ", "80020005" },
    };
    xml_doc doc = doc_of(looked_up, true);
    for (const auto& c : cases) {
        xpath_iter found(doc.all());
        const int r = doc.all()->find(c.path, found);
        string text = r < 0 ? hex(r) : "";
        EXPECT_EQ(r < 0, found.IsDone()) << c.path;
        if (const attribute* const pair = found.get_attr())
            text = string("@") + pair->get_name().c_str() + "=" + pair->get_value().c_str();
        else if (r == 0)
            text = found.get_node()->get_type() == XML_DOCUMENT ? "#" : dump(*found);
        EXPECT_EQ(c.found, text) << c.path;
        EXPECT_EQ(found.get_node(), doc.all()->find(c.path).get_node());
        EXPECT_EQ(found.get_attr(), doc.all()->find(c.path).get_attr());
    }
    xpath_iter found;
    EXPECT_EQ(err::invalid_parameter, doc.all()->find(nullptr, found));
    const string long_name(128, 'n');
    EXPECT_EQ(err::overflow, doc.all()->find(long_name.c_str(), found));
}

TEST(xml_find, names_that_begin_and_end_alike_are_told_apart)
{
    xml_doc doc = doc_of("<r><name-a-end>1</name-a-end><name-b-end>2</name-b-end><x>3</x><y>4</y></r>");
    EXPECT_STREQ("1", doc.all()->get_value("r/name-a-end").c_str());
    EXPECT_STREQ("2", doc.all()->get_value("r/name-b-end").c_str());
    EXPECT_STREQ("", doc.all()->get_value("r/name-c-end").c_str());
    EXPECT_STREQ("4", doc.all()->get_value("r/y").c_str());
}

TEST(xml_find, a_name_that_changed_is_found_and_the_old_one_is_not)
{
    xml_doc doc = doc_of("<r><a>1</a><b>2</b></r>");
    xml_node& root = *doc.get_doc_node();
    xml_node* const a = root.find_first(XML_ELEMENT, "a");
    xml_node* const b = root.find_first(XML_ELEMENT, "b");
    a->set_name("c");
    EXPECT_EQ(nullptr, root.find_first(XML_ELEMENT, "a"));
    EXPECT_EQ(a, root.find_first(XML_ELEMENT, "c"));
    a->swap(*b);
    EXPECT_EQ(a, root.find_first(XML_ELEMENT, "b"));
    EXPECT_EQ(b, root.find_first(XML_ELEMENT, "c"));
    a->deep_copy(xml_node("d", XML_ELEMENT));
    EXPECT_EQ(nullptr, root.find_first(XML_ELEMENT, "b"));
    EXPECT_EQ(a, root.find_first(XML_ELEMENT, "d"));
    a->set_name("");
    EXPECT_EQ(a, root.find_first(XML_ELEMENT, ""));
    // A text becomes an element, and an element a text.
    b->set_type(XML_TEXT);
    EXPECT_EQ(nullptr, root.find_first(XML_ELEMENT, "c"));
    b->set_name("e");
    b->set_type(XML_ELEMENT);
    EXPECT_EQ(b, root.find_first(XML_ELEMENT, "e"));
}

TEST(xml_find, a_step_by_hand)
{
    xml_doc doc = doc_of(looked_up);
    xpath_iter found;
    xstep step;
    EXPECT_EQ(err::not_exist, doc.all()->find_first(step, found));
    for (const int kind : { 2, 8, -1, 100 }) {
        step.kind = kind;
        EXPECT_EQ(err::internal, doc.all()->find_first(step, found)) << kind;
    }
    step.kind = xstep::root;
    EXPECT_EQ(0, doc.get_doc_node()->find_first(step, found));
    EXPECT_EQ(doc.all(), found.get_node());
}

TEST(xml_find, from_any_node)
{
    xml_doc doc = doc_of(looked_up);
    xml_node* const a = doc.all()->find_dir("/r/a[1]");
    EXPECT_EQ(XML_ELEMENT, a->find_dir("c")->get_type());
    EXPECT_EQ(doc.get_doc_node(), a->find_dir("/r"));
    a->untie();
    EXPECT_EQ(a, a->find_dir("/"));
    EXPECT_EQ(nullptr, a->find_dir("/r"));
    EXPECT_EQ(a->find_dir("c"), a->find_dir("/c"));
    delete a;
}

TEST(xml_find, find_dir_finds_elements_only)
{
    xml_doc doc = doc_of(looked_up);
    EXPECT_EQ("b", dump(*doc.all()->find_dir("/r/b")));
    EXPECT_EQ("b", dump(*doc.all()->kroFindDir("r/b")));
    EXPECT_EQ(doc.all(), doc.all()->find_dir("/"));
    for (const char* path : { "/r/x", "/r/@id", "/r/#comment", "/r/#pi", "", "a b" })
        EXPECT_EQ(nullptr, doc.all()->find_dir(path)) << path;
}

TEST(xml_find, an_iterator_goes_on_to_what_is_alike)
{
    xml_doc doc = doc_of(looked_up, true);
    const struct {
        const char* path;
        const char* walk;
    } cases[] = {
        { "/r/a", "a a a " },
        { "/r/b", "b " },
        { "/r/a[1]/#text", "t1 t3 " },
        { "/r/#comment", "c0 c1 " },
        { "/r/#pi", "p " },
        { "/r/@id", "=0 =1 " },
        { "/", " " },
        { "/none", "" },
    };
    for (const auto& c : cases) {
        string walk;
        for (xpath_iter i = doc.all()->find(c.path); !i.IsDone(); ++i)
            walk += i.get_attr() ? string("=") + i.get_attr()->get_value().c_str() + " " : string((*i).get_name().c_str()) + " ";
        EXPECT_EQ(c.walk, walk) << c.path;
    }
    xpath_iter done;
    EXPECT_TRUE((++done).IsDone());
    EXPECT_EQ(nullptr, done.get_dir());
    xpath_iter i = doc.all()->find("/r/@id");
    EXPECT_EQ(doc.get_doc_node(), i.get_node());
    EXPECT_EQ(doc.get_doc_node(), i.get_dir());
    i.reset();
    EXPECT_TRUE(i.IsDone());
    EXPECT_EQ(nullptr, i.get_attr());
    EXPECT_EQ(doc.get_doc_node(), doc.all()->find("/r/b").get_dir());
    EXPECT_EQ(nullptr, doc.all()->find("/").get_dir());
}

// The values of all attributes of the name "a", walked from the first on. `at` is told the
// place of each and may change the list.
template <class function> string walk_attributes(xml_node& node, function at)
{
    string walk;
    int place = 0;
    for (xpath_iter i = node.find("@a"); !i.IsDone(); ++i, ++place) {
        walk += i.get_attr()->get_value().c_str();
        at(place);
    }
    return walk;
}

TEST(xml_find, an_iterator_finds_its_attribute_again_when_others_come_and_go)
{
    const auto node_of = [](const char* values) {
        xml_node node("n", XML_ELEMENT);
        for (const char* v = values; *v; ++v) {
            node.get_attrs().add_attr("a", share_str(v, v + 1));
            node.get_attrs().add_attr("b", "x");
        }
        return node;
    };
    const struct {
        const char* what;
        void (*change)(attributes&);
        const char* walk;
    } changes[] = { // behind the fourth of "0123456789", which stands at 6
        { "nothing", [](attributes&) {}, "0123456789" },
        { "one before goes", [](attributes& l) { l.remove_attr(2); }, "0123456789" },
        { "all before go", [](attributes& l) { for (int i = 0; i < 6; ++i) l.remove_attr(0); }, "0123456789" },
        { "one before comes", [](attributes& l) { l.add_attr(0, "a", "n"); }, "0123456789" },
        { "many before come", [](attributes& l) { for (int i = 0; i < 40; ++i) l.add_attr(2, "a", "n"); }, "0123456789" },
        { "the next goes", [](attributes& l) { l.remove_attr(8); }, "012356789" },
        { "all behind go", [](attributes& l) { while (l.count() > 7) l.remove_attr(7); }, "0123" },
        { "one behind comes", [](attributes& l) { l.add_attr(7, "a", "n"); }, "0123n456789" },
        { "another takes its place",
          [](attributes& l) {
              l.remove_attr(0);
              l.add_attr(6, "a", "n");
          },
          "0123n456789" },
        { "the next has another name", [](attributes& l) { l[8].set_name("c"); }, "012356789" },
        { "it has another name", [](attributes& l) { l[6].set_name("b"); }, "0123xxxxxxx" },
    };
    for (const auto& c : changes) {
        xml_node node = node_of("0123456789");
        EXPECT_EQ(c.walk, walk_attributes(node, [&](int place) {
                      if (place == 3)
                          c.change(node.get_attrs());
                  }))
            << c.what;
    }
    // Each one goes when the next was reached.
    xml_node node = node_of("0123456789");
    xpath_iter i = node.find("@a");
    for (int left = 20; !i.IsDone(); left -= 2) {
        EXPECT_EQ(left, static_cast<int>(node.get_attrs().count()));
        ++i;
        EXPECT_EQ(0, node.rmdir("@a"));
        EXPECT_EQ(0, node.rmdir("@b"));
    }
    EXPECT_EQ("n", dump(node));
}

TEST(xml_find, an_iterator_is_linear_in_attributes_of_one_name)
{
    const unsigned n = 40000;
    xml_node node("n", XML_ELEMENT);
    for (unsigned i = 0; i < n; ++i)
        node.get_attrs().add_attr("a", "v");
    unsigned right = 0;
    xpath_iter i = node.find("@a");
    for (unsigned place = 0; !i.IsDone(); ++i, ++place)
        right += i.get_attr() == node.get_attrs().get_attr(place);
    EXPECT_EQ(n, right);
}

// ---- values

TEST(xml_value, is_a_text_or_an_attribute)
{
    const struct {
        const char* path;
        int code;
        const char* value;
    } cases[] = {
        { "/r/a", 0, "t0" },
        { "/r/a[1]", 0, "t1" }, // the first text
        { "/r/a[1]/#text[1]", 0, "t3" },
        { "/r/a[1]/@x", 0, "y" },
        { "/r/#comment", 0, "c0" },
        { "/r/b", err::not_exist, "" },
        { "/r/e", err::not_exist, "" }, // a CDATA section is no text child
        { "/", err::not_exist, "" },
        { "/r/#pi", err::not_exist, "" },
        { "/r/x", err::not_exist, "" },
        { "/r/a b", err::syntax, "" },
    };
    xml_doc doc = doc_of(looked_up, true);
    for (const auto& c : cases) {
        share_str value("before");
        EXPECT_EQ(c.code, doc.all()->get_value(c.path, value)) << c.path;
        EXPECT_STREQ(c.value, value.c_str()) << c.path;
        EXPECT_STREQ(c.value, doc.all()->get_value(c.path).c_str()) << c.path;
    }
    share_str value("before");
    EXPECT_EQ(err::not_exist, xpath_iter().get_value(value));
    EXPECT_TRUE(value.isempty());
    EXPECT_EQ(err::not_exist, xpath_iter().set_value("x"));
    const xml_node cdata("content", XML_CDATA);
    EXPECT_EQ(0, xpath_iter(const_cast<xml_node*>(&cdata)).get_value(value));
    EXPECT_STREQ("content", value.c_str());
}

TEST(xml_value, of_an_element_is_its_first_text)
{
    xml_doc doc = doc_of("<r><a/>t<b/>u</r>");
    xml_node* const root = doc.get_doc_node();
    share_str value;
    EXPECT_EQ(0, root->kroGetValue(value));
    EXPECT_STREQ("t", value.c_str());
    EXPECT_EQ(0, root->kroSetValue("new"));
    EXPECT_EQ("r(a 'new' b 'u')", dump(*root));
    xml_node* const a = root->find_dir("a");
    EXPECT_EQ(err::not_exist, a->kroGetValue(value));
    EXPECT_TRUE(value.isempty());
    EXPECT_EQ(0, a->kroSetValue("x"));
    EXPECT_EQ(0, root->find_dir("b")->kroSetValue(""));
    EXPECT_EQ("r(a('x') 'new' b('') 'u')", dump(*root));
}

TEST(xml_value, set_makes_what_is_missing)
{
    const struct {
        const char* path;
        int flags;
        int code;
        const char* tree;
    } cases[] = {
        { "/r/a", 0, 0, "#(r[i=1](a('v') !c!))" },
        { "/r/b", 0, 0, "#(r[i=1](a('t') !c! b('v')))" },
        { "/r/b/c/d", 0, 0, "#(r[i=1](a('t') !c! b(c(d('v')))))" },
        { "/r/a/b", 0, 0, "#(r[i=1](a('t' b('v')) !c!))" },
        { "/r/@i", 0, 0, "#(r[i=v](a('t') !c!))" },
        { "/r/@j", 0, 0, "#(r[i=1,j=v](a('t') !c!))" },
        { "/r/b/@j", 0, 0, "#(r[i=1](a('t') !c! b[j=v]))" },
        { "/r/a[1]", 0, 0, "#(r[i=1](a('t') !c! a('v')))" },
        { "/r/a[1]/b[0]", 0, 0, "#(r[i=1](a('t') !c! a(b('v'))))" },
        { "/r/#text", 0, 0, "#(r[i=1](a('t') !c! 'v'))" },
        { "/r/#comment", 0, 0, "#(r[i=1](a('t') !v!))" },
        { "/r/#comment[1]", 0, 0, "#(r[i=1](a('t') !c! !v!))" },
        { "/r/", 0, 0, "#(r[i=1](a('t') !c! 'v'))" },
        { "/", 0, 0, "#(r[i=1](a('t') !c!) 'v')" },
        // Bit 4 is cleared; bit 1 makes another one.
        { "/r/a", 4, 0, "#(r[i=1](a('v') !c!))" },
        { "/r/a", 5, 0, "#(r[i=1](a('t') !c! a('v')))" },
        { "/r/@i", 1, 0, "#(r[i=1,i=v](a('t') !c!))" },
        { "/r/a/b", 1, 0, "#(r[i=1](a('t' b('v')) !c!))" }, // of the last step only
        { "/r/#comment", 1, 0, "#(r[i=1](a('t') !c! !v!))" },
        { "/", 1, err::conflict, nullptr },
        // What cannot be made leaves nothing behind.
        { "/r/a[2]", 0, err::not_exist, nullptr },
        { "/r/a[-2]", 0, err::not_exist, nullptr },
        { "/r/b[1]/c", 0, err::not_exist, nullptr },
        { "/r/b/c[1]", 0, err::not_exist, nullptr },
        { "/r/#pi", 0, err::not_exist, nullptr },
        { "/r/b/#pi", 0, err::not_exist, nullptr },
        { "/r/b/@", 0, err::bad_argument, nullptr },
        { "/s", 0, err::overflow, nullptr }, // a second root
        { "/s/t", 0, err::overflow, nullptr },
        { "/r[1]", 0, err::overflow, nullptr },
        { "", 0, err::not_exist, nullptr },
        { "/r/b/ ", 0, err::syntax, nullptr },
        { "/r/b/a b/c", 0, err::syntax, nullptr },
        { "/r/b/#x", 0, err::unexpected, nullptr },
        { "/r/b/@i/c", 0, err::syntax, nullptr },
        { "/r/b/#text/c", 0, err::syntax, nullptr },
        { "/r/b/c//r/d//r/a[2]", 0, err::not_exist, nullptr }, // several branches were begun
        { "/r/b//r/b/c//r/b/c/@", 0, err::bad_argument, nullptr },
    };
    for (const auto& c : cases) {
        xml_doc doc = doc_of("<r i=\"1\"><a>t</a><!--c--></r>");
        EXPECT_EQ(hex(c.code), hex(doc.all()->set_value(c.path, "v", c.flags))) << c.path;
        EXPECT_EQ(c.tree ? c.tree : "#(r[i=1](a('t') !c!))", dump(*doc.all())) << c.path;
    }
    xml_doc doc = doc_of("<r><?p?></r>");
    EXPECT_EQ(err::not_exist, doc.all()->set_value("/r/#pi", "v"));
    EXPECT_EQ(err::not_exist, doc.all()->set_value("/r/#pi", "v", 1));
    EXPECT_EQ("#(r(?p))", dump(*doc.all()));
    EXPECT_EQ(err::invalid_parameter, doc.all()->set_value(nullptr, "v"));
    // What stands before the root is no root.
    xml_doc declared("r");
    EXPECT_EQ(err::overflow, declared.all()->set_value("/s", "v"));
    EXPECT_EQ(0, declared.all()->rmdir("/r"));
    declared.all()->add("c", XML_COMMENT);
    EXPECT_EQ(0, declared.all()->set_value("/s", "v"));
    EXPECT_EQ("#(?xml[version=1.0,encoding=gb2312] !c! s('v'))", dump(*declared.all()));
    xml_doc empty;
    EXPECT_EQ(0, empty.all()->set_value("/r/a", "v"));
    EXPECT_EQ("#(r(a('v')))", dump(*empty.all()));
}

TEST(xml_value, mkdir_makes_the_elements_of_a_path)
{
    xml_doc doc = doc_of("<r><a/></r>");
    xpath_iter made;
    EXPECT_EQ(0, doc.all()->mkdir("/r/a/b/c", &made));
    EXPECT_EQ("c", dump(*made));
    EXPECT_EQ("/r/a/b/c", "/" + string("r/a/b/") + (*made).get_name().c_str());
    EXPECT_EQ(0, doc.all()->mkdir("/r/a/b")); // exists, and needs no iterator
    EXPECT_EQ(0, doc.all()->mkdir("/r/a", nullptr, xml_node::mk_new));
    EXPECT_EQ("#(r(a(b(c)) a))", dump(*doc.all()));
    EXPECT_EQ(err::conflict, doc.all()->mkdir("/r/a", &made, xml_node::mk_exclusive));
    EXPECT_TRUE(made.IsDone());
    EXPECT_EQ(err::conflict, doc.all()->mkdir("/", nullptr, xml_node::mk_exclusive));
    EXPECT_EQ(0, doc.all()->mkdir("/r/d", &made, xml_node::mk_exclusive));
    EXPECT_EQ("d", dump(*made));
    EXPECT_EQ(0, doc.all()->mkdir("/r/d/@x", &made));
    EXPECT_EQ(made.get_attr(), (*made).get_attrs().find_attr("x"));
    EXPECT_EQ("#(r(a(b(c)) a d[x=]))", dump(*doc.all()));
}

TEST(xml_value, rmdir_removes_what_a_path_means)
{
    const struct {
        const char* path;
        int code;
        const char* tree;
    } cases[] = {
        { "/r/a", 0, "#(r[i=1](b !c!))" },
        { "/r", 0, "#" },
        { "/r/@i", 0, "#(r(a(x) b !c!))" },
        { "/r/#comment", 0, "#(r[i=1](a(x) b))" },
        { "/r/a/x", 0, "#(r[i=1](a b !c!))" },
        { "/r/b[0]", 0, "#(r[i=1](a(x) !c!))" },
        { "/", err::bad_argument, nullptr },
        { "/r/x", err::not_exist, nullptr },
        { "", err::not_exist, nullptr },
        { "/r/a b", err::syntax, nullptr },
    };
    for (const auto& c : cases) {
        xml_doc doc = doc_of("<r i=\"1\"><a><x/></a><b/><!--c--></r>");
        EXPECT_EQ(hex(c.code), hex(doc.all()->rmdir(c.path))) << c.path;
        EXPECT_EQ(c.tree ? c.tree : "#(r[i=1](a(x) b !c!))", dump(*doc.all())) << c.path;
    }
}

// ---- documents

TEST(xml_doc, is_made_empty_or_with_a_declaration_and_a_root)
{
    EXPECT_EQ("#", dump(*xml_doc().all()));
    EXPECT_TRUE(xml_doc().is_emptied());
    EXPECT_EQ(nullptr, xml_doc().get_doc_node());
    EXPECT_EQ("#(?xml[version=1.0,encoding=gb2312] root)", dump(*xml_doc("root").all()));
    EXPECT_EQ("#(?xml[version=1.1,encoding=utf-8] root)", dump(*xml_doc("root", "1.1", "utf-8").all()));
    xml_doc doc("root");
    EXPECT_EQ("root", dump(*doc.get_doc_node()));
    EXPECT_FALSE(doc.is_emptied());
    EXPECT_EQ(0, doc.init("other", "2", "3"));
    EXPECT_EQ("#(?xml[version=2,encoding=3] other)", dump(*doc.all()));
    EXPECT_EQ(0, doc.init("third"));
    EXPECT_EQ("#(?xml[version=1.0,encoding=gb2312] third)", dump(*doc.all()));
    EXPECT_EQ(err::invalid_parameter, doc.init(nullptr));
    EXPECT_EQ(err::invalid_parameter, doc.init(""));
    EXPECT_EQ("#(?xml[version=1.0,encoding=gb2312] third)", dump(*doc.all()));
    EXPECT_TRUE(xml_doc(nullptr).is_emptied());
    doc.clear();
    EXPECT_TRUE(doc.is_emptied());
    EXPECT_EQ(nullptr, doc.get_doc_node());
}

TEST(xml_doc, may_be_made_anew_from_its_own_texts)
{
    const string name(100, 'n'), version(100, 'v'), encoding(100, 'e');
    xml_doc doc(name.c_str(), version.c_str(), encoding.c_str());
    const string made = dump(*doc.all());
    const attributes& declared = doc.all()->get_childs().ptr()->get_attrs();
    EXPECT_EQ(0, doc.init(doc.get_doc_node()->get_name().c_str(), declared[0].get_value().c_str(),
                          declared[1].get_value().c_str()));
    EXPECT_EQ(made, dump(*doc.all()));
}

TEST(xml_doc, a_copy_has_a_root_of_its_own)
{
    xml_doc doc("root");
    doc.get_doc_node()->add("a", XML_ELEMENT);
    xml_doc copy(doc);
    EXPECT_EQ(dump(*doc.all()), dump(*copy.all()));
    EXPECT_NE(doc.get_doc_node(), copy.get_doc_node());
    doc.get_doc_node()->clear();
    EXPECT_EQ("root(a)", dump(*copy.get_doc_node()));
    doc = copy;
    EXPECT_EQ("root(a)", dump(*doc.get_doc_node()));
    // The root element is found again when the tree's own operations changed it.
    EXPECT_EQ(0, doc.all()->rmdir("/root"));
    EXPECT_EQ(nullptr, doc.get_doc_node());
    doc.all()->add("next", XML_ELEMENT);
    EXPECT_EQ("next", dump(*doc.get_doc_node()));
}

TEST(xml_doc, a_derived_document_can_set_its_title)
{
    struct titled : xml_doc {
        int r = set_doc_title("r", "1.0", "ascii");
        xml_node* found = seek_doc_node();
    } doc;
    EXPECT_EQ(0, doc.r);
    EXPECT_EQ("#(?xml[version=1.0,encoding=ascii] r)", dump(*doc.all()));
    EXPECT_EQ(doc.get_doc_node(), doc.found);
}

// ---- printing

TEST(xml_write, prints_each_child_on_a_line)
{
    const struct {
        const char* text;
        const char* compact;
        const char* pretty;
    } cases[] = {
        { "<a/>", "<a/>\n", "<a/>\n" },
        { "<a></a>", "<a/>\n", "<a/>\n" },
        { "<a b=\"1\" c=\"\"/>", "<a b=\"1\" c=\"\"/>\n", "<a b=\"1\" c=\"\"/>\n" },
        // One text alone stands on the element's line.
        { "<a> x </a>", "<a>x</a>\n", "<a>x</a>\n" },
        { "<a><b>t</b></a>", "<a>\n<b>t</b>\n</a>\n", "<a>\n   <b>t</b>\n</a>\n" },
        { "<a>t<b/></a>", "<a>\nt\n<b/>\n</a>\n", "<a>\n   t\n   <b/>\n</a>\n" },
        { "<a><b><c><d/></c></b><e/></a>", "<a>\n<b>\n<c>\n<d/>\n</c>\n</b>\n<e/>\n</a>\n",
          "<a>\n   <b>\n      <c>\n         <d/>\n      </c>\n   </b>\n   <e/>\n</a>\n" },
        { "<a><![CDATA[x<]]></a>", "<a>\n<![CDATA[x<]]>\n</a>\n", "<a>\n   <![CDATA[x<]]>\n</a>\n" },
        { "<a><!-- c& --></a>", "<a>\n<!-- c& -->\n</a>\n", "<a>\n   <!-- c& -->\n</a>\n" },
        { "<?xml version=\"1.0\"?><?p?><a><?q b=\"&lt;\"?></a>", "<?xml version=\"1.0\"?>\n<?p?>\n<a>\n<?q b=\"&lt;\"?>\n</a>\n",
          "<?xml version=\"1.0\"?>\n<?p?>\n<a>\n   <?q b=\"&lt;\"?>\n</a>\n" },
        // Four characters are escaped; the apostrophe is not.
        { "<a b=\"&lt;&gt;&amp;&apos;&quot;\">&lt;&gt;&amp;&apos;&quot;</a>",
          "<a b=\"&lt;&gt;&amp;'&quot;\">&lt;&gt;&amp;'&quot;</a>\n",
          "<a b=\"&lt;&gt;&amp;'&quot;\">&lt;&gt;&amp;'&quot;</a>\n" },
    };
    for (const auto& c : cases) {
        const xml_doc doc = doc_of(c.text);
        EXPECT_EQ(c.compact, printed(doc, false)) << c.text;
        EXPECT_EQ(c.pretty, printed(doc, true)) << c.text;
    }
}

TEST(xml_write, a_node_prints_itself_without_a_line_end)
{
    xml_doc doc = doc_of("<a><b><c/></b>t&amp;<!--c--></a>");
    const xml_node_iter first = doc.get_doc_node()->get_childs();
    EXPECT_EQ("<b>\n   <c/>\n</b>", printed(*first, true));
    EXPECT_EQ("<b>\n<c/>\n</b>", printed(*first, false));
    EXPECT_EQ("t&amp;", printed(*first.ptr()->get_next(), true));
    EXPECT_EQ("", printed(xml_node("", XML_DOCUMENT), true));
    EXPECT_EQ("", printed(xml_node("x", static_cast<xml_node_t>(9)), true));
    EXPECT_EQ("<a></a>", [] {
        xml_node a("a", XML_ELEMENT);
        a.add("", XML_TEXT);
        return printed(a);
    }());
    // A document inside prints its children at the level where it stands.
    xml_node outer("o", XML_ELEMENT);
    xml_node* const inner = outer.add("", XML_DOCUMENT);
    EXPECT_EQ("<o>\n   \n</o>", printed(outer, true));
    inner->add("x", XML_ELEMENT);
    inner->add("y", XML_ELEMENT);
    EXPECT_EQ("<o>\n      <x/>\n   <y/>\n\n</o>", printed(outer, true));
}

TEST(xml_write, long_texts_pass_the_buffer_whole)
{
    for (const unsigned n : { 8000u, 8190u, 8191u, 8192u, 8193u, 20000u, 100000u }) {
        const string text(n, 'x');
        xml_doc doc = doc_of("<a b=\"" + text + "\">&lt;" + text + "</a>");
        EXPECT_EQ("<a b=\"" + text + "\">&lt;" + text + "</a>\n", printed(doc)) << n;
    }
    xml_node nul("a", XML_ELEMENT);
    nul.add(share_str("x\0y", "x\0y" + 3), XML_TEXT);
    EXPECT_EQ(string("<a>x\0y</a>", 10), printed(nul));
}

// A stream that takes so many bytes.
struct short_buffer : std::streambuf {
    explicit short_buffer(std::size_t n) : room(n) {}
    std::size_t room;
    int overflow(int) override { return EOF; }
    std::streamsize xsputn(const char*, std::streamsize n) override
    {
        const auto taken = std::min(room, static_cast<std::size_t>(n));
        room -= taken;
        return static_cast<std::streamsize>(taken);
    }
};

TEST(xml_write, a_stream_that_fails_is_a_file_system_error)
{
    xml_doc doc = doc_of("<a>" + string(30000, 'x') + "</a>");
    for (const std::size_t room : { 0u, 1u, 10000u, 30007u }) {
        short_buffer buffer(room);
        std::ostream out(&buffer);
        EXPECT_EQ(err::file_system, doc.write(out, true)) << room;
    }
    short_buffer buffer(30008);
    std::ostream out(&buffer);
    EXPECT_EQ(0, doc.write(out, true));
    short_buffer none(0);
    std::ostream throwing(&none);
    throwing.exceptions(std::ios::badbit);
    EXPECT_EQ(err::file_system, doc.write(throwing, true));
}

TEST(xml_write, what_a_stream_throws_becomes_a_code)
{
    const xml_doc doc("root");
    const auto write = [&](std::ostream& out) { return doc.write(out, true); };
    EXPECT_EQ(err::out_of_memory, status_of_throwing(std::bad_alloc(), write));
    EXPECT_EQ(err::file_system, status_of_throwing(std::runtime_error("full"), write));
    EXPECT_EQ(err::file_system, status_of_throwing(xcpt(err::timeout, "slow"), write));
    EXPECT_EQ(err::file_system, status_of_throwing(1, write));
}

TEST(xml_write, a_full_disk_is_a_file_system_error)
{
    if (!has_full_device())
        GTEST_SKIP() << "no full device here";
    EXPECT_EQ(err::file_system, doc_of("<a/>").write("/dev/full", false)) << "closing tells";
    EXPECT_EQ(err::file_system, doc_of("<a>" + string(100000, 'x') + "</a>").write("/dev/full", false));
}

TEST(xml_write, files_are_written_and_read_byte_for_byte)
{
    const string path = testing::TempDir() + "stdkro_xml_test.xml";
    xml_doc doc("r");
    doc.get_doc_node()->add("line\r\nline", XML_TEXT);
    ASSERT_EQ(0, doc.write(path.c_str(), true));
    std::ifstream file(path, std::ios::binary);
    const string bytes((std::istreambuf_iterator<char>(file)), {});
    EXPECT_EQ("<?xml version=\"1.0\" encoding=\"gb2312\"?>\n<r>line\r\nline</r>\n", bytes);
    file.close();
    xml_doc again;
    ASSERT_EQ(0, again.read(path.c_str(), true, true));
    EXPECT_EQ("#(?xml[version=1.0,encoding=gb2312] '\n' r('line\r\nline') '\n')", dump(*again.all()));
    // A shorter document replaces all of it.
    ASSERT_EQ(0, doc_of("<s/>").write(path.c_str(), false));
    ASSERT_EQ(0, again.read(path.c_str(), false, true));
    EXPECT_EQ("#(s)", dump(*again.all()));
    std::remove(path.c_str());
    // What cannot be opened leaves the document as it was.
    EXPECT_EQ(err::file_system, again.read(path.c_str(), false, false));
    EXPECT_EQ(err::invalid_parameter, again.read(static_cast<const char*>(nullptr), false, false));
    EXPECT_EQ("#(s)", dump(*again.all()));
    const string nowhere = testing::TempDir() + "no such folder/file.xml";
    EXPECT_EQ(err::file_system, again.write(nowhere.c_str(), false));
    EXPECT_EQ(err::file_system, again.write("", false));
    EXPECT_EQ(err::invalid_parameter, again.write(static_cast<const char*>(nullptr), false));
}

// ---- generated documents

// A random tree, written by rules of its own: blanks in tags, escapes in several forms.
class generator {
public:
    explicit generator(unsigned seed) : random_(seed) {}

    // The text of a document; `tree` is then what `dump` prints of it, texts trimmed.
    string document(string& tree)
    {
        string text = pick(2) ? "<?xml version=\"1.0\"" + blanks() + "?>" : "";
        tree = text.empty() ? "#(" : "#(?xml[version=1.0] ";
        string element_tree;
        text += blanks() + element(4, element_tree) + blanks();
        tree += element_tree + ")";
        return text;
    }

private:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random_() % n); }

    string blanks() { return string(pick(3), " \t\n\r"[pick(4)]); }

    string name()
    {
        static const string chars = "#$%-.@_`~azAZ09";
        string text;
        for (unsigned n = 1 + pick(9); n > 0; --n)
            text += chars[pick(static_cast<unsigned>(chars.size()))];
        return text;
    }

    // One character, as it is or in one of its escapes.
    string written(char c)
    {
        char number[20];
        const auto code = static_cast<unsigned>(static_cast<unsigned char>(c));
        static const char* const forms[] = { "&#%u;", "&#x%x;", "&#0%x;", "&#x0%X;" };
        std::snprintf(number, sizeof number, forms[pick(4)], code);
        switch (c) {
        case '<': return pick(2) ? "&lt;" : number;
        case '&': return pick(2) ? "&amp;" : number;
        case '"': return pick(2) ? "&quot;" : number;
        case '\'': return pick(2) ? "&apos;" : number;
        case '>': return pick(2) ? "&gt;" : ">";
        default: return pick(8) ? string(1, c) : number;
        }
    }

    // Text without white space at its ends; `plain` is what it means.
    string text(string& plain)
    {
        static const string chars = "ab<>&\"' \xd6\xd0\xfe\x80;#]-";
        const auto n = static_cast<unsigned>(chars.size());
        plain = "x";
        for (unsigned left = pick(20); left > 0; --left)
            plain += chars[pick(n)];
        plain += "y";
        string out;
        for (const char c : plain)
            out += written(c);
        return out;
    }

    string attributes(string& tree)
    {
        string out;
        for (unsigned n = pick(4), i = 0; i < n; ++i) {
            string plain;
            const string key = name(), value = text(plain);
            out += " " + blanks() + key + blanks() + "=" + blanks() + "\"" + value + "\"";
            tree += (i ? "," : "[") + key + "=" + plain + (i + 1 == n ? "]" : "");
        }
        return out + blanks();
    }

    string element(unsigned depth, string& tree)
    {
        const string own = name();
        tree = own;
        string out = "<" + own + attributes(tree);
        const unsigned children = depth == 0 ? 0 : pick(5);
        if (children == 0)
            return out + (pick(2) ? "/>" : ">" + blanks() + "</" + own + ">");
        out += ">";
        bool after_text = false;
        for (unsigned i = 0; i < children; ++i) {
            string child, plain;
            unsigned kind = pick(6);
            if (kind == 1 && after_text)
                kind = 0;
            after_text = kind == 1;
            switch (kind) {
            case 1:
                out += blanks() + text(plain) + blanks();
                child = "'" + plain + "'";
                break;
            case 2:
                plain = " <c>&d;]" + string(pick(2), ']') + " ";
                out += "<![CDATA[" + plain + "]]>";
                child = "[" + plain + "]";
                break;
            case 3:
                plain = "-<c>&d;\n" + string(pick(2), '-') + " ";
                out += "<!--" + plain + "-->";
                child = "!" + plain + "!";
                break;
            case 4: {
                child = "?" + name();
                out += "<" + child;
                string pairs;
                out += attributes(pairs) + "?>";
                child += pairs;
                break;
            }
            default: out += blanks() + element(depth - 1, child) + blanks();
            }
            tree += (i ? " " : "(") + child;
        }
        tree += ")";
        return out + "</" + own + ">";
    }

    std::mt19937 random_;
};

TEST(xml_generated, documents_are_read_as_they_were_meant)
{
    for (unsigned seed = 0; seed < 2000; ++seed) {
        string tree;
        const string text = generator(seed).document(tree);
        const guarded_text guarded(text);
        xml_reader in;
        in.load_string(guarded.begin(), guarded.end(), false);
        xml_doc doc;
        ASSERT_EQ(0, doc.read(in, false, true)) << text;
        ASSERT_EQ(tree, dump(*doc.all())) << text;
        const auto lines = std::count(text.begin(), text.end(), '\n');
        ASSERT_EQ(1 + lines, in.get_line()) << text;
    }
}

TEST(xml_generated, write_and_read_give_the_same_document)
{
    for (unsigned seed = 0; seed < 500; ++seed) {
        string tree;
        const xml_doc doc = doc_of(generator(seed).document(tree));
        for (const bool pretty : { false, true }) {
            const string once = printed(doc, pretty);
            const xml_doc again = doc_of(once);
            ASSERT_EQ(tree, dump(*again.all())) << once;
            ASSERT_EQ(once, printed(again, pretty));
        }
        // An element is read back from its own text.
        const xml_node* const root = doc.get_doc_node();
        const string own = printed(*root, true);
        xml_reader in;
        in.load_string(own.data(), own.data() + own.size());
        xml_node target("t", XML_DOCUMENT);
        ASSERT_EQ(0, target.read(in, false, true));
        ASSERT_EQ(0u, in.get_spare());
        ASSERT_EQ(dump(*root), dump(*target.get_childs()));
        ASSERT_EQ(dump(*root), dump(xml_node(*root)));
    }
}

// Every beginning of a document ends in a status code, and the tree can be used.
TEST(xml_generated, truncated_documents_fail)
{
    for (unsigned seed = 0; seed < 20; ++seed) {
        string tree;
        const string text = generator(seed).document(tree);
        const std::size_t root_end = text.find_last_of('>') + 1;
        for (std::size_t n = 0; n <= text.size(); ++n) {
            const guarded_text guarded(text.substr(0, n));
            xml_reader in;
            in.load_string(guarded.begin(), guarded.end(), false);
            xml_doc doc;
            const int r = doc.read(in, true, true);
            ASSERT_EQ(n < root_end, r < 0) << text.substr(0, n);
            printed(doc);
        }
    }
}

// ---- depth

TEST(xml_depth, nothing_recurses)
{
    const unsigned depth = 100000;
    const string text = nested(depth, "<a>\n", "<b/>\n", "</a>\n");
    xml_doc doc;
    ASSERT_EQ(0, read(doc, text));
    EXPECT_EQ(text, printed(doc));
    xml_doc copy(doc);
    doc.clear();
    EXPECT_EQ(text, printed(copy));
    doc = copy;
    xml_node* deepest = copy.get_doc_node();
    while (!deepest->is_child_emptied())
        deepest = deepest->get_childs().ptr();
    EXPECT_EQ(copy.all(), deepest->get_root());
    EXPECT_EQ(nullptr, deepest->add(copy.all()));
    copy.get_doc_node()->swap(*doc.get_doc_node());
    delete copy.get_doc_node();
    EXPECT_EQ(text, printed(doc));
    // Half of a document, and the rest missing.
    EXPECT_EQ(err::abnormal_end, read(doc, text.substr(0, depth * 4)));
    // A path as long.
    string path = "a";
    for (unsigned i = 1; i < depth; ++i)
        path += "/a";
    doc.clear();
    EXPECT_EQ(0, doc.all()->set_value(path.c_str(), "v"));
    EXPECT_STREQ("v", doc.all()->get_value(path.c_str()).c_str());
}

} // namespace
