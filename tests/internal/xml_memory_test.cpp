// XML documents when memory runs out: a status code, the tree as it was or a sound part
// of what was read, nothing leaked.
#include "allocation_failure.h"

#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

namespace {

using std::string;

const int no_memory = static_cast<int>(0x80010002);

string text_of(const xml_node& node)
{
    std::ostringstream out;
    EXPECT_EQ(0, node.write(out, false));
    return out.str();
}

// Pages are filled, and lists, names and buffers grow.
string long_document()
{
    string text = "<?xml version=\"1.0\"?>\n<root>";
    for (int i = 0; i < 60; ++i) {
        const string n = std::to_string(i);
        text += "<item" + n + " a" + n + "=\"&lt;" + n + "\" b=\"2\" c=\"3\" d=\"4\" e=\"5\">\n<!--c" + n + "--><sub>text &amp; "
            + string(static_cast<unsigned>(i) * 20, 'x') + "</sub>";
    }
    text += "<![CDATA[" + string(700, 'd') + "]]><?pi x=\"" + string(700, 'v') + "\"?>";
    for (int i = 59; i >= 0; --i)
        text += "</item" + std::to_string(i) + ">";
    return text + "</root>";
}

void read_tree(xml_doc& doc, const string& text)
{
    xml_reader in;
    ASSERT_EQ(0, in.load_string(text.data(), text.data() + text.size(), false));
    ASSERT_EQ(0, doc.read(in, false, true));
}

TEST(xml_memory, reading_a_tree_fails_with_a_code)
{
    const string text = long_document();
    xml_reader in;
    ASSERT_EQ(0, in.load_string(text.data(), text.data() + text.size(), false));
    string whole;
    {
        xml_doc doc;
        ASSERT_EQ(0, doc.read(in, true, true));
        whole = text_of(*doc.all());
    }
    int runs = 0;
    for (allocation_failure failure; failure.next(); ++runs) {
        in.seek(0);
        xml_doc doc;
        failure.arm();
        const int r = doc.read(in, true, true);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        const string kept = text_of(*doc.all()); // what was read is sound
        EXPECT_EQ(!failure.happened(), kept == whole) << failure.nth();
        // Reader and document can be used again.
        in.seek(0);
        ASSERT_EQ(0, doc.read(in, true, true));
        EXPECT_EQ(whole, text_of(*doc.all()));
    }
    EXPECT_GT(runs, 20);
}

TEST(xml_memory, a_derived_builder_fails_with_a_code)
{
    struct derived : xml_node_handler {
        using xml_node_handler::xml_node_handler;
    };
    const string text = "<?xml version=\"1.0\"?><a x=\"1\"><b/>text<![CDATA[data]]><!--comment--></a>";
    string whole;
    int runs = 0;
    for (allocation_failure failure; failure.next(); ++runs) {
        xml_node target("", XML_DOCUMENT);
        xml_reader in;
        ASSERT_EQ(0, in.load_string(text.data(), text.data() + text.size(), false));
        derived builder(&target, true, true);
        failure.arm();
        const int r = in.read_doc(&builder);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        in.seek(0);
        ASSERT_EQ(0, in.read_doc(&builder)) << failure.nth();
        if (runs == 0)
            whole = text_of(target);
        EXPECT_EQ(whole, text_of(target)) << failure.nth();
    }
    EXPECT_GE(runs, 5);
}

TEST(xml_memory, reporting_events_fails_with_a_code)
{
    // Copies everything, as a handler of a program would.
    struct copying_handler : xml_handler {
        attributes pairs;
        share_str last;
        int error = 0;
        void onError(int code, const char*) override { error = code; }
        int onBeginNode(const share_str& name, attributes& attrs) override
        {
            last = name;
            pairs.swap(attrs);
            return 0;
        }
        int onText(const share_str& text) override
        {
            last = text;
            return 0;
        }
    };
    const string text = long_document();
    int runs = 0;
    for (allocation_failure failure; failure.next(); ++runs) {
        xml_reader in;
        ASSERT_EQ(0, in.load_string(text.data(), text.data() + text.size(), false));
        copying_handler handler;
        failure.arm();
        const int r = in.read_doc(&handler);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        EXPECT_EQ(r, handler.error);
    }
    EXPECT_GT(runs, 20);
}

TEST(xml_memory, a_failed_change_of_a_tree_changes_nothing)
{
    // Made before memory runs out: a text without memory is the caller's matter.
    static const share_str name("name"), value("a value");
    static const struct {
        const char* what;
        std::function<int(xml_doc&)> change;
    } cases[] = {
        { "add", [](xml_doc& d) { return d.get_doc_node()->add(name, XML_ELEMENT) ? 0 : no_memory; } },
        { "insert",
          [](xml_doc& d) {
              xml_node* const root = d.get_doc_node();
              return root->add(root->get_childs().ptr(), name, XML_TEXT) ? 0 : no_memory;
          } },
        { "mkdir", [](xml_doc& d) { return d.all()->mkdir("/root/new/newer/@newest"); } },
        { "set_value of a path", [](xml_doc& d) { return d.all()->set_value("/root/new/newer", value); } },
        { "set_value of an attribute", [](xml_doc& d) { return d.all()->set_value("/root/new/@a", value); } },
        { "set_value of an element", [](xml_doc& d) { return d.all()->set_value("/root/empty", value); } },
    };
    for (const auto& c : cases) {
        int failures = 0;
        for (allocation_failure failure; failure.next();) {
            xml_doc doc;
            xml_reader in;
            ASSERT_EQ(0, in.load_string("<root><a x=\"1\">t</a><empty/></root>"));
            ASSERT_EQ(0, doc.read(in, false, false));
            const string before = text_of(*doc.all());
            failure.arm();
            const int r = c.change(doc);
            failure.disarm();
            EXPECT_EQ(failure.happened() ? no_memory : 0, r) << c.what << " " << failure.nth();
            if (failure.happened()) {
                EXPECT_EQ(before, text_of(*doc.all())) << c.what << " " << failure.nth();
            }
            failures += failure.happened();
        }
        EXPECT_GT(failures, 0) << c.what;
    }
}

TEST(xml_memory, an_attribute_that_is_there_is_found_without_memory)
{
    static const share_str value("a value");
    for (const unsigned n : { 7u, 12u, 40u }) { // short, longer, with an index
        for (allocation_failure failure; failure.next();) {
            xml_node node("node", XML_ELEMENT);
            for (unsigned i = 0; i < n; ++i)
                node.get_attrs().add_attr(("attribute" + std::to_string(i)).c_str(), "old");
            const string last = "@attribute" + std::to_string(n - 1);
            xpath_iter found;
            failure.arm_from_there_on();
            const int r = node.set_value(last.c_str(), value);
            const int s = node.find(last.c_str(), found);
            failure.disarm();
            EXPECT_EQ(0, r) << n << " " << failure.nth();
            EXPECT_EQ(0, s) << n << " " << failure.nth();
            EXPECT_EQ(node.get_attrs().get_attr(n - 1), found.get_attr()) << n;
            EXPECT_STREQ("a value", node.get_attrs()[n - 1].get_value().c_str());
            EXPECT_EQ(n, node.get_attrs().count());
        }
    }
}

TEST(xml_memory, a_copy_is_whole_or_empty)
{
    const string text = long_document();
    xml_doc doc;
    ASSERT_NO_FATAL_FAILURE(read_tree(doc, text));
    const string whole = text_of(*doc.all());
    int failures = 0;
    for (allocation_failure failure; failure.next();) {
        xml_doc target("old");
        const string before = text_of(*target.all());
        failure.arm();
        const xml_doc copy(doc);
        failure.disarm();
        EXPECT_EQ(failure.happened() ? "" : whole, text_of(*copy.all())) << failure.nth();
        failures += failure.happened();
    }
    for (allocation_failure failure; failure.next();) {
        xml_doc target("old");
        const string before = text_of(*target.all());
        failure.arm();
        target = doc;
        failure.disarm();
        EXPECT_EQ(failure.happened() ? before : whole, text_of(*target.all())) << failure.nth();
    }
    EXPECT_GT(failures, 20);
}

TEST(xml_memory, a_document_is_made_whole_or_empty)
{
    int failures = 0;
    for (allocation_failure failure; failure.next();) {
        failure.arm();
        xml_doc doc;
        const int r = doc.init("root", "1.0", "gb2312");
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        EXPECT_EQ(failure.happened(), doc.is_emptied());
        failures += failure.happened();
    }
    EXPECT_GT(failures, 5);
}

TEST(xml_memory, a_document_that_cannot_be_made_anew_stays)
{
    int failures = 0;
    for (allocation_failure failure; failure.next();) {
        xml_doc doc("old");
        doc.get_doc_node()->add("text", XML_TEXT);
        const string before = text_of(*doc.all());
        failure.arm();
        const int r = doc.init("new", "1.1", "gbk");
        failure.disarm();
        EXPECT_EQ(failure.happened() ? no_memory : 0, r) << failure.nth();
        EXPECT_EQ(failure.happened() ? before : "<?xml version=\"1.1\" encoding=\"gbk\"?>\n<new/>\n", text_of(*doc.all()))
            << failure.nth();
        failures += failure.happened();
    }
    EXPECT_GT(failures, 5);
}

TEST(xml_memory, writing_takes_none)
{
    const string text = long_document();
    xml_doc doc;
    ASSERT_NO_FATAL_FAILURE(read_tree(doc, text));
    struct counting_buffer : std::streambuf {
        std::streamsize size = 0;
        std::streamsize xsputn(const char*, std::streamsize n) override
        {
            size += n;
            return n;
        }
    } buffer;
    std::ostream out(&buffer);
    allocation_failure failure;
    ASSERT_TRUE(failure.next());
    failure.arm();
    EXPECT_EQ(0, doc.write(out, true));
    failure.disarm();
    EXPECT_FALSE(failure.happened());
    EXPECT_LT(static_cast<std::streamsize>(text.size()), buffer.size);
}

TEST(xml_memory, a_new_node_without_memory_is_an_xcpt)
{
    allocation_failure failure;
    ASSERT_TRUE(failure.next());
    const share_str name("name");
    failure.arm();
    int code = 0;
    try {
        delete new xml_node(name, XML_ELEMENT);
    } catch (const xcpt& e) {
        code = e.get_err();
    }
    failure.disarm();
    EXPECT_EQ(no_memory, code);
}

} // namespace
