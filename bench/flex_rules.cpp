// Writes a flex scanner of so many token rules. Flex prefers the first rule, so they
// stand in descending order; it returns the number of the rule.
#include "token_rules.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    const std::vector<token_rule> rules = token_rules(argc > 1 ? static_cast<unsigned>(std::atoi(argv[1])) : 8);
    std::printf("%%option noyywrap nounput noinput never-interactive\n%%%%\n");
    for (std::size_t i = rules.size(); i > 0; --i)
        std::printf("%s return %u;\n", rules[i - 1].theirs.c_str(), static_cast<unsigned>(i));
    std::printf("\\n ;\n%%%%\n");
    return 0;
}
