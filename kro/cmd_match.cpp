// kro match: which texts a pattern accepts.
#include "commands.h"
#include "patterns.h"
#include "progress.h"

#include <stdkro/xcpt.h>

#include <cstdio>

namespace {

int match_all(const arguments& words)
{
    rnfa pattern;
    add_whole_rule(pattern, words[0], 0);
    bool all = true;
    progress work("matching");
    for (std::size_t i = 1; i < words.size(); ++i) {
        work.reached(i - 1, words.size() - 1);
        const bool accepted = pattern.match(words[i].data(), words[i].data() + words[i].size());
        before_output();
        std::printf("%-3s  %s\n", accepted ? "yes" : "no", words[i].c_str());
        all = all && accepted;
    }
    return all ? exit_success : exit_failure;
}

} // namespace

int match_command(const command_words& words)
{
    try {
        return match_all(words.operands);
    } catch (const xcpt& e) {
        return report_error(e.get_err(), e.what());
    }
}
