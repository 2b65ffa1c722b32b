// One route: a script with a procedure "page", compiled once and again when its file changes.
#pragma once
#include "http_request.h"
#include "journal.h"
#include <stdkro/xpp.h>
#include <ostream>

class page : private std::streambuf {
public:
    const share_str file, methods;
    packet out; // what the script wrote

    /// `route`: "FILE METHOD, METHOD..." as the section [routes] has it; GET and HEAD when there are none.
    page(std::string_view route, const settings& from, const journal& log)
        : file(from.file(text_of(take(route, ' ')))), methods(text_of(route.empty() ? "GET, HEAD" : route)),
          from_(from), log_(log) {
        static const char* const names[] = { "ini", "field", "escape", nullptr };
        static const method functions[] = { ini, field, escape };
        machine_.add_methods(names, functions);
        machine_.set_ostream(&stream_);
        stream_.exceptions(std::ios::badbit); // what xsputn throws reaches the script
    }
    bool allows(const share_str& verb) const {
        const std::string listed = std::string(" ") + methods.c_str() + ",";
        return listed.find(std::string(" ") + verb.c_str() + ",") != listed.npos;
    }
    /// Runs the script. False when it fails.
    bool render(const http_request& request) {
        base_var result;
        cycque<base_var> arguments;
        for (const share_str* given : { &request.method, &request.path, &request.query, &request.body })
            arguments.push_back(*given);
        out.reset();
        stream_.clear();
        return refresh() && (machine_.call("page", result, arguments) >= 0 || fail(machine_));
    }

private:
    bool refresh() {
        std::error_code none;
        const std::pair now(std::filesystem::last_write_time(file.c_str(), none),
                            std::filesystem::file_size(file.c_str(), none)); // times may be whole seconds
        if (now == seen_)
            return is_compiled_;
        seen_ = now;
        machine_.clear();
        machine_.get_field().add_object("settings", const_cast<settings*>(&from_));
        xpp::xcompiler compiler;
        if ((is_compiled_ = compiler.compile(machine_, file.c_str()) >= 0))
            log_.write(msg_compiled, file.c_str());
        else if (seen_.second != ~0ull && compiler.get_last_error().get_err() == err::file_system)
            seen_.second = ~1ull; // it is there and may be readable soon
        return is_compiled_ || fail(compiler);
    }
    // What scripts can call beside the functions that every script has.
    static const char* argument(const cycque<base_var>& args, unsigned i) {
        if (i >= args.count() || !args[i].is_string())
            throw xrterror(err::invalid_parameter, "argument %u must be a text", i + 1);
        return args[i].get_string().c_str();
    }
    /// ini(section, name): a value of the server's INI file, "" where there is none.
    static int ini(einterpret& self, base_var& result, cycque<base_var>& args) {
        void* from = nullptr;
        static_cast<xpp::xmachine&>(self).get_field().get_object("settings", &from);
        result = static_cast<const settings*>(from)->text(argument(args, 0), argument(args, 1));
        return 0;
    }
    /// field(form, name): a field of a query or of a form in a body, "" where there is none.
    static int field(einterpret&, base_var& result, cycque<base_var>& args) {
        share_str name, value;
        for (std::string_view form = argument(args, 0); !form.empty() && name != argument(args, 1);) {
            std::string_view pair = take(form, '&');
            if (!decode(take(pair, '='), ' ', name) || !decode(pair, ' ', value))
                name.clear();
        }
        result = name == argument(args, 1) ? value : "";
        return 0;
    }
    /// escape(text): the text as HTML shows it.
    static int escape(einterpret&, base_var& result, cycque<base_var>& args) {
        share_str made;
        for (const char* p = argument(args, 0); *p; ++p) {
            share_str shown = *p;
            for (const char* special : { "&&amp;", "<&lt;", ">&gt;", "\"&quot;", "'&#39;" })
                shown = *p == *special ? special + 1 : shown;
            made += shown;
        }
        result = made;
        return 0;
    }
    // Logs the last error of a compiler or a machine.
    template <class kind> bool fail(const kind& of) const {
        const share_str line = share_str::print_str("%d", of.get_last_line());
        const xrterror& e = of.get_last_error();
        log_.write(msg_failed, file.c_str(), line.c_str(), e.what(), get_err_info(e.get_err()));
        return false;
    }
    // What the script writes, up to a limit beyond which it fails.
    std::streamsize xsputn(const char* bytes, std::streamsize n) override {
        const unsigned room = unsigned(from_.page) - out.count();
        if (unsigned(n) > room || (n > 0 && out.write(bytes, unsigned(n)) == 0))
            throw xrterror(err::overrun, "the page is too long");
        return n;
    }
    int overflow(int c) override { return xsputn(std::string(1, char(c)).c_str(), 1) == 1 ? 0 : -1; }
    const settings& from_;
    xpp::xmachine machine_;
    const journal& log_;
    std::ostream stream_ { this };
    std::pair<std::filesystem::file_time_type, std::uintmax_t> seen_ { {}, ~1ull }; // a size that no file has
    bool is_compiled_ = false;
};
