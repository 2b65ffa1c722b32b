#include "patterns.h"

#include "progress.h"

#include <stdkro/xcpt.h>

namespace {

bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

/// Reports that a pattern ends before the word or the argument does.
[[noreturn]] void ends_early(const std::string& rest)
{
    throw xrterror(err::syntax, "the pattern ends before '%s'; quote or escape what should not end it",
                   visible(rest.data(), rest.size()).c_str());
}

} // namespace

std::string add_rule(rnfa& all, const std::string& text, short rule)
{
    reader in;
    in.load_string(text.data(), text.data() + text.size(), false);
    rnfa one;
    rnfa_maker maker;
    const int r = maker.read_expr(one, in, rule);
    if (r < 0)
        throw xrterror(r, "%s", get_err_info(r));
    if (one.start() < 0)
        throw xrterror(err::syntax, "the pattern has no content: an empty string, or a set without end");
    const std::string rest(in.get_cur(), in.get_spare());
    if (!rest.empty() && !is_blank(in.get_cur()[-1]))
        ends_early(rest);
    if (all.start() < 0)
        all.swap(one);
    else
        all.connect_or(one);
    return rest;
}

void add_whole_rule(rnfa& all, const std::string& pattern, short rule)
{
    const std::string rest = add_rule(all, pattern, rule);
    if (!rest.empty())
        ends_early(rest);
}

void build(rdfa& out, const rnfa& nfa)
{
    const progress work("building the automaton");
    const int r = rdfa_maker().ntod(out, nfa);
    if (r < 0)
        throw xrterror(r, "%s", get_err_info(r));
}

std::string visible(const char* text, std::size_t size)
{
    static const struct {
        char byte;
        const char* written;
    } escapes[] = { { '\n', "\\n" }, { '\r', "\\r" }, { '\t', "\\t" }, { '\\', "\\\\" } };
    std::string written;
    for (const char* p = text; p != text + size; ++p) {
        const char* escape = nullptr;
        for (const auto& e : escapes)
            escape = e.byte == *p ? e.written : escape;
        if (escape)
            written += escape;
        else if (static_cast<unsigned char>(*p) < ' ' || *p == 127)
            written += '\\' + std::to_string(static_cast<unsigned char>(*p));
        else
            written += *p;
    }
    return written;
}
