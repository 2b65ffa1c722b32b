// kro messages: checks a language file and lists its numbered messages.
//
// `log_table` stops at the first mistake and has no lines; this reads the events of
// the file, finds all mistakes, and lists what a table would hold.
#include "commands.h"
#include "files.h"
#include "progress.h"

#include <stdkro/logger.h>
#include <stdkro/str.h>
#include <stdkro/xcpt.h>
#include <stdkro/xml_doc.h>

#include <cstdio>
#include <cstring>

namespace {

class language_checker : public xml_handler {
public:
    language_checker(const std::string& path, progress& work) : path_(path), work_(work) {}

    bool has_problem() const { return has_problem_; }

    int onBeginNode(const share_str& name, attributes& attrs) override
    {
        if (depth_ == 0)
            is_container_ = attrs.find_attr("language") != nullptr;
        if (depth_ == block_depth() && (depth_ == 0 || name == "lang"))
            begin_block(attrs);
        else if (is_child())
            child(name, attrs);
        ++depth_;
        return 0;
    }

    // What a table counts as children besides elements.
    int onText(const share_str& text) override
    {
        const bool is_blank = text.c_str()[std::strspn(text.c_str(), " \t\r\n")] == '\0';
        return is_blank ? 0 : other_child();
    }
    int onCDATA(const share_str&) override { return other_child(); }
    int onPI(const share_str&, attributes&) override { return other_child(); }

    int onEndNode(xml_node_t) override
    {
        work_.reached(get_reader()->get_pos(), get_reader()->get_size());
        --depth_;
        if (in_block_ && depth_ == block_depth())
            end_block();
        return 0;
    }

    void onError(int code, const char* message) override
    {
        report_error_at(path_, get_reader()->get_line(), code, message);
        has_problem_ = true;
    }

    int onEndDocument() override
    {
        if (blocks_ == 0)
            problem("there is no language block");
        return 0;
    }

private:
    int block_depth() const { return is_container_ ? 1 : 0; }
    bool is_child() const { return in_block_ && depth_ == block_depth() + 1; }

    void begin_block(const attributes& attrs)
    {
        in_block_ = true;
        ++blocks_;
        children_ = 0;
        number_ = 0;
        const share_str language = attrs.read("langid", "");
        if (!attrs.find_attr("langid"))
            problem("a language block needs the attribute langid");
        else if (is_container_ && language != "english" && language != "chinese")
            problem("langid is neither english nor chinese: nobody takes this block");
        before_output();
        std::printf("%s\n", language.c_str());
    }

    int other_child()
    {
        if (is_child()) {
            ++children_;
            is_last_message_ = false;
        }
        return 0;
    }

    void child(const share_str& name, const attributes& attrs)
    {
        ++children_;
        is_last_message_ = name == "log";
        if (!is_last_message_)
            return;
        ++number_;
        const share_str type = attrs.read("type", "");
        const share_str text = attrs.read("fmt", "");
        const std::string place = "message " + std::to_string(number_);
        if (attrs.find_attr("id") && attrs.read("id", -1) != number_)
            problem(place + " has the id " + attrs.read("id", "").c_str());
        if (read_level(type.c_str()) == lv_none)
            problem(place + " has no level: type is '" + type.c_str() + "'");
        if (text.isempty())
            problem(place + " has no fmt");
        else if (!is_usable(text))
            problem(place + " would have printf write to memory and is not used");
        before_output();
        std::printf("%5d %-6s %s\n", number_, type.c_str(), str::write_quote(text.c_str()).c_str());
    }

    // Asks a table that holds this text alone.
    bool is_usable(const share_str& text)
    {
        xml_node block("lang", XML_ELEMENT);
        block.get_attrs().write("langid", "");
        xml_node* const log = block.add("log", XML_ELEMENT);
        if (!log || !block.add("end", XML_ELEMENT))
            return true; // no memory to ask
        log->get_attrs().write("type", "hint");
        log->get_attrs().write("fmt", text);
        return table_.read_language(block) < 0 || table_[1].fmt != log_table::get_default().fmt;
    }

    void end_block()
    {
        in_block_ = false;
        if (children_ == 0)
            problem("the language block is empty");
        else if (is_last_message_ && number_ == children_)
            problem("message " + std::to_string(number_) + " is out of reach: end the block with another element");
    }

    void problem(const std::string& text)
    {
        has_problem_ = true;
        std::fflush(stdout);
        print_message("%s:%d: %s\n", path_.c_str(), get_reader()->get_line(), text.c_str());
    }

    const std::string path_;
    progress& work_;
    bool has_problem_ = false;
    bool is_container_ = false; // of one block for each language
    bool in_block_ = false;
    bool is_last_message_ = false;
    int depth_ = 0;
    int blocks_ = 0;
    int children_ = 0;
    int number_ = 0;
    log_table table_;
};

} // namespace

int messages_command(const command_words& words)
{
    const std::string& path = words.operands[0];
    std::string text;
    const int opened = read_whole_file(path, text);
    if (opened < 0)
        return report_error_in(path, opened);
    xml_reader in;
    in.load_string(text.data(), text.data() + text.size(), false);
    progress work("checking " + path);
    language_checker checker(path, work);
    const int r = in.read_doc(&checker);
    return r < 0 || checker.has_problem() ? exit_failure : exit_success;
}
