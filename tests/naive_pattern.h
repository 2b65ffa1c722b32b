// An independent answer for tests of patterns: a syntax tree that is matched by its
// definition, without states. It finds for each node and each begin the set of ends
// of what the node matches; texts are short enough for a set in one number.
#ifndef STDKRO_TESTS_NAIVE_PATTERN_H
#define STDKRO_TESTS_NAIVE_PATTERN_H

#include <stdkro/rnfa.h>

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace naive {

constexpr unsigned longest_text = 63;

struct tree : rparser::rbase {
    enum kind_t { nothing, bytes, sequence, choice, star, plus, option };

    kind_t kind = nothing; // `nothing` matches the empty text
    std::bitset<256> set;
    const tree* left = nullptr;
    const tree* right = nullptr;
};

/// Bit e of entry b says that the text [b, e) is matched.
using spans = std::array<std::uint64_t, longest_text + 1>;

inline std::uint64_t bit(unsigned i) { return std::uint64_t { 1 } << i; }

inline spans join(const spans& left, const spans& right, unsigned n)
{
    spans all {};
    for (unsigned b = 0; b <= n; ++b) {
        for (unsigned m = b; m <= n; ++m) {
            if (left[b] & bit(m))
                all[b] |= right[m];
        }
    }
    return all;
}

inline spans repeat(const spans& body, unsigned n)
{
    spans all {};
    for (unsigned b = n + 1; b-- > 0;) {
        all[b] = bit(b);
        for (unsigned m = b + 1; m <= n; ++m) {
            if (body[b] & bit(m))
                all[b] |= all[m];
        }
    }
    return all;
}

inline spans find(const tree& t, const std::string& text)
{
    const auto n = static_cast<unsigned>(text.size());
    spans all {};
    switch (t.kind) {
    case tree::nothing:
        for (unsigned b = 0; b <= n; ++b)
            all[b] = bit(b);
        return all;
    case tree::bytes:
        for (unsigned b = 0; b < n; ++b) {
            if (t.set[static_cast<unsigned char>(text[b])])
                all[b] = bit(b + 1);
        }
        return all;
    case tree::sequence:
        return join(find(*t.left, text), find(*t.right, text), n);
    case tree::choice: {
        all = find(*t.left, text);
        const spans other = find(*t.right, text);
        for (unsigned b = 0; b <= n; ++b)
            all[b] |= other[b];
        return all;
    }
    case tree::star:
        return repeat(find(*t.left, text), n);
    case tree::plus: {
        const spans body = find(*t.left, text);
        return join(body, repeat(body, n), n);
    }
    default:
        all = find(*t.left, text);
        for (unsigned b = 0; b <= n; ++b)
            all[b] |= bit(b);
        return all;
    }
}

/// Whether the whole text, of at most `longest_text` bytes, is matched.
inline bool matches(const tree& t, const std::string& text)
{
    return (find(t, text)[0] & bit(static_cast<unsigned>(text.size()))) != 0;
}

/// Owns the nodes of trees.
class grove {
public:
    tree* make(tree::kind_t kind, const tree* left = nullptr, const tree* right = nullptr)
    {
        trees_.emplace_back(new tree);
        tree* t = trees_.back().get();
        t->kind = kind;
        t->left = left;
        t->right = right;
        return t;
    }
    tree* byte(unsigned char b)
    {
        tree* t = make(tree::bytes);
        t->set.set(b);
        return t;
    }
    void clear() { trees_.clear(); }

private:
    std::vector<std::unique_ptr<tree>> trees_;
};

/// Makes trees of patterns, by the parser's callbacks.
class parser : public rparser {
public:
    /// The tree of a pattern, valid until the next call; null when there is none.
    const tree* parse(const char* pattern)
    {
        grove_.clear();
        rbase* t = nullptr;
        expr(&t, pattern);
        return static_cast<tree*>(t);
    }

protected:
    rbase* onID(const char* name, unsigned length) override
    {
        static const char* const members[] = { ":digit:012345678", ":xdigit:012345678abcdeABCDE",
                                               ":letter:abcdefghijklmnopqrstuvwxyABCDEFGHIJKLMNOPQRSTUVWXY",
                                               ":whitespace: \n\t\r" };
        for (const std::string m : members) {
            const std::size_t colon = m.find(':', 1);
            if (m.substr(0, colon + 1) == std::string(name, length)) {
                tree* t = grove_.make(tree::bytes);
                for (const char c : m.substr(colon + 1))
                    t->set.set(static_cast<unsigned char>(c));
                return t;
            }
        }
        return nullptr;
    }
    rbase* onAtom(unsigned char b) override { return grove_.byte(b); }
    rbase* onSet(const unsigned char* set) override
    {
        tree* t = grove_.make(tree::bytes);
        for (unsigned i = 0; i < 256; ++i)
            t->set[i] = set[i] != 0;
        if (t->set.none())
            t->kind = tree::nothing;
        return t;
    }
    rbase* onRep(rbase* body, int op) override
    {
        if (!body)
            return nullptr;
        return grove_.make(op == '*' ? tree::star : op == '+' ? tree::plus : tree::option, static_cast<tree*>(body));
    }
    rbase* onCat(rbase* left, rbase* right) override { return both(tree::sequence, left, right); }
    rbase* onOR(rbase* left, rbase* right) override { return both(tree::choice, left, right); }
    rbase* onConnect(rbase* previous, unsigned char b) override
    {
        tree* t = grove_.byte(b);
        return previous ? grove_.make(tree::sequence, static_cast<tree*>(previous), t) : t;
    }
    rbase* onEndRule(rbase* whole) override { return whole; }
    void doRevoke(rbase*) override {}

private:
    rbase* both(tree::kind_t kind, rbase* left, rbase* right)
    {
        if (!left || !right)
            return nullptr;
        return grove_.make(kind, static_cast<tree*>(left), static_cast<tree*>(right));
    }

    grove grove_;
};

} // namespace naive

#endif
