// One route: a script with a procedure "page", compiled once and again when its file changes.
#pragma once
#include "http_request.h"
#include "journal.h"

#include <stdkro/xpp.h>
#include <filesystem>
#include <memory>
#include <ostream>

/// What a script writes, up to a limit beyond which the script fails.
struct page_buffer : std::streambuf {
    std::streamsize xsputn(const char* bytes, std::streamsize n) override;
    int overflow(int c) override;
    packet text;
    unsigned limit = 0;
};

class page {
public:
    /// `line`: "FILE [METHOD, METHOD...]" as the section [routes] has it; GET and HEAD when there are none.
    page(const share_str& line, const settings& from, const journal& log);
    /// Runs the script: 200, or 500. What it wrote stays in `output.text` until the next call.
    int render(const http_request& request);

    const settings& from;
    share_str file, methods;
    page_buffer output;

private:
    bool refresh();
    void report(int line, const xrterror& error) const;

    const journal& log_;
    std::unique_ptr<xpp::xmachine> machine_;
    std::ostream stream_ { &output };
    cycque<base_var> arguments_;
    std::filesystem::file_time_type changed_;
    std::uintmax_t size_ = 0;
    bool is_compiled_ = false;
};
