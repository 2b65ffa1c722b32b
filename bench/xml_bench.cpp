// XML against expat and libxml2 (events), pugixml, tinyxml2 and libxml2 (trees).
//
// Both sides read the same text in memory and count what they see; the counts are
// compared before anything is measured. Each side destroys its tree inside the
// measured time.
//
// The subject xml_linear compares one read of a text with 16 reads of texts of a
// sixteenth of its size: its ratio is the loss by size.
#include <stdkro/xml_doc.h>

#include <benchmark/benchmark.h>
#include <expat.h>
#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <pugixml.hpp>
#include <malloc.h>
#include <tinyxml2.h>

#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace {

// Memory stays with the allocator: otherwise it is handed to the system and back in every
// round, and a side pays for what another one freed.
const bool allocator_is_settled = [] {
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    return true;
}();

// ---- the texts

// A catalogue: what configuration and data files look like.
std::string make_catalogue(unsigned items)
{
    static const char* const words[] = { "gear", "wheel", "shaft", "bearing", "flange", "gasket", "valve", "spring" };
    std::mt19937 random(7);
    std::ostringstream out;
    out << "<catalogue>\n";
    for (unsigned i = 0; i < items; ++i) {
        out << "  <item id=\"" << i << "\" code=\"P-" << random() % 100000 << "\" in-stock=\"yes\">\n"
            << "    <title>" << words[random() % 8] << ' ' << words[random() % 8] << "</title>\n"
            << "    <description>";
        for (auto w = 4 + random() % 12; w > 0; --w)
            out << words[random() % 8] << (random() % 16 ? " " : " &amp; ");
        out << "end</description>\n"
            << "    <price currency=\"EUR\">" << random() % 1000 << ".50</price>\n"
            << "    <tags><tag>new</tag><tag>" << words[random() % 8] << "</tag></tags>\n"
            << "  </item>\n";
    }
    out << "</catalogue>\n";
    return out.str();
}

const std::string& catalogue()
{
    static const std::string text = make_catalogue(1000);
    return text;
}

// 40 groups of 25 entries, each with a name of its own.
const std::string& settings()
{
    static const std::string text = [] {
        std::ostringstream out;
        out << "<config>";
        for (int g = 0; g < 40; ++g) {
            out << "<group" << g << " id=\"" << g << "\">";
            for (int e = 0; e < 25; ++e)
                out << "<entry" << e << " id=\"" << e << "\">" << g * 100 + e << "</entry" << e << ">";
            out << "</group" << g << ">";
        }
        out << "</config>";
        return out.str();
    }();
    return text;
}

std::vector<std::string> paths_of_settings(const char* format)
{
    std::vector<std::string> paths;
    for (int i = 0; i < 1000; ++i) {
        char path[100];
        std::snprintf(path, sizeof path, format, i * 7 % 40, i * 11 % 25);
        paths.push_back(path);
    }
    return paths;
}

// ---- what was seen

struct tally {
    std::size_t elements = 0;
    std::size_t attributes = 0;
    std::size_t text = 0; // bytes that are not white space, in texts and values

    void add_text(const char* p, std::size_t n)
    {
        for (; n > 0; --n, ++p)
            text += static_cast<unsigned char>(*p) > ' ';
    }
    bool operator==(const tally& o) const
    {
        return elements == o.elements && attributes == o.attributes && text == o.text;
    }
};

// Skips the benchmark when two sides saw different things.
bool agree(benchmark::State& state, const tally& ours, const tally& theirs)
{
    const bool same = ours == theirs && ours.elements > 0;
    if (!same)
        state.SkipWithError("the two sides saw different documents");
    return same;
}

void count_bytes(benchmark::State& state, std::size_t bytes)
{
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

// ---- events

// Counts, and touches nothing of the texts unless asked to.
struct counting_handler : xml_handler {
    tally seen;
    bool looks_at_text = false;
    int onBeginNode(const share_str&, attributes& attrs) override
    {
        ++seen.elements;
        seen.attributes += attrs.count();
        for (unsigned i = 0; looks_at_text && i < attrs.count(); ++i)
            onText(attrs.get_attr(i)->get_value());
        return 0;
    }
    int onText(const share_str& text) override
    {
        if (looks_at_text)
            seen.add_text(text.c_str(), text.length());
        else
            seen.text += text.length();
        return 0;
    }
};

tally read_events(const std::string& text, bool looks_at_text)
{
    counting_handler handler;
    handler.looks_at_text = looks_at_text;
    xml_reader reader;
    reader.load_string(text.data(), text.data() + text.size(), false);
    if (reader.read_doc(&handler) < 0)
        handler.seen = tally();
    return handler.seen;
}

struct peer_events {
    tally seen;
    bool looks_at_text = false;
    void text(const char* p, std::size_t n)
    {
        if (looks_at_text)
            seen.add_text(p, n);
        else
            seen.text += n;
    }
};

void expat_start(void* user, const XML_Char*, const XML_Char** attrs)
{
    auto& events = *static_cast<peer_events*>(user);
    ++events.seen.elements;
    for (; *attrs; attrs += 2) {
        ++events.seen.attributes;
        if (events.looks_at_text)
            events.text(attrs[1], std::strlen(attrs[1]));
    }
}

void expat_end(void*, const XML_Char*) {}

void expat_text(void* user, const XML_Char* p, int n)
{
    static_cast<peer_events*>(user)->text(p, static_cast<std::size_t>(n));
}

tally expat_events(const std::string& text, bool looks_at_text)
{
    peer_events events;
    events.looks_at_text = looks_at_text;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &events);
    XML_SetElementHandler(parser, expat_start, expat_end);
    XML_SetCharacterDataHandler(parser, expat_text);
    if (XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) != XML_STATUS_OK)
        events.seen = tally();
    XML_ParserFree(parser);
    return events.seen;
}

void sax_start(void* user, const xmlChar*, const xmlChar*, const xmlChar*, int, const xmlChar**, int n, int,
               const xmlChar** attrs)
{
    auto& events = *static_cast<peer_events*>(user);
    ++events.seen.elements;
    events.seen.attributes += static_cast<std::size_t>(n);
    for (int i = 0; events.looks_at_text && i < n; ++i) {
        const xmlChar* const* const a = attrs + 5 * i;
        events.text(reinterpret_cast<const char*>(a[3]), static_cast<std::size_t>(a[4] - a[3]));
    }
}

void sax_text(void* user, const xmlChar* p, int n)
{
    static_cast<peer_events*>(user)->text(reinterpret_cast<const char*>(p), static_cast<std::size_t>(n));
}

tally sax2_events(const std::string& text, bool looks_at_text)
{
    peer_events events;
    events.looks_at_text = looks_at_text;
    xmlSAXHandler handler = {};
    handler.initialized = XML_SAX2_MAGIC;
    handler.startElementNs = sax_start;
    handler.characters = sax_text;
    handler.ignorableWhitespace = sax_text;
    handler.getEntity = [](void*, const xmlChar* name) { return xmlGetPredefinedEntity(name); };
    if (xmlSAXUserParseMemory(&handler, &events, text.data(), static_cast<int>(text.size())) != 0)
        events.seen = tally();
    return events.seen;
}

template <tally (*read)(const std::string&, bool), tally (*check)(const std::string&, bool)>
void events(benchmark::State& state)
{
    if (!agree(state, read(catalogue(), true), check(catalogue(), true)))
        return;
    for (auto _ : state)
        benchmark::DoNotOptimize(read(catalogue(), false));
    count_bytes(state, catalogue().size());
}

// ---- trees

tally read_tree(const std::string& text, bool looks)
{
    xml_reader reader;
    reader.load_string(text.data(), text.data() + text.size(), false);
    xml_doc doc;
    tally seen;
    if (doc.read(reader, false, false) < 0)
        return seen;
    seen.elements = 1;
    if (!looks)
        return seen;
    seen.elements = 0;
    for (xml_node* at = doc.get_doc_node(); at;) {
        if (at->get_type() == XML_ELEMENT) {
            ++seen.elements;
            seen.attributes += at->get_attrs().count();
            for (unsigned i = 0; i < at->get_attrs().count(); ++i) {
                const share_str& value = at->get_attrs().get_attr(i)->get_value();
                seen.add_text(value.c_str(), value.length());
            }
        } else {
            seen.add_text(at->get_name().c_str(), at->get_name().length());
        }
        xml_node* next = at->get_childs().ptr();
        while (!next && at && at != doc.get_doc_node()) {
            next = at->get_next();
            if (!next)
                at = at->get_parent();
        }
        at = next;
    }
    return seen;
}

struct pugi_counter : pugi::xml_tree_walker {
    tally seen;
    bool for_each(pugi::xml_node& node) override
    {
        if (node.type() == pugi::node_element)
            ++seen.elements;
        for (const auto& a : node.attributes()) {
            ++seen.attributes;
            seen.add_text(a.value(), std::strlen(a.value()));
        }
        seen.add_text(node.value(), std::strlen(node.value()));
        return true;
    }
};

tally pugixml_tree(const std::string& text, bool looks)
{
    pugi::xml_document doc;
    pugi_counter counter;
    if (!doc.load_buffer(text.data(), text.size()))
        return counter.seen;
    if (looks)
        doc.traverse(counter);
    else
        counter.seen.elements = 1;
    return counter.seen;
}

struct tiny_counter : tinyxml2::XMLVisitor {
    tally seen;
    bool VisitEnter(const tinyxml2::XMLElement&, const tinyxml2::XMLAttribute* a) override
    {
        ++seen.elements;
        for (; a; a = a->Next()) {
            ++seen.attributes;
            seen.add_text(a->Value(), std::strlen(a->Value()));
        }
        return true;
    }
    bool Visit(const tinyxml2::XMLText& text) override
    {
        seen.add_text(text.Value(), std::strlen(text.Value()));
        return true;
    }
};

tally tinyxml2_tree(const std::string& text, bool looks)
{
    tinyxml2::XMLDocument doc;
    tiny_counter counter;
    if (doc.Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS)
        return counter.seen;
    if (looks)
        doc.Accept(&counter);
    else
        counter.seen.elements = 1;
    return counter.seen;
}

void count_libxml2(const xmlNode* node, tally& seen)
{
    for (; node; node = node->next) {
        if (node->type == XML_ELEMENT_NODE) {
            ++seen.elements;
            for (const xmlAttr* a = node->properties; a; a = a->next) {
                ++seen.attributes;
                const auto* value = reinterpret_cast<const char*>(a->children->content);
                seen.add_text(value, std::strlen(value));
            }
        } else if (node->content) {
            const auto* value = reinterpret_cast<const char*>(node->content);
            seen.add_text(value, std::strlen(value));
        }
        count_libxml2(node->children, seen);
    }
}

tally libxml2_tree(const std::string& text, bool looks)
{
    tally seen;
    xmlDoc* const doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                                      XML_PARSE_NOBLANKS | XML_PARSE_NOENT);
    if (!doc)
        return seen;
    if (looks)
        count_libxml2(doc->children, seen);
    else
        seen.elements = 1;
    xmlFreeDoc(doc);
    return seen;
}

// ---- look-ups

void lookup_ours(benchmark::State& state, const char* format)
{
    xml_doc doc;
    xml_reader reader;
    reader.load_string(settings().c_str());
    doc.read(reader, false, false);
    const std::vector<std::string> paths = paths_of_settings(format);
    std::size_t length = 0;
    for (auto _ : state) {
        for (const std::string& path : paths) {
            share_str value;
            if (doc.all()->get_value(path.c_str(), value) < 0)
                state.SkipWithError("a path was not found");
            length += value.length();
        }
    }
    benchmark::DoNotOptimize(length);
}

void lookup_pugixml(benchmark::State& state, const char* format, bool by_query)
{
    pugi::xml_document doc;
    doc.load_string(settings().c_str());
    xml_doc own;
    xml_reader reader;
    reader.load_string(settings().c_str());
    own.read(reader, false, false);
    const std::vector<std::string> paths = paths_of_settings(format);
    for (const std::string& path : paths) {
        const std::string ours = own.all()->get_value(path.c_str()).c_str();
        const std::string theirs = by_query ? doc.select_node(path.c_str()).attribute().value()
                                            : doc.first_element_by_path(path.c_str()).child_value();
        if (ours.empty() || ours != theirs)
            return state.SkipWithError("the two sides found different values");
    }
    std::size_t length = 0;
    for (auto _ : state) {
        for (const std::string& path : paths)
            length += std::strlen(by_query ? doc.select_node(path.c_str()).attribute().value()
                                           : doc.first_element_by_path(path.c_str()).child_value());
    }
    benchmark::DoNotOptimize(length);
}

// ---- writing

// Takes what is written and forgets it.
struct counting_buffer : std::streambuf {
    std::size_t size = 0;
    int overflow(int c) override
    {
        ++size;
        return c;
    }
    std::streamsize xsputn(const char*, std::streamsize n) override
    {
        size += static_cast<std::size_t>(n);
        return n;
    }
};

struct pugi_sink : pugi::xml_writer {
    std::size_t size = 0;
    void write(const void*, std::size_t n) override { size += n; }
};

void write_ours(benchmark::State& state)
{
    xml_doc doc;
    xml_reader reader;
    reader.load_string(catalogue().c_str());
    doc.read(reader, false, false);
    std::ostringstream text;
    doc.write(text, true);
    if (!agree(state, read_tree(text.str(), true), read_tree(catalogue(), true)))
        return;
    for (auto _ : state) {
        counting_buffer buffer;
        std::ostream to(&buffer);
        doc.write(to, true);
        benchmark::DoNotOptimize(buffer.size);
    }
    count_bytes(state, text.str().size());
}

void write_pugixml(benchmark::State& state)
{
    pugi::xml_document doc;
    doc.load_string(catalogue().c_str());
    std::ostringstream text;
    doc.save(text, "   ");
    if (!agree(state, read_tree(text.str(), true), read_tree(catalogue(), true)))
        return;
    for (auto _ : state) {
        pugi_sink sink;
        doc.save(sink, "   ", pugi::format_default | pugi::format_no_declaration);
        benchmark::DoNotOptimize(sink.size);
    }
    count_bytes(state, text.str().size());
}

// ---- cost by size

std::string many_attributes(unsigned n)
{
    std::string s = "<a";
    for (unsigned i = 0; i < n; ++i)
        s += " n" + std::to_string(i) + "=\"value " + std::to_string(i) + "\"";
    return s + "/>";
}

std::string many_children(unsigned n)
{
    std::string s = "<a>";
    for (unsigned i = 0; i < n; ++i)
        s += "<b>text</b>\n";
    return s + "</a>";
}

std::string one_huge_text(unsigned n)
{
    std::string s = "<a>";
    for (unsigned i = 0; i < n; ++i)
        s += i % 16 ? "some text of no particular length\n" : "and an &amp; between\n";
    return s + "</a>";
}

std::string deep_nesting(unsigned n)
{
    std::string s;
    for (unsigned i = 0; i < n; ++i)
        s += "<level>";
    for (unsigned i = 0; i < n; ++i)
        s += "</level>";
    return s;
}

void cost(benchmark::State& state, std::string (*make)(unsigned), unsigned n, unsigned times)
{
    const std::string text = make(n / times);
    if (read_tree(text, false).elements != 1)
        return state.SkipWithError("the text was not read");
    for (auto _ : state) {
        for (unsigned i = 0; i < times; ++i)
            benchmark::DoNotOptimize(read_tree(text, false));
    }
    count_bytes(state, text.size() * times);
}

#define COST(name, make, n)                                                                                \
    BENCHMARK_CAPTURE(cost, name, make, n, 1)->Name("xml_linear/" #name "/ours");                           \
    BENCHMARK_CAPTURE(cost, name##_parts, make, n, 16)->Name("xml_linear/" #name "/16_parts")

} // namespace

BENCHMARK(events<read_events, expat_events>)->Name("xml/events/ours");
BENCHMARK(events<expat_events, read_events>)->Name("xml/events/expat");
BENCHMARK(events<sax2_events, read_events>)->Name("xml/events/libxml2_sax2");
BENCHMARK(events<read_tree, pugixml_tree>)->Name("xml/tree/ours");
BENCHMARK(events<pugixml_tree, read_tree>)->Name("xml/tree/pugixml");
BENCHMARK(events<tinyxml2_tree, read_tree>)->Name("xml/tree/tinyxml2");
BENCHMARK(events<libxml2_tree, read_tree>)->Name("xml/tree/libxml2");
BENCHMARK_CAPTURE(lookup_ours, names, "/config/group%d/entry%d")->Name("xml/lookup/ours");
BENCHMARK_CAPTURE(lookup_pugixml, names, "/config/group%d/entry%d", false)->Name("xml/lookup/pugixml");
BENCHMARK_CAPTURE(lookup_ours, query, "/config/group%d/entry%d/@id")->Name("xml/lookup_attribute/ours");
BENCHMARK_CAPTURE(lookup_pugixml, query, "/config/group%d/entry%d/@id", true)->Name("xml/lookup_attribute/pugixml");
BENCHMARK(write_ours)->Name("xml/write/ours");
BENCHMARK(write_pugixml)->Name("xml/write/pugixml");
COST(many_attributes, many_attributes, 16000);
COST(many_children, many_children, 16000);
COST(one_huge_text, one_huge_text, 16000);
COST(deep_nesting, deep_nesting, 100000);
