// Handlers that do the unusual: builders derived from the library's, a handler taken away during
// a read, a read inside a read; and long names in long lists.
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <gtest/gtest.h>

#include <string>

namespace {

struct derived_builder : xml_node_handler {
    using xml_node_handler::xml_node_handler;
    int onBeginDocument() override { return skips_begin ? 0 : xml_node_handler::onBeginDocument(); }
    bool skips_begin = false;
};

TEST(derived_builder, needs_a_target_at_every_event)
{
    derived_builder builder(nullptr, true, true);
    xml_reader in;
    in.load_string("<a>text</a>");
    EXPECT_EQ(err::not_initialized, in.read_doc(&builder));
    EXPECT_EQ(err::not_initialized, in.read_node(&builder));
    builder.skips_begin = true;
    in.seek(0);
    EXPECT_EQ(err::not_initialized, in.read_doc(&builder));
    derived_builder idle(nullptr, true, true);
    EXPECT_EQ(err::not_initialized, idle.onText("text"));
    EXPECT_EQ(err::not_initialized, idle.onComment("text"));
}

TEST(derived_builder, builds_what_the_base_builds)
{
    xml_node target("", XML_DOCUMENT);
    derived_builder builder(&target, true, true);
    xml_reader in;
    in.load_string("<a x=\"1\"><b/>text<!--c--></a>");
    ASSERT_EQ(0, in.read_doc(&builder));
    const xml_node* const a = target.find_dir("a");
    ASSERT_NE(nullptr, a);
    EXPECT_STREQ("1", a->get_attrs().read("x", "").c_str());
    EXPECT_NE(nullptr, target.find_dir("a/b"));
    EXPECT_STREQ("text", a->find_first(XML_TEXT, nullptr)->get_name().c_str());
    EXPECT_STREQ("c", a->find_first(XML_COMMENT, nullptr)->get_name().c_str());
}

TEST(xml_reader, goes_on_without_a_handler_that_was_taken_away)
{
    struct leaving : xml_handler {
        std::string seen;
        int onBeginNode(const share_str& name, attributes&) override
        {
            seen += name.c_str();
            if (name == "b")
                get_reader()->set_handler(nullptr);
            return 0;
        }
    } handler;
    xml_reader in;
    in.load_string("<a><b><c/>text</b><d/></a>");
    EXPECT_EQ(0, in.read_doc(&handler));
    EXPECT_EQ("ab", handler.seen);
    EXPECT_EQ(nullptr, in.get_handler());
    in.load_string("<a><b><c></b></a>");
    EXPECT_NE(0, in.read_doc(&handler)) << "what is wrong stays wrong";
}

TEST(xml_reader, knows_the_path_of_a_read_inside_a_read)
{
    struct nested : xml_handler {
        std::string path;
        int whole = 0;
        int cut = 0;
        std::string cut_path;
        xml_handler* inner = nullptr;
        int onBeginNode(const share_str& name, attributes&) override
        {
            if (inner && name == "first")
                return get_reader()->read_node(inner);
            if (name != "third")
                return 0;
            char text[64];
            whole = get_reader()->get_path(text, sizeof text);
            path = text;
            cut = get_reader()->get_path(text, 5);
            cut_path = text;
            return 0;
        }
    } outer, inner;
    outer.inner = &inner;
    xml_reader in;
    in.load_string("<first><second><third/></second></first>");
    in.read_doc(&outer);
    EXPECT_EQ("/first/second/third", inner.path);
    EXPECT_EQ(static_cast<int>(inner.path.size()), inner.whole);
    EXPECT_EQ(static_cast<int>(0x80000008), inner.cut);
    EXPECT_EQ("/fir", inner.cut_path);
}

TEST(attributes, with_long_names_are_found_in_long_lists)
{
    const auto name_of = [](int i) { return "a name longer than a word or two, number " + std::to_string(i); };
    attributes list;
    for (int i = 0; i < 100; ++i)
        list.add_attr(name_of(i).c_str(), std::to_string(i).c_str());
    for (int turn = 0; turn < 2; ++turn) {
        for (int i = 0; i < 100; ++i)
            EXPECT_EQ(std::to_string(i), list.read(name_of(i).c_str(), "none").c_str()) << turn;
        EXPECT_STREQ("none", list.read(name_of(100).c_str(), "none").c_str());
    }
}

} // namespace
