// INI: events lie inside the text and in order; a document holds what was reported;
// what is written and comes back is written the same again.
#include <stdkro/ini_doc.h>
#include <stdkro/xcpt.h>

#include "require.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>

namespace {

class event_checker : public ini_handler {
public:
    event_checker(const char* begin, const char* end) : at_(begin), end_(end) {}

    int onBegin() override { return 0; }
    int onEnd(int result) override { return result; }
    int onError(int code, const char* message) override
    {
        CHECK(code == err::syntax && *message);
        return code;
    }
    int onSection(const char* begin, const char* end) override
    {
        CHECK(begin < end);
        follow(begin, end);
        has_section = true;
        ++sections;
        return 0;
    }
    int onKeyValue(const char* key, const char* key_end, const char* value, const char* value_end) override
    {
        CHECK(key < key_end);
        follow(key, key_end);
        follow(value, value_end);
        if (!has_section)
            ++sections;
        has_section = true;
        ++pairs;
        return 0;
    }
    int onComment(const char* begin, const char* end) override
    {
        follow(begin, end);
        return 0;
    }

    unsigned sections = 0;
    unsigned pairs = 0;
    bool has_section = false;

private:
    void follow(const char* begin, const char* end)
    {
        CHECK(at_ <= begin && begin <= end && end <= end_);
        at_ = end;
    }

    const char* at_;
    const char* end_;
};

std::string written(const ini_doc& doc)
{
    std::ostringstream out;
    CHECK(doc.write(out) == 0);
    return out.str();
}

int read(ini_doc& doc, const char* begin, const char* end)
{
    ini_reader in;
    CHECK(in.load_string(begin, end, false) == 0);
    return doc.read(in);
}

void change(ini_doc& doc)
{
    if (doc.get_section_count() == 0)
        return;
    ini_section& first = *doc.get_section(0);
    if (first.find_attr("name of nobody"))
        return;
    const unsigned before = first.count();
    first.write("name of nobody", 1);
    CHECK(first.count() == before + 1 && first.read("name of nobody", 0) == 1);
    first.get_attr(before)->set_name("another");
    CHECK(!first.find_attr("name of nobody"));
    first.remove_attr(0);
    const ini_doc copy(doc);
    doc.remove_section(0);
    CHECK(copy.get_section_count() == doc.get_section_count() + 1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A block of its own size: what reads behind it is found.
    const std::unique_ptr<char[]> text(new char[size + 1]);
    const char* const begin = text.get() + 1;
    if (size)
        std::memcpy(text.get() + 1, data, size);

    ini_reader in;
    CHECK(in.load_string(begin, begin + size, false) == 0);
    event_checker checker(begin, begin + size);
    const int r = in.read_ini(&checker);

    ini_doc doc;
    CHECK(read(doc, begin, begin + size) == r);
    unsigned pairs = 0;
    for (const ini_section* section : doc.get_sections()) {
        for (unsigned i = 0; i < section->count(); ++i) {
            const share_str& name = (*section)[i].get_name();
            const int found = section->find_attr(0, name.c_str());
            // No look-up reaches a name with a NUL inside.
            if (std::strlen(name.c_str()) == name.length())
                CHECK(found >= 0 && found <= static_cast<int>(i));
        }
        pairs += section->count();
    }
    CHECK(pairs == checker.pairs && doc.get_section_count() == checker.sections);

    const std::string once = written(doc);
    ini_doc back;
    if (read(back, once.data(), once.data() + once.size()) >= 0)
        CHECK(written(back) == once || std::memchr(begin, 0, size));
    change(doc);
    written(doc);
    return 0;
}
