// One route: a script with a procedure "page", compiled once and again when its file changes.
#pragma once
#include "journal.h"
#include "script_functions.h"
#include <memory>
#include <ostream>

/// What a script writes, up to a limit beyond which the script fails.
struct page_buffer : std::streambuf {
    std::streamsize xsputn(const char* bytes, std::streamsize n) override {
        if (unsigned(n) > limit - text.count() || (n > 0 && text.write(bytes, unsigned(n)) == 0))
            throw xrterror(err::overrun, "the page is too long");
        return n;
    }
    int overflow(int c) override { return xsputn(std::string(1, char(c)).c_str(), 1) == 1 ? 0 : -1; }
    packet text;
    unsigned limit = 0;
};

class page {
public:
    share_str file, methods;
    page_buffer output;

    /// `line`: "FILE METHOD, METHOD..." as the section [routes] has it; GET and HEAD when there are none.
    page(const std::string& line, const settings& from, const journal& log) : from_(from), log_(log) {
        const std::size_t blank = line.find(' ');
        file = from.file(line.substr(0, blank).c_str());
        methods = blank == line.npos ? "GET, HEAD" : line.c_str() + blank + 1;
        output.limit = unsigned(from.page);
        stream_.exceptions(std::ios::badbit); // what the buffer throws reaches the script
    }
    bool allows(const share_str& word) const {
        return (std::string(", ") + methods.c_str() + ",").find(std::string(" ") + word.c_str() + ",") != std::string::npos;
    }
    /// Runs the script: 200, or 500. What it wrote stays in `output.text` until the next call.
    int render(const http_request& request) {
        base_var result;
        cycque<base_var> arguments;
        for (const share_str* text : { &request.method, &request.path, &request.query, &request.body })
            arguments.push_back(*text);
        output.text.reset();
        stream_.clear();
        if (!refresh())
            return 500;
        if (machine_->call("page", result, arguments) >= 0)
            return 200;
        report(machine_->get_last_line(), machine_->get_last_error());
        return 500;
    }

private:
    bool refresh() {
        std::error_code failed;
        const auto changed = std::filesystem::last_write_time(file.c_str(), failed);
        const auto size = failed ? 0 : std::filesystem::file_size(file.c_str(), failed); // times may be whole seconds
        if (machine_ && changed == changed_ && size == size_)
            return is_compiled_;
        changed_ = changed;
        size_ = size;
        machine_ = std::make_unique<xpp::xmachine>();
        add_script_functions(*machine_, from_);
        machine_->set_ostream(&stream_);
        xpp::xcompiler compiler;
        is_compiled_ = compiler.compile(*machine_, file.c_str()) >= 0;
        is_compiled_ ? log_.write(msg_compiled, file) : report(compiler.get_last_line(), compiler.get_last_error());
        return is_compiled_;
    }
    void report(int line, const xrterror& e) const {
        log_.write(msg_script_error, file, share_str::print_str("%d", line), e.what(), get_err_info(e.get_err()));
    }
    const settings& from_;
    const journal& log_;
    std::unique_ptr<xpp::xmachine> machine_;
    std::ostream stream_ { &output };
    std::filesystem::file_time_type changed_;
    std::uintmax_t size_ = 0;
    bool is_compiled_ = false;
};
