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

#include <cstdio>
#include <sstream>

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

void write_shown(const xml_doc& doc, bool pretty, std::ostream& out)
{
    progress work("writing");
    const watched_stream watched(out, work);
    doc.write(out, pretty);
}

std::string printed(const xml_doc& doc, bool pretty)
{
    std::ostringstream out;
    write_shown(doc, pretty, out);
    return out.str();
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

int refuse(const xml_file& file, const char* why)
{
    print_message("%s: %s; nothing was written\n", file.path.c_str(), why);
    return exit_failure;
}

// Reads what is to be written into `back`: where that fails, nothing is written.
bool is_readable(const std::string& text, xml_doc& back)
{
    progress work("reading what is to be written");
    failure failed;
    return read_text(text, back, failed, work) >= 0;
}

int save(const xml_file& file, const std::string& text)
{
    if (file.text.find('\xFF') != std::string::npos)
        return refuse(file, "writing drops what stands behind byte 255");
    const int r = replace_file(file.path, text);
    return r < 0 ? report_error_in(file.path, r) : exit_success;
}

int print_pretty(xml_file& file, const arguments&) { return print_text(printed(file.doc, true)); }

int print_compact(xml_file& file, const arguments&) { return print_text(printed(file.doc, false)); }

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

// Whether the value comes back from the text: texts come back without white space at
// their ends, attributes and comments as they are.
bool is_restored(const std::string& text, const std::string& path, const std::string& value)
{
    xml_doc back;
    if (!is_readable(text, back))
        return false;
    const std::string found = back.all()->get_value(path.c_str()).c_str();
    return found == value || found == trimmed(value);
}

int set(xml_file& file, const arguments& words)
{
    const int r = file.doc.all()->set_value(words[0].c_str(), words[1].c_str());
    if (r < 0)
        return report_path(file, words[0], r);
    const std::string text = printed(file.doc, true);
    if (!is_restored(text, words[0], words[1]))
        return refuse(file, "the value cannot be written in an XML file");
    return save(file, text);
}

int rm(xml_file& file, const arguments& words)
{
    const int r = file.doc.all()->rmdir(words[0].c_str());
    if (r < 0)
        return report_path(file, words[0], r);
    const std::string text = printed(file.doc, true);
    xml_doc back;
    if (!is_readable(text, back))
        return refuse(file, "a document cannot be without its root element");
    return save(file, text);
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
