// kro scan: a file, cut into the longest pieces that a rule accepts.
//
// The file is read through a window of fixed size. Nothing is kept of a piece but
// where it begins: it is printed by reading it once more, so its length does not
// matter, nor how far the automaton looked ahead for a longer one.
#include "commands.h"
#include "patterns.h"
#include "progress.h"

#include <stdkro/xcpt.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <vector>

namespace {

using offset = std::streamoff;

/// A file that is read forwards, with steps back.
class window {
public:
    explicit window(const std::string& path) : in_(path, std::ios::binary), chunk_(1 << 16)
    {
        if (!in_)
            throw xrterror(err::file_system, "cannot read '%s'", path.c_str());
        whole_ = in_.seekg(0, std::ios::end).tellg();
        if (whole_ < 0)
            throw xrterror(err::file_system, "'%s' cannot be read twice: scan wants a file, not a pipe", path.c_str());
    }

    /// The size of the file as it was opened.
    offset whole() const { return whole_; }

    /// The bytes at hand from `at` on; their number, 0 at the end of the file.
    std::size_t look(offset at, const char*& bytes)
    {
        if (at < begin_ || at >= begin_ + static_cast<offset>(size_))
            load(at);
        const auto skipped = static_cast<std::size_t>(at - begin_);
        bytes = chunk_.data() + skipped;
        return size_ - skipped;
    }

private:
    void load(offset at)
    {
        in_.clear();
        in_.seekg(at);
        in_.read(chunk_.data(), static_cast<std::streamsize>(chunk_.size()));
        begin_ = at;
        size_ = static_cast<std::size_t>(in_.gcount());
        if (in_.bad())
            throw xrterror(err::file_system, "the file cannot be read on");
    }

    std::ifstream in_;
    std::vector<char> chunk_;
    offset whole_ = 0;
    offset begin_ = 0;
    std::size_t size_ = 0;
};

/// A stretch of the file that one rule accepts, or that none does.
struct piece {
    offset begin;
    offset end;
    int rule; // -1 for none
};

class scanner {
public:
    scanner(const rdfa& rules, window& file, progress& work) : rules_(rules), file_(file), work_(work) {}

    /// Prints all pieces; whether every one had a rule.
    bool run();

private:
    bool is_end(offset at)
    {
        const char* bytes;
        return file_.look(at, bytes) == 0;
    }
    piece longest(offset at);
    piece next(offset at);
    void print(const piece& p);
    void advance(char c);

    const rdfa& rules_;
    window& file_;
    progress& work_;
    unsigned long line_ = 1;
    unsigned long column_ = 1;
};

/// The longest piece at `at` that a rule accepts; no rule if there is none.
piece scanner::longest(offset at)
{
    piece best = { at, at, -1 };
    short state = 0;
    offset p = at;
    const char* bytes;
    for (std::size_t n = file_.look(p, bytes); n > 0; n = file_.look(p, bytes)) {
        for (const char* end = bytes + n; bytes != end; ++bytes) {
            state = rules_.get_state(state, static_cast<unsigned char>(*bytes));
            if (state < 0)
                return best;
            ++p;
            if (rules_.get_accept(state) >= 0)
                best = { at, p, rules_.get_accept(state) };
        }
    }
    return best;
}

/// The next piece; what no rule accepts goes on up to where one does.
piece scanner::next(offset at)
{
    piece found = longest(at);
    if (found.rule >= 0)
        return found;
    for (found.end = at + 1; !is_end(found.end) && longest(found.end).rule < 0;)
        ++found.end;
    return found;
}

void scanner::advance(char c)
{
    if (c == '\n') {
        ++line_;
        column_ = 1;
    } else {
        ++column_;
    }
}

void scanner::print(const piece& p)
{
    before_output();
    if (p.rule >= 0)
        std::printf("%lu:%lu %d ", line_, column_, p.rule);
    else
        std::printf("%lu:%lu error ", line_, column_);
    for (offset at = p.begin; at < p.end;) {
        const char* bytes;
        auto n = static_cast<offset>(file_.look(at, bytes));
        if (n == 0)
            break; // the file became shorter
        n = n < p.end - at ? n : p.end - at;
        const std::string text = visible(bytes, static_cast<std::size_t>(n));
        std::fwrite(text.data(), 1, text.size(), stdout);
        for (offset i = 0; i < n; ++i)
            advance(bytes[i]);
        at += n;
    }
    std::putchar('\n');
}

bool scanner::run()
{
    bool all = true;
    for (offset at = 0; !is_end(at);) {
        if (file_.whole() > 0)
            work_.reached(static_cast<std::uint64_t>(at), static_cast<std::uint64_t>(file_.whole()));
        const piece p = next(at);
        print(p);
        all = all && p.rule >= 0;
        at = p.end;
    }
    return all;
}

/// Adds the rule of a line, "NUMBER PATTERN" from `first` on; `place` is the line's for messages.
void add_line(rnfa& all, const std::string& line, std::size_t first, const std::string& place)
{
    char* end;
    const long rule = std::strtol(line.c_str() + first, &end, 10);
    const std::size_t pattern = line.find_first_not_of(" \t\r", static_cast<std::size_t>(end - line.c_str()));
    if (end == line.c_str() + first || (*end != ' ' && *end != '\t') || pattern == std::string::npos)
        throw xrterror(err::syntax, "%s: a rule is a number and a pattern", place.c_str());
    if (rule < 0 || rule > 32767)
        throw xrterror(err::syntax, "%s: the number of a rule is 0 to 32767", place.c_str());
    try {
        add_rule(all, line.substr(pattern), static_cast<short>(rule));
    } catch (const xcpt& e) {
        throw xrterror(e.get_err(), "%s: %s", place.c_str(), e.what());
    }
}

/// Reads lines "NUMBER PATTERN", with a remark behind a blank; empty ones and those
/// that begin with "#" are skipped.
void read_rules(const std::string& path, rdfa& rules)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw xrterror(err::file_system, "cannot read '%s'", path.c_str());
    rnfa all;
    unsigned long number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first != std::string::npos && line[first] != '#')
            add_line(all, line, first, path + ":" + std::to_string(number));
    }
    if (in.bad())
        throw xrterror(err::file_system, "cannot read '%s'", path.c_str());
    if (all.start() < 0)
        throw xrterror(err::syntax, "%s: no rules", path.c_str());
    build(rules, all);
}

} // namespace

int scan_command(const command_words& words)
{
    try {
        rdfa rules;
        read_rules(words.operands[0], rules);
        window file(words.operands[1]);
        progress work("scanning " + words.operands[1]);
        return scanner(rules, file, work).run() ? exit_success : exit_failure;
    } catch (const xcpt& e) {
        std::fflush(stdout);
        return report_error(e.get_err(), e.what());
    }
}
