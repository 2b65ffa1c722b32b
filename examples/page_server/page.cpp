#include "page.h"

#include <algorithm>
#include <cstring>

static const share_str& text_of(const cycque<base_var>& args, unsigned i)
{
    if (i >= args.count() || !args[i].is_string())
        throw xrterror(err::invalid_parameter, "argument %u must be a text", i + 1);
    return args[i].get_string();
}

// ini(section, name): a value of the server's INI file, "" where there is none.
static int ini(einterpret& machine, base_var& result, cycque<base_var>& args)
{
    void* found = nullptr;
    static_cast<xpp::xmachine&>(machine).get_field().get_object("this page", &found);
    result = static_cast<page*>(found)->from.text(text_of(args, 0).c_str(), text_of(args, 1).c_str());
    return 0;
}

// field(form, name): a field of a query or of a form in a body, "" where there is none.
static int field(einterpret&, base_var& result, cycque<base_var>& args)
{
    result = "";
    for (const char* p = text_of(args, 0).c_str(); *p; p += *p == '&') {
        const char* const begin = p;
        p += std::strcspn(p, "&");
        const char* const equal = std::find(begin, p, '=');
        share_str name, value;
        if (!append_decoded(name, begin, equal, ' ') || name != text_of(args, 1))
            continue;
        if (equal != p && append_decoded(value, equal + 1, p, ' '))
            result = value;
        break;
    }
    return 0;
}

// escape(text): the text as HTML shows it.
static int escape(einterpret&, base_var& result, cycque<base_var>& args)
{
    static const char special[] = "&<>\"'";
    static const char* const shown[] = { "&amp;", "&lt;", "&gt;", "&quot;", "&#39;" };
    share_str made;
    for (const char* p = text_of(args, 0).c_str(); *p; ++p) {
        const char* const found = std::strchr(special, *p);
        found ? made += shown[found - special] : made += *p;
    }
    result = made;
    return 0;
}

std::streamsize page_buffer::xsputn(const char* bytes, std::streamsize n)
{
    if (static_cast<unsigned long long>(n) > limit - text.count() || (n > 0 && text.write(bytes, static_cast<unsigned>(n)) == 0))
        throw xrterror(err::overrun, "the page is too long");
    return n;
}

int page_buffer::overflow(int c)
{
    const char byte = static_cast<char>(c);
    return static_cast<int>(xsputn(&byte, 1));
}

page::page(const share_str& line, const settings& the_settings, const journal& log) : from(the_settings), log_(log)
{
    const char* const blank = line.c_str() + std::strcspn(line.c_str(), " \t");
    file = from.file(share_str(line.c_str(), blank));
    methods = *blank ? blank + std::strspn(blank, " \t") : "GET, HEAD";
    output.limit = static_cast<unsigned>(from.page);
    stream_.exceptions(std::ios::badbit); // what the buffer throws reaches the script
}

void page::report(int line, const xrterror& error) const
{
    log_.write(msg_script_error, file, share_str::print_str("%d", line), error.what(), get_err_info(error.get_err()));
}

bool page::refresh()
{
    std::error_code failed;
    const auto changed = std::filesystem::last_write_time(file.c_str(), failed);
    const auto size = failed ? 0 : std::filesystem::file_size(file.c_str(), failed);
    if (machine_ && changed == changed_ && size == size_)
        return is_compiled_;
    changed_ = changed;
    size_ = size;
    static const char* const names[] = { "ini", "field", "escape", nullptr };
    static const method functions[] = { ini, field, escape };
    machine_ = std::make_unique<xpp::xmachine>();
    machine_->add_methods(names, functions);
    machine_->get_field().add_object("this page", this);
    machine_->set_ostream(&stream_);
    xpp::xcompiler compiler;
    is_compiled_ = compiler.compile(*machine_, file.c_str()) >= 0;
    is_compiled_ ? log_.write(msg_compiled, file) : report(compiler.get_last_line(), compiler.get_last_error());
    return is_compiled_;
}

int page::render(const http_request& request)
{
    if (!refresh())
        return 500;
    output.text.reset();
    stream_.clear();
    arguments_.clear();
    for (const share_str* text : { &request.method, &request.path, &request.query, &request.body })
        arguments_.push_back(*text);
    base_var result;
    if (machine_->call("page", result, arguments_) >= 0)
        return 200;
    report(machine_->get_last_line(), machine_->get_last_error());
    return 500;
}
