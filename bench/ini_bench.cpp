// INI against inih (events), GLib's key file and SimpleIni (documents).
#include <stdkro/ini_doc.h>

#include "growth.h"
#include "ini_peer_inih.h"

#define SI_NO_CONVERSION
#include <SimpleIni.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

using std::string;

const int sections = 400;
const int keys = 20;

string section_name(int i) { return "section-" + std::to_string(i * 7919 % 100003); }

// A settings file of `count` sections.
string make_text(int count)
{
    static const char* const names[] = { "address", "port", "log_level", "max_connections", "timeout_ms" };
    static const char* const values[]
        = { "192.168.1.20", "8080", "info", "/var/lib/service/data/current", "value with several words" };
    string text;
    for (int s = 0; s < count; ++s) {
        text += "[" + section_name(s) + "]\n";
        for (int k = 0; k < keys; ++k)
            text += string(names[k % 5]) + std::to_string(k) + "=" + values[(s + k) % 5] + "\n";
    }
    return text;
}

const string& text()
{
    static const string made = make_text(sections);
    return made;
}

void expect(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "ini_bench: %s differs\n", what);
    std::exit(1);
}

// Counts what inih's handler counts.
class byte_counter : public ini_handler {
public:
    int onBegin() override { return 0; }
    int onEnd(int result) override { return result; }
    int onSection(const char*, const char*) override { return 0; }
    int onKeyValue(const char* key, const char* key_end, const char* value, const char* value_end) override
    {
        bytes += static_cast<unsigned long>(key_end - key + (value_end - value));
        return 0;
    }

    unsigned long bytes = 0;
};

unsigned long our_events(const string& from)
{
    ini_reader in;
    in.load_string(from.data(), from.data() + from.size(), false);
    byte_counter counter;
    return in.read_ini(&counter) == 0 ? counter.bytes : 0;
}

int our_read(ini_doc& doc, const string& from)
{
    ini_reader in;
    in.load_string(from.data(), from.data() + from.size(), false);
    return doc.read(in);
}

struct glib_document {
    explicit glib_document(const string& from) : file(g_key_file_new())
    {
        g_key_file_load_from_data(file, from.data(), from.size(), G_KEY_FILE_NONE, nullptr);
    }
    glib_document(const glib_document&) = delete;
    glib_document& operator=(const glib_document&) = delete;
    ~glib_document() { g_key_file_free(file); }

    GKeyFile* file;
};

void set_bytes(benchmark::State& state, const string& from)
{
    state.SetBytesProcessed(state.iterations() * static_cast<long>(from.size()));
}

void events_ours(benchmark::State& state)
{
    expect(our_events(text()) == inih_events(text().c_str()), "inih's events");
    for (auto _ : state)
        benchmark::DoNotOptimize(our_events(text()));
    set_bytes(state, text());
}
BENCHMARK(events_ours)->Name("ini/events/ours");

void events_inih(benchmark::State& state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(inih_events(text().c_str()));
    set_bytes(state, text());
}
BENCHMARK(events_inih)->Name("ini/events/inih");

void read_ours(benchmark::State& state)
{
    const glib_document glib(text());
    CSimpleIniCaseA simple;
    simple.LoadData(text());
    ini_doc doc;
    expect(our_read(doc, text()) == 0, "the read document");
    for (unsigned s = 0; s < doc.get_section_count(); ++s) {
        const ini_section& section = *doc.get_section(s);
        for (unsigned k = 0; k < section.count(); ++k) {
            const char* const name = section[k].get_name().c_str();
            char* const theirs = g_key_file_get_value(glib.file, section.get_name().c_str(), name, nullptr);
            expect(theirs && section[k].get_value() == theirs, "GLib's value");
            g_free(theirs);
            const char* const simples = simple.GetValue(section.get_name().c_str(), name);
            expect(simples && section[k].get_value() == simples, "SimpleIni's value");
        }
    }
    for (auto _ : state) {
        ini_doc made;
        our_read(made, text());
        benchmark::DoNotOptimize(made.get_section_count());
    }
    set_bytes(state, text());
}
BENCHMARK(read_ours)->Name("ini/read/ours");

void read_glib(benchmark::State& state)
{
    for (auto _ : state) {
        const glib_document made(text());
        benchmark::DoNotOptimize(made.file);
    }
    set_bytes(state, text());
}
BENCHMARK(read_glib)->Name("ini/read/glib");

void read_simpleini(benchmark::State& state)
{
    for (auto _ : state) {
        CSimpleIniCaseA made;
        made.LoadData(text());
        benchmark::DoNotOptimize(made.GetSectionSize(""));
    }
    set_bytes(state, text());
}
BENCHMARK(read_simpleini)->Name("ini/read/simpleini");

// A value in each of the 400 sections.
const std::vector<string>& asked_sections()
{
    static const std::vector<string> names = [] {
        std::vector<string> made;
        for (int s = 0; s < sections; ++s)
            made.push_back(section_name(s * 37 % sections));
        return made;
    }();
    return names;
}

void lookup_ours(benchmark::State& state)
{
    ini_doc doc;
    our_read(doc, text());
    for (auto _ : state)
        for (const string& name : asked_sections())
            benchmark::DoNotOptimize(doc.find_section(name.c_str())->find_attr("port6")->get_value().c_str());
}
BENCHMARK(lookup_ours)->Name("ini/look-up/ours");

void lookup_glib(benchmark::State& state)
{
    const glib_document doc(text());
    for (auto _ : state)
        for (const string& name : asked_sections()) {
            char* const value = g_key_file_get_value(doc.file, name.c_str(), "port6", nullptr);
            benchmark::DoNotOptimize(value);
            g_free(value);
        }
}
BENCHMARK(lookup_glib)->Name("ini/look-up/glib");

void lookup_simpleini(benchmark::State& state)
{
    CSimpleIniCaseA doc;
    doc.LoadData(text());
    for (auto _ : state)
        for (const string& name : asked_sections())
            benchmark::DoNotOptimize(doc.GetValue(name.c_str(), "port6"));
}
BENCHMARK(lookup_simpleini)->Name("ini/look-up/simpleini");

void write_ours(benchmark::State& state)
{
    ini_doc doc;
    our_read(doc, text());
    std::ostringstream once;
    doc.write(once);
    expect(once.str() == text(), "the written document");
    for (auto _ : state) {
        std::ostringstream out;
        doc.write(out);
        benchmark::DoNotOptimize(out.str().size());
    }
    set_bytes(state, text());
}
BENCHMARK(write_ours)->Name("ini/write/ours");

void write_glib(benchmark::State& state)
{
    const glib_document doc(text());
    for (auto _ : state) {
        gsize size = 0;
        char* const out = g_key_file_to_data(doc.file, &size, nullptr);
        benchmark::DoNotOptimize(size);
        g_free(out);
    }
    set_bytes(state, text());
}
BENCHMARK(write_glib)->Name("ini/write/glib");

void write_simpleini(benchmark::State& state)
{
    CSimpleIniCaseA doc;
    doc.LoadData(text());
    doc.SetSpaces(false);
    for (auto _ : state) {
        string out;
        doc.Save(out);
        benchmark::DoNotOptimize(out.size());
    }
    set_bytes(state, text());
}
BENCHMARK(write_simpleini)->Name("ini/write/simpleini");

// Freed memory stays with the program: what the kernel takes for giving pages anew
// would be counted against whoever runs after a large document was destroyed.
const bool allocator_settled = mallopt(M_TRIM_THRESHOLD, 1 << 30) && mallopt(M_MMAP_THRESHOLD, 1 << 30);

// ---- growth: one document of 16 times the size against 16 of one time ---------

const growth_shape shapes[] = {
    { "many sections", make_text },
    { "sections of one name", [](int size) { return repeated("[s]\nk=v\n", size * 20); } },
    { "many pairs", [](int size) {
          string made = "[s]\n";
          for (int i = 0; i < size * 20; ++i)
              made += "name" + std::to_string(i) + "=value\n";
          return made;
      } },
    { "one long value", [](int size) { return "[s]\nk=" + string(static_cast<std::size_t>(size) * 500, 'v') + "\n"; } },
    { "comments", [](int size) { return repeated("; a comment of some length\n", size * 20); } },
};

void read_documents(benchmark::State& state, const string& from, int count)
{
    for (auto _ : state)
        for (int i = 0; i < count; ++i) {
            ini_doc made;
            our_read(made, from);
            if (made.get_section_count())
                benchmark::DoNotOptimize(made.find_section(0, "none"));
        }
}

const bool shapes_registered = [] {
    register_growth("ini", shapes, "", read_documents);
    return true;
}();

} // namespace
