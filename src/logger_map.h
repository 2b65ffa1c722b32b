// The override map of a context: the text of a format gives a template to use in its
// place.
#ifndef STDKRO_SRC_LOGGER_MAP_H
#define STDKRO_SRC_LOGGER_MAP_H

#include <stdkro/hmap.h>
#include <stdkro/logger.h>
#include <stdkro/share_str.h>

#include <cstring>

class xml_node;

/// The arguments that a printf format takes, as letters: one each, or two with a
/// length. Without memory of its own, so that nothing can make two formats look alike.
class format_arguments {
public:
    explicit format_arguments(const char* fmt) : letters_(), count_(0), is_known_(read(fmt)) {}

    /// False for a format with a conversion that is not known, such as "%n", or with
    /// very many.
    bool is_known() const { return is_known_; }
    bool operator==(const format_arguments& other) const { return std::strcmp(letters_, other.letters_) == 0; }

private:
    bool read(const char* fmt);
    const char* read_number(const char* p);
    void add(char letter);

    char letters_[64]; // ends in NULs; full when the last one is taken
    unsigned count_;
    bool is_known_;
};

/// Whether printf would write to memory for this format, as "%n" has it do.
bool writes_to_memory(const char* fmt);

class log_map {
public:
    /// Makes the map of the <log> children of `root`, which may be null. A status code; what was read
    /// before a failure stays in `map`.
    static int make(log_map*& map, const xml_node* root);

    /// A later entry of one name replaces an earlier one.
    void add(const share_str& name, err_level level, const share_str& value);
    /// The replacement of `fmt`, or null. Its text is null where only the level changes.
    const logit* find(const char* fmt);

private:
    struct entry {
        share_str value;
        logit replacement;
    };
    struct remembered {
        share_str text;
        const entry* found;
    };

    hmap<share_str, entry> entries_;
    // By the address of the format. The text is kept beside: an address may come to
    // hold another format.
    hmap<const void*, remembered> cache_;
};

#endif
