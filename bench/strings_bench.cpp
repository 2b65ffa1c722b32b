// Strings beside std::string and GLib, base64 beside GLib, hexadecimal beside the
// plain table loop that a program would write.
#include <stdkro/share_str.h>
#include <stdkro/str.h>

#include <benchmark/benchmark.h>
#include <glib.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using state = benchmark::State;

// Both sides must give the same, or there is nothing to compare.
void require(bool same, const char* what)
{
    if (same)
        return;
    std::fprintf(stderr, "%s: the sides differ\n", what);
    std::abort();
}

std::size_t size_of(const state& s) { return static_cast<std::size_t>(s.range(0)); }

// ---- copying: 256 copies of a text of 40 characters are made, and freed ----------

constexpr std::size_t copies = 256;
const char copied_text[] = "a text of forty characters, give or take";

template <class STRING> void copy_objects(state& s)
{
    const STRING text(copied_text);
    std::allocator<STRING> room;
    STRING* const many = room.allocate(copies);
    for (auto _ : s) {
        std::uninitialized_fill_n(many, copies, text);
        benchmark::DoNotOptimize(many);
        benchmark::ClobberMemory();
        std::destroy_n(many, copies);
    }
    room.deallocate(many, copies);
}

void copy_glib(state& s)
{
    char* const text = g_ref_string_new(copied_text);
    require(share_str(copied_text) == text, "copy");
    for (auto _ : s) {
        char* many[copies];
        for (char*& one : many)
            one = g_ref_string_acquire(text);
        benchmark::DoNotOptimize(many);
        benchmark::ClobberMemory();
        for (char* one : many)
            g_ref_string_release(one);
    }
    g_ref_string_release(text);
}

BENCHMARK(copy_objects<share_str>)->Name("strings/copy/ours");
BENCHMARK(copy_objects<std::string>)->Name("strings/copy/std-string");
BENCHMARK(copy_glib)->Name("strings/copy/GRefString");

// ---- appending -------------------------------------------------------------------------

void append_char_ours(state& s)
{
    for (auto _ : s) {
        share_str text;
        for (std::size_t i = size_of(s); i; --i)
            text += static_cast<char>('a' + i % 16);
        benchmark::DoNotOptimize(text.c_str());
    }
}

void append_char_std(state& s)
{
    for (auto _ : s) {
        std::string text;
        for (std::size_t i = size_of(s); i; --i)
            text += static_cast<char>('a' + i % 16);
        benchmark::DoNotOptimize(text.c_str());
    }
}

void append_char_glib(state& s)
{
    for (auto _ : s) {
        GString* const text = g_string_new(nullptr);
        for (std::size_t i = size_of(s); i; --i)
            g_string_append_c(text, static_cast<char>('a' + i % 16));
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
}

#define SIZES ->Arg(100)->Arg(10000)->Arg(1000000)
BENCHMARK(append_char_ours)->Name("strings/append by character/ours") SIZES;
BENCHMARK(append_char_std)->Name("strings/append by character/std-string") SIZES;
BENCHMARK(append_char_glib)->Name("strings/append by character/GString") SIZES;

const char* const words[] = { "the", "strings", "of", "a", "library", "are", "shared", "until", "written", "to" };
constexpr std::size_t word_count = sizeof words / sizeof words[0];

void append_word_ours(state& s)
{
    for (auto _ : s) {
        share_str text;
        for (std::size_t i = 0; i < size_of(s); ++i)
            text += words[i % word_count];
        benchmark::DoNotOptimize(text.c_str());
    }
}

void append_word_std(state& s)
{
    share_str ours;
    std::string theirs;
    for (const char* word : words)
        ours += word, theirs += word;
    require(ours == theirs.c_str(), "append");
    for (auto _ : s) {
        std::string text;
        for (std::size_t i = 0; i < size_of(s); ++i)
            text += words[i % word_count];
        benchmark::DoNotOptimize(text.c_str());
    }
}

void append_word_glib(state& s)
{
    for (auto _ : s) {
        GString* const text = g_string_new(nullptr);
        for (std::size_t i = 0; i < size_of(s); ++i)
            g_string_append(text, words[i % word_count]);
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
}

BENCHMARK(append_word_ours)->Name("strings/append by word/ours") SIZES;
BENCHMARK(append_word_std)->Name("strings/append by word/std-string") SIZES;
BENCHMARK(append_word_glib)->Name("strings/append by word/GString") SIZES;

// ---- inserting and removing in the middle -------------------------------------------------

constexpr unsigned inserted = 10;
const char inserted_text[] = "0123456789";

void edit_ours(state& s)
{
    const std::string start(size_of(s), 'x');
    share_str text(start.c_str());
    const unsigned middle = text.length() / 2;
    for (auto _ : s) {
        text.insert(middle, inserted_text, inserted);
        text.remove(middle, inserted);
        benchmark::DoNotOptimize(text.c_str());
    }
    require(text == start.c_str(), "insert and remove");
}

void edit_std(state& s)
{
    const std::string start(size_of(s), 'x');
    std::string text(start);
    const std::size_t middle = text.size() / 2;
    for (auto _ : s) {
        text.insert(middle, inserted_text, inserted);
        text.erase(middle, inserted);
        benchmark::DoNotOptimize(text.c_str());
    }
    require(text == start, "insert and remove");
}

void edit_glib(state& s)
{
    const std::string start(size_of(s), 'x');
    GString* const text = g_string_new(start.c_str());
    const auto middle = static_cast<gssize>(text->len / 2);
    for (auto _ : s) {
        g_string_insert_len(text, middle, inserted_text, inserted);
        g_string_erase(text, middle, inserted);
        benchmark::DoNotOptimize(text->str);
    }
    require(start == text->str, "insert and remove");
    g_string_free(text, TRUE);
}

BENCHMARK(edit_ours)->Name("strings/insert and remove/ours")->Arg(1000);
BENCHMARK(edit_std)->Name("strings/insert and remove/std-string")->Arg(1000);
BENCHMARK(edit_glib)->Name("strings/insert and remove/GString")->Arg(1000);

// ---- base64 and hexadecimal ------------------------------------------------------------------

constexpr unsigned block = 30000;

std::vector<unsigned char> sample()
{
    std::vector<unsigned char> data(block);
    unsigned seed = 1;
    for (unsigned char& byte : data) {
        seed = seed * 1664525u + 1013904223u;
        byte = static_cast<unsigned char>(seed >> 24);
    }
    return data;
}

std::string base64_of(const std::vector<unsigned char>& data)
{
    std::string text(block / 3 * 4, '\0');
    str::write_base64(&text[0], static_cast<unsigned>(text.size()), data.data(), block);
    return text;
}

void base64_encode_ours(state& s)
{
    const std::vector<unsigned char> data = sample();
    std::vector<char> text(block / 3 * 4);
    for (auto _ : s) {
        str::write_base64(text.data(), static_cast<unsigned>(text.size()), data.data(), block);
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
}

void base64_encode_glib(state& s)
{
    const std::vector<unsigned char> data = sample();
    std::vector<char> text(block / 3 * 4 + 16);
    for (auto _ : s) {
        int bits = 0;
        int save = 0;
        const gsize n = g_base64_encode_step(data.data(), block, FALSE, text.data(), &bits, &save);
        g_base64_encode_close(FALSE, text.data() + n, &bits, &save);
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
    require(base64_of(data) == std::string(text.data(), block / 3 * 4), "base64 encode");
}

void base64_decode_ours(state& s)
{
    const std::string text = base64_of(sample());
    std::vector<unsigned char> data(block);
    for (auto _ : s) {
        str::read_base64(data.data(), block, text.c_str(), nullptr);
        benchmark::DoNotOptimize(data.data());
        benchmark::ClobberMemory();
    }
    require(data == sample(), "base64 decode");
}

void base64_decode_glib(state& s)
{
    const std::string text = base64_of(sample());
    std::vector<unsigned char> data(block + 3);
    for (auto _ : s) {
        int bits = 0;
        unsigned save = 0;
        g_base64_decode_step(text.data(), text.size(), data.data(), &bits, &save);
        benchmark::DoNotOptimize(data.data());
        benchmark::ClobberMemory();
    }
    data.resize(block);
    require(data == sample(), "base64 decode");
}

BENCHMARK(base64_encode_ours)->Name("base64/encode/ours");
BENCHMARK(base64_encode_glib)->Name("base64/encode/GLib");
BENCHMARK(base64_decode_ours)->Name("base64/decode/ours");
BENCHMARK(base64_decode_glib)->Name("base64/decode/GLib");

std::string hex_of(const std::vector<unsigned char>& data)
{
    std::string text(2 * block, '\0');
    str::write_hex(&text[0], 2 * block, data.data(), block);
    return text;
}

void hex_encode_ours(state& s)
{
    const std::vector<unsigned char> data = sample();
    std::vector<char> text(2 * block);
    for (auto _ : s) {
        str::write_hex(text.data(), 2 * block, data.data(), block);
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
}

void hex_encode_loop(state& s)
{
    static const char digits[] = "0123456789ABCDEF";
    const std::vector<unsigned char> data = sample();
    std::vector<char> text(2 * block);
    for (auto _ : s) {
        char* to = text.data();
        for (const unsigned char byte : data) {
            *to++ = digits[byte >> 4];
            *to++ = digits[byte & 15];
        }
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
    require(hex_of(data) == std::string(text.data(), text.size()), "hex encode");
}

void hex_decode_ours(state& s)
{
    const std::string text = hex_of(sample());
    std::vector<unsigned char> data(block);
    for (auto _ : s) {
        str::read_hex(data.data(), block, text.c_str(), nullptr);
        benchmark::DoNotOptimize(data.data());
        benchmark::ClobberMemory();
    }
    require(data == sample(), "hex decode");
}

// As strict as ours: every character is looked at, and the first that is no digit ends it.
void hex_decode_loop(state& s)
{
    signed char values[256];
    for (int c = 0; c < 256; ++c)
        values[c] = static_cast<signed char>(g_ascii_xdigit_value(static_cast<char>(c)));
    const std::string text = hex_of(sample());
    std::vector<unsigned char> data(block);
    for (auto _ : s) {
        const char* from = text.c_str();
        for (unsigned char& byte : data) {
            const int high = values[static_cast<unsigned char>(from[0])];
            if (high < 0)
                break;
            const int low = values[static_cast<unsigned char>(from[1])];
            if (low < 0)
                break;
            byte = static_cast<unsigned char>(high << 4 | low);
            from += 2;
        }
        benchmark::DoNotOptimize(data.data());
        benchmark::ClobberMemory();
    }
    require(data == sample(), "hex decode");
}

BENCHMARK(hex_encode_ours)->Name("hex/encode/ours");
BENCHMARK(hex_encode_loop)->Name("hex/encode/table loop");
BENCHMARK(hex_decode_ours)->Name("hex/decode/ours");
BENCHMARK(hex_decode_loop)->Name("hex/decode/table loop");

} // namespace
