// Command records: what is read is written, and what is written with a whole header
// or with none reads back the same.
#include <stdkro/mml_doc.h>
#include <stdkro/xcpt.h>

#include "require.h"

#include <cstdint>
#include <cstring>
#include <string>

namespace {

bool is_same(const mml_doc& a, const mml_doc& b)
{
    bool same = a.get_interface() == b.get_interface() && a.get_method() == b.get_method() && a.count() == b.count();
    for (unsigned i = 0; same && i < a.count(); ++i)
        same = a[i].get_name() == b[i].get_name() && a[i].get_value() == b[i].get_value();
    return same;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string line(reinterpret_cast<const char*>(data), size);
    mml_doc doc;
    const int r = doc.read(line.c_str());
    CHECK(r == 0 || r == err::syntax);
    CHECK(r != 0 || doc.count() > 0);

    share_str out;
    CHECK(doc.write(out) == 0);
    const bool whole_header = doc.get_interface().isempty() == doc.get_method().isempty();
    mml_doc back;
    const int again = back.read(out.c_str());
    CHECK((again == 0) == (doc.count() > 0));
    if (again == 0 && whole_header)
        CHECK(is_same(doc, back));
    share_str twice;
    CHECK(back.write(twice) == 0);
    if (again == 0 && whole_header)
        CHECK(out == twice);
    const mml_doc copy(doc);
    CHECK(is_same(copy, doc));
    return 0;
}
