// Numbered messages from language files.
#include <stdkro/logger.h>

#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include "logger_map.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

const char configuration[] = "/etc/quorval/tolmek/tolmek.conf";

const logit default_message = { lv_debug, "error happen" };

logit* make_entries(unsigned count) { return static_cast<logit*>(std::calloc(std::size_t { count } + 1, sizeof(logit))); }

char* copy_of(const char* text)
{
    const std::size_t size = std::strlen(text) + 1;
    char* const made = static_cast<char*>(std::malloc(size));
    return made ? static_cast<char*>(std::memcpy(made, text, size)) : nullptr;
}

unsigned count_children(const xml_node& node)
{
    unsigned count = 0;
    for (xml_node_iter i = node.get_childs(); !i.IsDone(); ++i)
        ++count;
    return count;
}

const xml_node* find_system(const xml_node* root)
{
    if (!root || root->get_name() == "system")
        return root;
    return root->find_first(XML_ELEMENT, "system");
}

} // namespace

const logit& log_table::get_default() { return default_message; }

log_table::log_table() : entries_(nullptr), default_(default_message), count_(0), language_(chinese)
{
    read_conf_lang(configuration);
}

log_table::log_table(const log_table& other)
    : entries_(nullptr), default_(other.default_), count_(0), language_(other.language_)
{
    if (other.count_ == 0)
        return;
    entries_ = make_entries(other.count_);
    if (!entries_)
        throw xcpt(err::out_of_memory, get_err_info(err::out_of_memory));
    count_ = other.count_;
    for (unsigned i = 1; i <= count_; ++i) {
        const logit& from = other.entries_[i];
        entries_[i] = { from.level, from.fmt ? copy_of(from.fmt) : nullptr };
        if (from.fmt && !entries_[i].fmt) {
            clear();
            throw xcpt(err::out_of_memory, get_err_info(err::out_of_memory));
        }
    }
}

log_table& log_table::operator=(const log_table& other)
{
    log_table copy(other);
    swap(copy);
    return *this;
}

log_table::~log_table() { clear(); }

void log_table::swap(log_table& other)
{
    std::swap(entries_, other.entries_);
    std::swap(default_, other.default_);
    std::swap(count_, other.count_);
    std::swap(language_, other.language_);
}

bool log_table::read_conf_lang(const char* path)
{
    xml_doc doc;
    if (doc.read(path, false, false) < 0)
        return false;
    const xml_node* const system = find_system(doc.get_doc_node());
    if (!system)
        return false;
    share_str value = system->get_attrs().read("language", "");
    if (const xml_node* const element = system->find_first(XML_ELEMENT, "language"))
        element->kroGetValue(value);
    language_ = value == "1" ? english : chinese;
    return true;
}

int log_table::read(xml_node& node)
{
    if (!node.get_attrs().find_attr("language"))
        return read_language(node);
    const char* const wanted = language_ == english ? "english" : "chinese";
    for (xml_node* lang = node.find_first(XML_ELEMENT, "lang"); lang; lang = lang->find_next(XML_ELEMENT, "lang"))
        if (lang->get_attrs().read("langid", "") == wanted)
            return read_language(*lang);
    return err::syntax;
}

int log_table::read_language(xml_node& node)
{
    if (!node.get_attrs().find_attr("langid"))
        return err::syntax;
    clear();
    const unsigned children = count_children(node);
    if (children == 0)
        return err::syntax;
    entries_ = make_entries(children);
    if (!entries_)
        return err::out_of_memory;
    count_ = children;
    unsigned number = 1;
    for (const xml_node* log = node.find_first(XML_ELEMENT, "log"); log; log = log->find_next(XML_ELEMENT, "log")) {
        const int r = read_message(log->get_attrs(), number);
        if (r < 0)
            return r;
        ++number;
    }
    return err::ok;
}

int log_table::read_message(const attributes& from, unsigned number)
{
    const err_level level = read_level(from.read("type", "").c_str());
    const share_str text = from.read("fmt", "");
    if (from.find_attr("id") && from.read("id", -1) != static_cast<int>(number))
        return err::syntax;
    if (text.isempty() || level == lv_none)
        return err::syntax;
    // A text that would have printf write to memory acts as one that is not there.
    const bool is_usable = !writes_to_memory(text.c_str());
    entries_[number] = { level, is_usable ? copy_of(text.c_str()) : nullptr };
    return is_usable && !entries_[number].fmt ? err::out_of_memory : err::ok;
}

// KEEP: the bound is the number of children, so message N of N is out of reach: files
// end in a child that is no message.
const logit& log_table::operator[](unsigned code) const
{
    return code == 0 || code >= count_ || !entries_[code].fmt ? default_ : entries_[code];
}

void log_table::clear()
{
    for (unsigned i = 1; i <= count_; ++i)
        std::free(const_cast<char*>(entries_[i].fmt));
    std::free(entries_);
    entries_ = nullptr;
    count_ = 0;
}
