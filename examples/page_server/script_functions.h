// What pages can call beside the functions that every script has.
#pragma once
#include "http_request.h"
#include "settings.h"
#include <stdkro/xpp.h>

inline const share_str& text_of(const cycque<base_var>& args, unsigned i)
{
    if (i >= args.count() || !args[i].is_string())
        throw xrterror(err::invalid_parameter, "argument %u must be a text", i + 1);
    return args[i].get_string();
}

/// ini(section, name): a value of the server's INI file, "" where there is none.
inline int ini(einterpret& machine, base_var& result, cycque<base_var>& args)
{
    void* found = nullptr;
    static_cast<xpp::xmachine&>(machine).get_field().get_object("settings", &found);
    result = static_cast<const settings*>(found)->text(text_of(args, 0).c_str(), text_of(args, 1).c_str());
    return 0;
}

/// field(form, name): a field of a query or of a form in a body, "" where there is none.
inline int field(einterpret&, base_var& result, cycque<base_var>& args)
{
    share_str name, value;
    for (const char* p = text_of(args, 0).c_str(); *p && name != text_of(args, 1); p += *p == '&') {
        const char* const end = p + std::strcspn(p, "&");
        const char* const equal = std::find(p, end, '=');
        name.clear(), value.clear();
        if (!append_decoded(name, p, equal, ' ') || !append_decoded(value, std::min(equal + 1, end), end, ' '))
            name.clear();
        p = end;
    }
    result = name == text_of(args, 1) ? value : share_str();
    return 0;
}

/// escape(text): the text as HTML shows it.
inline int escape(einterpret&, base_var& result, cycque<base_var>& args)
{
    share_str made;
    for (const char* p = text_of(args, 0).c_str(); *p; ++p) {
        share_str shown = *p;
        for (const char* special : { "&&amp;", "<&lt;", ">&gt;", "\"&quot;", "'&#39;" })
            shown = *p == *special ? special + 1 : shown;
        made += shown;
    }
    result = made;
    return 0;
}

inline void add_script_functions(xpp::xmachine& machine, const settings& from)
{
    static const char* const names[] = { "ini", "field", "escape", nullptr };
    static const method functions[] = { ini, field, escape };
    machine.add_methods(names, functions);
    machine.get_field().add_object("settings", const_cast<settings*>(&from));
}
