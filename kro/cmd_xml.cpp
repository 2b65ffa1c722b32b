// kro xml: prints and changes XML documents.
//
// Documents are read as programs mostly read them: texts without white space at their
// ends, comments kept. They are written in the library's own layout.
#include "commands.h"
#include "files.h"
#include "progress.h"

#include <stdkro/str.h>
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <cstdint>
#include <cstdio>
#include <sstream>
#include <streambuf>

namespace {

// Where and why reading failed.
struct failure {
    int code = 0;
    int line = 0;
    std::string message;
};

// Builds a tree, tells how far that is, and notes the failure.
class builder : public xml_node_handler {
public:
    builder(xml_node* target, failure& failed, progress& work)
        : xml_node_handler(target, false, true), failed_(failed), work_(work)
    {
    }
    void onError(int code, const char* message) override
    {
        failed_ = { code, get_reader()->get_line(), message };
    }
    int onEndNode(xml_node_t kind) override
    {
        work_.reached(get_reader()->get_pos(), get_reader()->get_size());
        return xml_node_handler::onEndNode(kind);
    }

private:
    failure& failed_;
    progress& work_;
};

int read_text(const std::string& text, xml_doc& doc, failure& failed, progress& work)
{
    xml_reader in;
    in.load_string(text.data(), text.data() + text.size(), false);
    builder handler(doc.all(), failed, work);
    return in.read_doc(&handler);
}

// ---- printing

// A stream's way to a file, or, without one, to a count of the bytes.
class counted_output : public std::streambuf {
public:
    explicit counted_output(progress& work) : work_(work) {}
    counted_output(progress& work, std::FILE* to, std::uint64_t whole) : work_(work), to_(to), whole_(whole) {}
    std::uint64_t count() const { return count_; }

private:
    std::streamsize xsputn(const char* text, std::streamsize size) override
    {
        work_.reached(count_, whole_);
        count_ += static_cast<std::uint64_t>(size);
        return to_ ? static_cast<std::streamsize>(std::fwrite(text, 1, static_cast<std::size_t>(size), to_)) : size;
    }

    progress& work_;
    std::FILE* const to_ = nullptr;
    const std::uint64_t whole_ = 0;
    std::uint64_t count_ = 0;
};

int write(const xml_doc& doc, bool pretty, counted_output& to)
{
    std::ostream out(&to);
    return doc.write(out, pretty);
}

// The text may be many times as large as the document: it is never kept, but made once more
// to know how much of it is done.
int print(const xml_doc& doc, bool pretty)
{
    progress work("printing", progress::unless_output_is_seen);
    counted_output whole(work);
    write(doc, pretty, whole);
    counted_output printed(work, stdout, whole.count());
    return write(doc, pretty, printed) < 0 ? report_lost_output() : exit_success;
}

void write_shown(const xml_doc& doc, std::ostream& out)
{
    progress work("writing");
    const watched_stream watched(out, work);
    doc.write(out, true);
}

// The text of a file.
int write_text(const xml_doc& doc, std::string& text)
{
    std::ostringstream out;
    write_shown(doc, out);
    if (!out)
        return err::out_of_memory; // nothing else fails there
    text = out.str();
    return err::ok;
}

// ---- dumps

std::string quoted(const share_str& text)
{
    std::string made = "\"";
    for (unsigned i = 0; i < text.length(); ++i)
        made += str::to_single(static_cast<unsigned char>(text[i]));
    return made + "\"";
}

std::string pair_text(const share_str& name, const share_str& value)
{
    return std::string(" ") + name.c_str() + "=" + quoted(value);
}

std::string pairs_text(const attributes& attrs)
{
    std::string made;
    for (unsigned i = 0; i < attrs.count(); ++i)
        made += pair_text(attrs[i].get_name(), attrs[i].get_value());
    return made;
}

// Prints a line for each event, behind the line of the text where it happened.
class event_printer : public xml_handler {
public:
    event_printer(failure& failed, progress& work) : failed_(failed), work_(work) {}
    int onBeginDocument() override { return print("begin document", ""); }
    int onEndDocument() override { return print("end document", ""); }
    void onError(int code, const char* message) override
    {
        failed_ = { code, get_reader()->get_line(), message };
    }
    int onBeginNode(const share_str& name, attributes& attrs) override
    {
        return print("begin element", std::string(" ") + name.c_str() + pairs_text(attrs));
    }
    int onEndNode(xml_node_t) override { return print("end element", ""); }
    int onAttribute(const share_str& name, const share_str& value) override
    {
        return print("attribute", pair_text(name, value));
    }
    int onPI(const share_str& name, attributes& attrs) override
    {
        return print("instruction", std::string(" ") + name.c_str() + pairs_text(attrs));
    }
    int onComment(const share_str& text) override { return print("comment", " " + quoted(text)); }
    int onText(const share_str& text) override { return print("text", " " + quoted(text)); }
    int onCDATA(const share_str& text) override { return print("cdata", " " + quoted(text)); }

private:
    int print(const char* event, const std::string& what)
    {
        work_.reached(get_reader()->get_pos(), get_reader()->get_size());
        before_output();
        std::printf("%d: %s%s\n", get_reader()->get_line(), event, what.c_str());
        return err::ok;
    }

    failure& failed_;
    progress& work_;
};

std::string describe(const xml_node& node)
{
    const std::string name = node.get_name().c_str();
    switch (node.get_type()) {
    case XML_TEXT: return "text " + quoted(node.get_name());
    case XML_CDATA: return "cdata " + quoted(node.get_name());
    case XML_COMMENT: return "comment " + quoted(node.get_name());
    case XML_PI: return "instruction " + name + pairs_text(node.get_attrs());
    case XML_DOCUMENT: return "document";
    case XML_ELEMENT: break;
    }
    return "element " + name + pairs_text(node.get_attrs());
}

void print_tree(const xml_node& top)
{
    int depth = 0;
    for (const xml_node* at = &top; at;) {
        std::printf("%*s%s\n", depth * 3, "", describe(*at).c_str());
        const xml_node* next = at->get_childs().ptr();
        depth += next != nullptr;
        while (!next && at != &top) {
            next = at->get_next();
            if (!next) {
                at = at->get_parent();
                --depth;
            }
        }
        at = next;
    }
}

// ---- actions

struct xml_file {
    std::string path;
    std::string text;
    xml_doc doc;
};

int report_failure(const xml_file& file, const failure& failed)
{
    return report_error_at(file.path, failed.line, failed.code, failed.message.c_str());
}

int read_shown(xml_file& file, failure& failed)
{
    progress work("reading " + file.path);
    return read_text(file.text, file.doc, failed, work);
}

int load(xml_file& file)
{
    failure failed;
    return read_shown(file, failed) < 0 ? report_failure(file, failed) : exit_success;
}

int report_path(const xml_file& file, const std::string& path, int code)
{
    return report_error_in(file.path + ": " + path, code);
}

int refuse(const xml_file& file, const std::string& why)
{
    print_message("%s: %s; nothing was written\n", file.path.c_str(), why.c_str());
    return exit_failure;
}

const char* const lost_bytes = "writing drops what stands behind byte 255";

bool has_byte_255(const std::string& text) { return text.find('\xFF') != std::string::npos; }

std::string describe(const failure& failed)
{
    char code[16];
    std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned>(failed.code));
    return "line " + std::to_string(failed.line) + " of what would be written: error " + code + ": "
        + (failed.message.empty() ? get_err_info(failed.code) : utf8_of_gbk(failed.message));
}

// Reads what is to be written. Returns why it cannot be read; empty where it can.
std::string trouble_reading_back(const std::string& text, xml_doc& back)
{
    if (has_byte_255(text))
        return lost_bytes;
    progress work("reading what is to be written");
    failure failed;
    return read_text(text, back, failed, work) < 0 ? describe(failed) : "";
}

// What is to be written, what is read of that, and why it cannot be read; empty where it can.
struct rewritten {
    std::string text;
    xml_doc back;
    std::string trouble;
};

// Returns the exit status.
int rewrite(const xml_file& file, rewritten& made)
{
    const int r = write_text(file.doc, made.text);
    if (r < 0)
        return report_error_in(file.path, r);
    made.trouble = trouble_reading_back(made.text, made.back);
    return exit_success;
}

int save(const xml_file& file, const std::string& text)
{
    if (has_byte_255(file.text))
        return refuse(file, lost_bytes);
    const int r = replace_file(file.path, text);
    return r < 0 ? report_error_in(file.path, r) : exit_success;
}

int print_pretty(xml_file& file, const arguments&) { return print(file.doc, true); }

int print_compact(xml_file& file, const arguments&) { return print(file.doc, false); }

int read_events(const xml_file& file, failure& failed)
{
    progress work("reading " + file.path);
    event_printer printer(failed, work);
    xml_reader in;
    in.load_string(file.text.data(), file.text.data() + file.text.size(), false);
    return in.read_doc(&printer);
}

int print_events(const xml_file& file)
{
    failure failed;
    const int r = read_events(file, failed);
    std::fflush(stdout);
    return r < 0 ? report_failure(file, failed) : exit_success;
}

int print_nodes(xml_file& file, const arguments&)
{
    print_tree(*file.doc.all());
    return exit_success;
}

int get(xml_file& file, const arguments& words)
{
    share_str value;
    const int r = file.doc.all()->get_value(words[0].c_str(), value);
    if (r < 0)
        return report_path(file, words[0], r);
    return print_text(std::string(value.c_str(), value.length()) + "\n");
}

std::string trimmed(const std::string& text)
{
    const char* const blanks = " \t\n\v\f\r";
    const std::size_t begin = text.find_first_not_of(blanks);
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

// Whether the value came back: texts come back without white space at their ends,
// attributes and comments as they are.
bool is_restored(xml_doc& back, const std::string& path, const std::string& value)
{
    const std::string found = back.all()->get_value(path.c_str()).c_str();
    return found == value || found == trimmed(value);
}

// Whether a plain value could be written in the place of the one that cannot.
bool is_place_writable(xml_file& file, const std::string& path)
{
    std::string text;
    xml_doc back;
    return file.doc.all()->set_value(path.c_str(), "1") >= 0 && write_text(file.doc, text) >= 0
        && trouble_reading_back(text, back).empty();
}

int set_value(xml_file& file, const std::string& path, const std::string& value)
{
    const share_str copy(value.c_str());
    if (copy.length() != value.size())
        return err::out_of_memory;
    return file.doc.all()->set_value(path.c_str(), copy);
}

int set(xml_file& file, const arguments& words)
{
    const std::string &path = words[0], &value = words[1];
    const int r = set_value(file, path, value);
    if (r < 0)
        return report_path(file, path, r);
    rewritten made;
    const int status = rewrite(file, made);
    if (status != exit_success)
        return status;
    if (!made.trouble.empty() && !is_place_writable(file, path))
        return refuse(file, made.trouble);
    if (!made.trouble.empty() || !is_restored(made.back, path, value))
        return refuse(file, "the value cannot be written in an XML file");
    return save(file, made.text);
}

int rm(xml_file& file, const arguments& words)
{
    const int r = file.doc.all()->rmdir(words[0].c_str());
    if (r < 0)
        return report_path(file, words[0], r);
    if (!file.doc.get_doc_node())
        return refuse(file, "a document cannot be without its root element");
    rewritten made;
    const int status = rewrite(file, made);
    if (status != exit_success)
        return status;
    return made.trouble.empty() ? save(file, made.text) : refuse(file, made.trouble);
}

// The options that print a document, and the actions on it.
const struct {
    const char* name;
    int (*run)(xml_file& file, const arguments& words);
} prints[] = { { "pretty", print_pretty }, { "compact", print_compact }, { "tree", print_nodes } },
  actions[] = { { "get", get }, { "set", set }, { "rm", rm } };

int run_action(xml_file& file, const command_words& words)
{
    const auto* chosen = actions;
    while (words.operands[1] != chosen->name)
        ++chosen;
    return chosen->run(file, arguments(words.operands.begin() + 2, words.operands.end()));
}

} // namespace

int xml_command(const command_words& words)
{
    xml_file file;
    file.path = words.operands[0];
    const int r = read_whole_file(file.path, file.text);
    if (r < 0)
        return report_error_in(file.path, r);
    if (words.has("events"))
        return print_events(file);
    const int status = load(file);
    if (status != exit_success)
        return status;
    if (words.operands.size() > 1)
        return run_action(file, words);
    for (const auto& print : prints)
        if (words.has(print.name))
            return print.run(file, {});
    return print_pretty(file, {});
}
