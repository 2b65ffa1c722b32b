// Reading XML.
//
//     document    := { text | element | comment | cdata | instruction }
//     element     := "<" name attributes ( "/>" | ">" content "</" name ">" )
//     content     := { text | element | comment | cdata | instruction }
//     attributes  := { blanks name blanks "=" blanks """ value """ } blanks
//     instruction := "<?" name attributes "?>"
//
// One loop reads the pieces, and a stack of levels stands for the elements that are
// open: nothing recurses. Failures are thrown inside and caught at the two doors,
// read_doc and read_node.
//
// Scanning goes by the table of xml_char.h, up to the next byte that matters; text
// without escapes is then copied straight from the source. Names are kept in a
// small table for the length of a read, so that equal names are one string.
#include <stdkro/xml_doc.h>

#include <stdkro/xcpt.h>

#include "attribute_builder.h"
#include "gbk_texts.h"
#include "xml_char.h"
#include "xml_node_memory.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <typeinfo>
#include <vector>

namespace {

constexpr unsigned name_limit = 127;

struct entity {
    const char* name;
    unsigned length;
    char character;
};

// Searched from the last row to the first.
constexpr entity entities[] = {
    { "lt", 2, '<' },
    { "gt", 2, '>' },
    { "amp", 3, '&' },
    { "apos", 4, '\'' },
    { "quot", 4, '"' },
};

constexpr char comment_open[] = "<!--";
constexpr char cdata_open[] = "<![CDATA[";

struct level {
    share_str name;
    void* para;
};

struct span {
    const char* begin;
    const char* end;
};

[[noreturn]] void fail_escape(span text)
{
    const long n = text.end - text.begin;
    throw xrterror(err::unexpected, "invalid escape character sequences: %.*s", static_cast<int>(n < 255 ? n : 255),
                   text.begin);
}

int digit_value(char c, int base)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (base == 16 && c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (base == 16 && c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// number := "#" ( ( "x" | "0" ) hexadecimal | decimal )
char decode_number(span text)
{
    const char* p = text.begin + 1;
    int base = 10;
    // KEEP: a leading zero means hexadecimal; documents written for it exist.
    if (p < text.end && (*p == 'x' || *p == '0')) {
        base = 16;
        ++p;
    }
    if (p == text.end)
        fail_escape(text);
    int value = 0;
    for (; p < text.end; ++p) {
        const int digit = digit_value(*p, base);
        if (digit < 0)
            fail_escape(text);
        if (value < 256)
            value = value * base + digit;
    }
    if (value > 255) {
        const long n = text.end - text.begin - 1;
        throw xrterror(err::overflow, "character value [%.*s] overflow, range [0, 256)",
                       static_cast<int>(n < 200 ? n : 200), text.begin + 1);
    }
    return static_cast<char>(value);
}

// The character that stands for what is between "&" and ";".
char decode(span text)
{
    if (text.begin < text.end && *text.begin == '#')
        return decode_number(text);
    const auto length = static_cast<std::size_t>(text.end - text.begin);
    for (const entity* e = std::end(entities); e-- != std::begin(entities);) {
        if (e->length == length && std::memcmp(e->name, text.begin, length) == 0)
            return e->character;
    }
    fail_escape(text);
}

// The names met in one read. A slot keeps the last name that fell into it, so a hostile
// document makes names be copied again, and never a search long.
//
// Documents repeat themselves: each slot remembers which name came after its own, and
// that one is tried first, without looking for the end of the name.
class name_table {
public:
    /// The name that is probably next, if it stands at `p`, which has room for more than
    /// the longest name that is guessed; `p` then moves behind it.
    const share_str* guess(const char*& p)
    {
        const unsigned char next = followers_[last_];
        const head& h = heads_[next];
        const std::uint64_t difference = ((xml_char::word_at<std::uint64_t>(p) ^ h.words[0]) & masks[h.length][0])
            | ((xml_char::word_at<std::uint64_t>(p + 8) ^ h.words[1]) & masks[h.length][1]);
        if (difference != 0 || h.length == 0 || xml_char::is(p[h.length], xml_char::name))
            return nullptr;
        last_ = next;
        p += h.length;
        return &slots_[next];
    }
    const share_str& intern(span text, attribute_builder& memory)
    {
        const unsigned char at = place(text);
        followers_[last_] = at;
        last_ = at;
        share_str& slot = slots_[at];
        const auto length = static_cast<unsigned>(text.end - text.begin);
        if (slot.length() != length || !xml_char::same(slot.c_str(), text.begin, length)) {
            slot = memory.text(text.begin, text.end);
            heads_[at] = head();
            if (length <= guessed_limit) {
                std::memcpy(heads_[at].words, text.begin, length);
                heads_[at].length = length;
            }
        }
        return slot;
    }

    /// Longer names are not guessed.
    static constexpr std::size_t guessed_limit = 16;

private:
    static constexpr unsigned slot_bits = 8;

    static unsigned char place(span text)
    {
        const std::uint32_t mark = xml_char::mark_of(text.begin, static_cast<std::size_t>(text.end - text.begin));
        return static_cast<unsigned char>((mark * 0x9E3779B1u) >> (32 - slot_bits));
    }

    // A name as two words; length 0 for none.
    struct head {
        std::uint64_t words[2] = { 0, 0 };
        std::size_t length = 0;
    };
    using word_pair = std::array<std::uint64_t, 2>;
    // By the length of a name: which bytes of its two words belong to it.
    static const std::array<word_pair, guessed_limit + 1> masks;
    static std::array<word_pair, guessed_limit + 1> make_masks()
    {
        std::array<word_pair, guessed_limit + 1> made {};
        for (std::size_t length = 0; length <= guessed_limit; ++length)
            std::memset(&made[length], 0xFF, length);
        return made;
    }

    unsigned char last_ = 0;
    std::array<head, 1u << slot_bits> heads_ {};
    std::array<unsigned char, 1u << slot_bits> followers_ {};
    std::array<share_str, 1u << slot_bits> slots_;
};

const std::array<name_table::word_pair, name_table::guessed_limit + 1> name_table::masks = name_table::make_masks();

} // namespace

// One read in progress. A handler may start another one on the same reader, which
// goes on from the position and hands it back.
struct xml_reader_state {
    explicit xml_reader_state(xml_reader& reader)
        : reader_(reader), outer_(reader.state_), outer_handler_(reader.handler_)
    {
        reader.state_ = this;
        resume();
    }
    ~xml_reader_state()
    {
        reader_.state_ = outer_;
        reader_.handler_ = outer_handler_;
    }
    xml_reader_state(const xml_reader_state&) = delete;
    xml_reader_state& operator=(const xml_reader_state&) = delete;

    int fail(int code, const char* message);
    bool print_path(char*& to, const char* end) const;
    level* around(std::size_t up);

    // Before and after the handler has the reader.
    void suspend() { reader_.set_cur(p_); }
    void resume()
    {
        p_ = reader_.get_cur();
        end_ = reader_.get_eof();
    }

    xml_reader& reader_;
    xml_reader_state* outer_;
    xml_handler* outer_handler_;
    const char* p_ = nullptr; // the position, while the handler does not have it
    const char* end_ = nullptr;
    // The outermost level is that of the document. Those that ended stay in the list, for
    // the next element there often has the same name.
    std::size_t depth_ = 0;
    std::vector<level> levels_;
    attribute_builder builder_;
};

namespace {

// Where the scanner's findings go: to a handler ...
class event_sink : protected xml_reader_state {
public:
    explicit event_sink(xml_reader& reader) : xml_reader_state(reader) {}

protected:
    static constexpr bool drops_blanks() { return false; }
    bool is_inside() const { return depth_ > 1; }
    const share_str& opened() const { return levels_[depth_ - 1].name; }

    void begin_read() { push(share_str()); }
    void begin_document() { tell(&xml_handler::onBeginDocument); }
    void end_document() { tell(&xml_handler::onEndDocument); }
    void open_element(const share_str& name)
    {
        push(name);
        attributes_.clear();
    }
    void begin_element() { tell(&xml_handler::onBeginNode, opened(), attributes_); }
    void end_element()
    {
        tell(&xml_handler::onEndNode, XML_ELEMENT);
        --depth_;
    }
    // The pairs stay in the list, from one element to the next, until they are swapped away.
    void pair(const share_str& name, span value)
    {
        const attribute* const read = builder_.append(attributes_, name, value.begin, value.end);
        tell(&xml_handler::onAttribute, read->get_name(), read->get_value());
    }
    void open_instruction(const share_str& name)
    {
        target_ = name;
        attributes_.clear();
    }
    void end_instruction() { tell(&xml_handler::onPI, target_, attributes_); }
    void text(span s) { tell(&xml_handler::onText, builder_.text(s.begin, s.end)); }
    void comment(span s) { tell(&xml_handler::onComment, builder_.text(s.begin, s.end)); }
    void cdata(span s) { tell(&xml_handler::onCDATA, builder_.text(s.begin, s.end)); }

private:
    void push(const share_str& name)
    {
        if (depth_ == levels_.size())
            levels_.push_back({ name, nullptr });
        else
            levels_[depth_].name = name;
        levels_[depth_++].para = nullptr;
    }

    // Calls the handler, which may move the reader, give it another text, or throw.
    template <class... Declared, class... Given>
    void tell(int (xml_handler::*event)(Declared...), Given&&... arguments)
    {
        struct loan {
            explicit loan(event_sink& s) : state(s) { state.suspend(); }
            ~loan() { state.resume(); }
            event_sink& state;
        };
        xml_handler* const handler = reader_.get_handler();
        if (!handler)
            return;
        int r = 0;
        {
            const loan lent(*this);
            r = (handler->*event)(arguments...);
        }
        if (r < 0)
            throw xcpt(r, "");
    }

    attributes attributes_;
    share_str target_;
};

} // namespace

// ... or, where that is an xml_node_handler and nothing derived from it, right into the
// tree that it would build.
class xml_tree_sink : protected xml_reader_state {
public:
    xml_tree_sink(xml_reader& reader, const xml_node_handler& handler)
        : xml_reader_state(reader), target_(handler.target_), keep_text_(handler.keep_text_),
          keep_comments_(handler.keep_comments_)
    {
    }
    ~xml_tree_sink() { delete pending_; }

protected:
    bool drops_blanks() const { return !keep_text_; }
    bool is_inside() const { return at_ != target_; }
    const share_str& opened() const { return at_->name_; }

    void begin_read() { at_ = target_; }
    void begin_document()
    {
        need_target();
        target_->clear();
    }
    void end_document() {}
    void open_element(const share_str& name) { pending_ = make(name, XML_ELEMENT); }
    void begin_element() { at_ = append_pending(); }
    // Out of a deep document the way leads through memory that was written long before.
    void end_element()
    {
        at_ = at_->parent_;
        xml_node_memory::fetch_before(at_);
    }
    void pair(const share_str& name, span value)
    {
        builder_.append(pending_->attrs_, name, value.begin, value.end);
    }
    void open_instruction(const share_str& name) { pending_ = make(name, XML_PI); }
    void end_instruction() { append_pending(); }
    void text(span s)
    {
        if (keep_text_ || s.begin != s.end)
            append(s, XML_TEXT);
    }
    void comment(span s)
    {
        if (keep_comments_)
            append(s, XML_COMMENT);
    }
    void cdata(span s) { append(s, XML_CDATA); }

private:
    xml_node* make(const share_str& name, xml_node_t kind)
    {
        xml_node* const made = xml_node_memory::make(&builder_.page(), name, kind);
        if (!made)
            throw std::bad_alloc();
        return made;
    }
    void append(span s, xml_node_t kind) { xml_node_memory::append(*at_, make(builder_.text(s.begin, s.end), kind)); }
    // An element or instruction belongs to the tree when its attributes are read.
    xml_node* append_pending()
    {
        need_target();
        xml_node* const made = pending_;
        xml_node_memory::append(*at_, made);
        pending_ = nullptr;
        return made;
    }
    void need_target() const
    {
        if (!target_)
            throw xcpt(err::not_initialized, "");
    }

    xml_node* target_;
    bool keep_text_;
    bool keep_comments_;
    xml_node* at_ = nullptr;
    xml_node* pending_ = nullptr;
};

namespace {

// Finds the pieces of the text and gives them to the sink.
template <class sink> class xml_scanner : public sink {
public:
    using sink::sink;
    using sink::fail;

    void read_document();
    void read_element();

private:
    using sink::builder_;
    using sink::end_;
    using sink::p_;
    using sink::reader_;

    // KEEP: a byte 255 is the end, as it is for everything that reads by `getch`.
    bool at_end() const { return p_ == end_ || *p_ == '\xff'; }
    bool at(char c) const { return p_ != end_ && *p_ == c; }
    bool at(const char* text, std::size_t n) const
    {
        return static_cast<std::size_t>(end_ - p_) >= n && std::memcmp(p_, text, n) == 0;
    }
    // With at least one byte behind it.
    bool starts_with(const share_str& text) const
    {
        const std::size_t n = text.length();
        return static_cast<std::size_t>(end_ - p_) > n && xml_char::same(p_, text.c_str(), n);
    }
    void count_line() { reader_.set_line(static_cast<int>(static_cast<unsigned>(reader_.get_line()) + 1)); }
    void expect(char c, int code, const char* message)
    {
        if (!at(c))
            throw xcpt(code, message);
        ++p_;
    }

    // What most bytes of a document go through is one function to the compiler: the
    // position then stays in a register.
    [[gnu::always_inline]] void skip_white();
    [[gnu::always_inline]] const share_str& name();
    [[gnu::noinline]] const share_str& new_name();
    [[gnu::always_inline]] void read_attributes();
    [[gnu::always_inline]] void start_tag();
    [[gnu::always_inline]] void end_tag();
    [[gnu::noinline]] void declaration();
    [[gnu::noinline]] void instruction();
    [[gnu::always_inline]] void text();
    [[gnu::always_inline]] void markup();
    void content(bool whole_document);
    [[gnu::always_inline]] span collect(unsigned char stop);
    [[gnu::noinline]] span decoded(unsigned char stop, const char* from);
    span raw(const char* opening, unsigned char stop, const char* closing, const char* message);
    char escape();

    bool has_root_ = false;
    name_table names_;
    std::vector<char> buffer_; // text with escapes, decoded
};

// ---- pieces of markup

template <class sink> inline void xml_scanner<sink>::skip_white()
{
    const char* p = p_;
    for (; p != end_ && xml_char::is(*p, xml_char::space); ++p) {
        if (*p == '\n')
            count_line();
    }
    p_ = p;
}

template <class sink> inline const share_str& xml_scanner<sink>::name()
{
    if (static_cast<std::size_t>(end_ - p_) > name_table::guessed_limit) {
        if (const share_str* const known = names_.guess(p_))
            return *known;
    }
    return new_name();
}

template <class sink> const share_str& xml_scanner<sink>::new_name()
{
    const char* const begin = p_;
    const char* const limit = end_ - begin > static_cast<std::ptrdiff_t>(name_limit) ? begin + name_limit : end_;
    const char* p = begin;
    while (p != limit && xml_char::is(*p, xml_char::name))
        ++p;
    p_ = p;
    if (p == begin)
        throw xcpt(err::failed, gbk::xml_name_bad);
    if (p == limit && p != end_ && xml_char::is(*p, xml_char::name))
        throw xcpt(err::overflow, gbk::xml_name_long);
    return names_.intern({ begin, p }, builder_);
}

// The character of an escape whose "&" is next.
template <class sink> char xml_scanner<sink>::escape()
{
    const char* const begin = ++p_;
    p_ = xml_char::find(begin, end_, xml_char::ends_escape);
    if (!at(';'))
        fail_escape({ begin, p_ });
    return decode({ begin, p_++ });
}

// Text up to a byte of the class `stop` other than a line feed in text and an escape.
// Decoded text stands in the buffer until the next call.
template <class sink> inline span xml_scanner<sink>::collect(unsigned char stop)
{
    const char* const from = p_;
    const char* p = from;
    for (;; ++p) {
        p = xml_char::find(p, end_, stop);
        if (p == end_ || *p != '\n' || stop == xml_char::ends_value)
            break;
        count_line();
    }
    p_ = p;
    return at('&') ? decoded(stop, from) : span { from, p };
}

// The same from an escape on; `from` is where the text began.
template <class sink> span xml_scanner<sink>::decoded(unsigned char stop, const char* from)
{
    buffer_.clear();
    for (;;) {
        if (at('&')) {
            buffer_.insert(buffer_.end(), from, p_);
            if (const char c = escape()) // character 0 is nothing
                buffer_.push_back(c);
            from = p_;
        } else if (at('\n') && stop == xml_char::ends_text) {
            count_line();
            ++p_;
        } else {
            break;
        }
        p_ = xml_char::find(p_, end_, stop);
    }
    buffer_.insert(buffer_.end(), from, p_);
    return { buffer_.data(), buffer_.data() + buffer_.size() };
}

// What stands between `opening`, which is next, and `closing`, three characters whose
// first is of class `stop`.
template <class sink>
span xml_scanner<sink>::raw(const char* opening, unsigned char stop, const char* closing, const char* message)
{
    p_ += std::strlen(opening);
    const char* const begin = p_;
    for (;;) {
        p_ = xml_char::find(p_, end_, stop);
        if (at_end())
            throw xcpt(err::abnormal_end, message);
        if (at(closing, 3))
            break;
        if (*p_ == '\n')
            count_line();
        ++p_;
    }
    p_ += 3;
    return { begin, p_ - 3 };
}

template <class sink> inline void xml_scanner<sink>::read_attributes()
{
    for (;;) {
        skip_white();
        if (p_ == end_ || !xml_char::is(*p_, xml_char::name))
            return;
        const share_str& key = name();
        skip_white();
        expect('=', err::syntax, gbk::xml_attribute_form);
        skip_white();
        expect('"', err::syntax, gbk::xml_attribute_form);
        const span value = collect(xml_char::ends_value);
        expect('"', err::syntax, gbk::xml_value_end);
        sink::pair(key, value);
    }
}

// ---- nodes

template <class sink> inline void xml_scanner<sink>::start_tag()
{
    if (!sink::is_inside() && has_root_)
        throw xcpt(err::overflow, gbk::xml_second_root);
    has_root_ = true;
    ++p_;
    sink::open_element(name());
    read_attributes();
    const bool is_empty = at('/');
    p_ += is_empty;
    expect('>', err::syntax, gbk::xml_node_end);
    sink::begin_element();
    if (is_empty)
        sink::end_element();
}

// KEEP: no blanks before the ">"; "</a >" is an error.
template <class sink> inline void xml_scanner<sink>::end_tag()
{
    if (!sink::is_inside())
        throw xcpt(err::abnormal_end, gbk::xml_end_tag_unmatched);
    p_ += 2;
    const share_str& opened = sink::opened();
    if (starts_with(opened) && p_[opened.length()] == '>') {
        p_ += opened.length() + 1;
    } else {
        const share_str& closed = name();
        expect('>', err::abnormal_end, gbk::xml_node_end);
        if (closed != opened)
            throw xrterror(err::unexpected, gbk::xml_tags_differ, opened.c_str(), closed.c_str());
    }
    sink::end_element();
}

template <class sink> void xml_scanner<sink>::instruction()
{
    p_ += 2;
    sink::open_instruction(name());
    read_attributes();
    if (!at("?>", 2))
        throw xcpt(err::syntax, gbk::xml_pi_end);
    p_ += 2;
    sink::end_instruction();
}

template <class sink> void xml_scanner<sink>::declaration()
{
    if (at(comment_open, sizeof comment_open - 1))
        sink::comment(raw(comment_open, xml_char::ends_comment, "-->", gbk::xml_comment_end));
    else if (at(cdata_open, sizeof cdata_open - 1))
        sink::cdata(raw(cdata_open, xml_char::ends_cdata, "]]>", gbk::xml_cdata_end));
    else
        throw xcpt(err::syntax, gbk::xml_node_type_unknown);
}

template <class sink> inline void xml_scanner<sink>::text()
{
    if (!sink::drops_blanks()) {
        sink::text(collect(xml_char::ends_text));
        return;
    }
    skip_white();
    if (at_end() || *p_ == '<')
        return;
    span run = collect(xml_char::ends_text);
    xml_char::trim(run.begin, run.end);
    sink::text(run);
}

template <class sink> inline void xml_scanner<sink>::markup()
{
    switch (p_ + 1 == end_ ? '\0' : p_[1]) {
    case '/': return end_tag();
    case '?': return instruction();
    case '!': return declaration();
    default: return start_tag();
    }
}

// Up to the end of the text, outside the root only, or the end of one element.
template <class sink> void xml_scanner<sink>::content(bool whole_document)
{
    while (whole_document || sink::is_inside()) {
        if (at_end()) {
            if (!sink::is_inside())
                return;
            throw xcpt(err::abnormal_end, gbk::xml_node_end);
        }
        if (*p_ == '<')
            markup();
        else
            text();
    }
}

// ---- the two doors

template <class sink> void xml_scanner<sink>::read_document()
{
    sink::begin_read();
    sink::begin_document();
    content(true);
    if (!has_root_)
        throw xcpt(err::overflow, gbk::xml_no_root);
    sink::end_document();
    sink::suspend();
}

template <class sink> void xml_scanner<sink>::read_element()
{
    sink::begin_read();
    if (!at('<'))
        throw xcpt(err::syntax, gbk::xml_node_begin);
    start_tag();
    content(false);
    sink::suspend();
}

// Reads with a scanner; any failure ends here, as a status code.
template <class scanner> int guarded(scanner& state, bool whole_document)
{
    try {
        if (whole_document)
            state.read_document();
        else
            state.read_element();
        return err::ok;
    } catch (const xcpt& e) {
        return state.fail(e.get_err(), e.what());
    } catch (const std::bad_alloc&) {
        return state.fail(err::out_of_memory, get_err_info(err::out_of_memory));
    }
}

} // namespace

// KEEP: the line of the error is made and kept, and printed nowhere: reporting is the
// business of the handler.
int xml_reader_state::fail(int code, const char* message)
{
    suspend();
    const char* const text = message ? message : "";
    std::snprintf(reader_.error_, sizeof reader_.error_, "line(%d): error(0x%08X): %s\n", reader_.get_line(),
                  static_cast<unsigned>(code), text);
    if (reader_.handler_)
        reader_.handler_->onError(code, text);
    return code;
}

// The names of the open elements, the outermost first, up to the first that does
// not fit. False when one did not.
bool xml_reader_state::print_path(char*& to, const char* end) const
{
    if (outer_ && !outer_->print_path(to, end))
        return false;
    for (std::size_t i = 1; i < depth_; ++i) {
        const share_str& name = levels_[i].name;
        const std::size_t room = static_cast<std::size_t>(end - to);
        const std::size_t n = name.length();
        if (room > 0)
            *to++ = '/';
        const std::size_t fits = n < room ? n : (room > 0 ? room - 1 : 0);
        std::memcpy(to, name.c_str(), fits);
        to += fits;
        if (fits < n)
            return false;
    }
    return true;
}

int xml_reader::run(xml_handler* handler, bool whole_document)
{
    xml_handler* const chosen = handler ? handler : handler_;
    if (!chosen)
        return err::invalid_parameter;
    if (typeid(*chosen) == typeid(xml_node_handler)) {
        xml_scanner<xml_tree_sink> state(*this, *static_cast<xml_node_handler*>(chosen));
        set_handler(chosen);
        return guarded(state, whole_document);
    }
    xml_scanner<event_sink> state(*this);
    set_handler(chosen);
    return guarded(state, whole_document);
}

xml_reader::xml_reader() : handler_(nullptr), state_(nullptr), error_ {} {}

xml_reader::xml_reader(const xml_reader& other) : reader(other), handler_(nullptr), state_(nullptr), error_ {} {}

xml_reader& xml_reader::operator=(const xml_reader& other)
{
    reader::operator=(other);
    return *this;
}

xml_reader::~xml_reader() {}

void xml_reader::set_handler(xml_handler* handler)
{
    handler_ = handler;
    if (handler)
        handler->set_reader(this);
}

int xml_reader::read_doc(xml_handler* handler) { return run(handler, true); }

int xml_reader::read_node(xml_handler* handler) { return run(handler, false); }

share_str_page* xml_reader::page() const { return state_ ? &state_->builder_.page() : nullptr; }

int xml_reader::get_path(char* buffer, unsigned size) const
{
    if (!buffer || size == 0)
        return err::invalid_parameter;
    char* to = buffer;
    const bool whole = !state_ || state_->print_path(to, buffer + size - 1);
    *to = '\0';
    return whole ? static_cast<int>(to - buffer) : err::overflow;
}

// The level `up` levels around the current one, or null.
level* xml_reader_state::around(std::size_t up)
{
    return depth_ > up ? &levels_[depth_ - 1 - up] : nullptr;
}

void xml_reader::set_para(void* para)
{
    if (level* const here = state_ ? state_->around(0) : nullptr)
        here->para = para;
}

void* xml_reader::get_para() const
{
    const level* const here = state_ ? state_->around(0) : nullptr;
    return here ? here->para : nullptr;
}

void* xml_reader::get_parent_para() const
{
    const level* const outer = state_ ? state_->around(1) : nullptr;
    return outer ? outer->para : nullptr;
}
