// What the commands that read patterns have in common.
#ifndef STDKRO_KRO_PATTERNS_H
#define STDKRO_KRO_PATTERNS_H

#include <stdkro/rdfa.h>

#include <cstddef>
#include <string>

/// Adds one rule to `all`. The pattern begins at `text` and ends at the first blank;
/// returns what stands behind it. Throws `xrterror` for a pattern that is wrong, and
/// `xcpt` for one that is too large.
std::string add_rule(rnfa& all, const std::string& text, short rule);

/// The same for a word that is a pattern as a whole.
void add_whole_rule(rnfa& all, const std::string& pattern, short rule);

/// Turns the rules into a table. Throws `xrterror`.
void build(rdfa& out, const rnfa& nfa);

/// Bytes as the notation writes them: control characters and backslashes escaped.
std::string visible(const char* text, std::size_t size);

#endif
