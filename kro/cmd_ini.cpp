// kro ini: prints and changes INI documents.
//
// The document is the library's; reading adds the line end that a last line may
// lack, because `ini_doc` cuts a byte off without it. Writing differs from
// `ini_doc` in two things that keep a file readable: pairs before the first header
// stay there, and lines end as they did.
#include "commands.h"
#include "files.h"
#include "progress.h"

#include <stdkro/ini_doc.h>
#include <stdkro/xcpt.h>

#include <cstdio>
#include <cstring>

namespace {

// What reading a file tells beside the document, and how far it is.
class checker : public ini_handler {
public:
    explicit checker(progress& work) : work_(work) {}

    int onBegin() override { return 0; }
    int onEnd(int result) override { return result; }
    int onError(int code, const char* message) override
    {
        error_message = message;
        return code;
    }
    int onSection(const char*, const char*) override { return step(); }
    int onKeyValue(const char*, const char*, const char*, const char*) override { return step(); }
    int onComment(const char*, const char*) override
    {
        ++comments;
        return step();
    }

    std::string error_message;
    int comments = 0;

private:
    int step()
    {
        work_.reached(get_reader()->get_pos(), get_reader()->get_size());
        return 0;
    }

    progress& work_;
};

struct ini_file {
    std::string path;
    ini_doc doc;
    int comments = 0;
    bool has_lost_bytes = false; // bytes that reading or writing cuts off
    const char* line_end = "\n";
};

// The line of the last character that was read.
int line_read(const ini_reader& in)
{
    const bool behind_line_feed = in.get_pos() > 0 && in.get_cur()[-1] == '\n';
    return in.get_line() - (behind_line_feed ? 1 : 0);
}

int check(ini_file& file, ini_reader& in, std::string& message)
{
    progress work("checking " + file.path);
    checker found(work);
    const int r = in.read_ini(&found);
    file.comments = found.comments;
    message = found.error_message;
    return r;
}

int fill(ini_file& file, ini_reader& in)
{
    const progress work("reading " + file.path);
    in.seek(0);
    return file.doc.read(in);
}

// Fills `file` or prints what is wrong. Returns the exit status.
int load(ini_file& file)
{
    std::string text;
    const int opened = read_whole_file(file.path, text);
    if (opened < 0)
        return report_error_in(file.path, opened);
    const std::size_t first_end = text.find('\n');
    if (first_end != std::string::npos && first_end > 0 && text[first_end - 1] == '\r')
        file.line_end = "\r\n";
    file.has_lost_bytes = text.find('\xFF') != std::string::npos || text.find('\0') != std::string::npos;
    if (!text.empty() && text.back() != '\n')
        text += '\n';

    ini_reader in;
    in.load_string(text.data(), text.data() + text.size(), false);
    std::string message;
    const int r = check(file, in, message);
    if (r < 0)
        return report_error_at(file.path, line_read(in), r, message.c_str());
    const int filled = fill(file, in);
    return filled < 0 ? report_error_in(file.path, filled) : exit_success;
}

std::string text_of(const ini_doc& doc, const char* line_end)
{
    std::string text;
    for (unsigned s = 0; s < doc.get_section_count(); ++s) {
        const ini_section& section = *doc.get_section(s);
        if (s > 0 || !section.get_name().isempty())
            text += std::string("[") + section.get_name().c_str() + "]" + line_end;
        for (unsigned i = 0; i < section.count(); ++i)
            text += std::string(section[i].get_name().c_str()) + "=" + section[i].get_value().c_str() + line_end;
    }
    return text;
}

// Texts are written up to their first NUL.
bool is_alike(const share_str& one, const share_str& other) { return std::strcmp(one.c_str(), other.c_str()) == 0; }

// True if the document comes back from what would be written.
bool is_restored(const ini_doc& doc)
{
    const progress work("checking what is to be written");
    const std::string text = text_of(doc, "\n");
    ini_reader in;
    in.load_string(text.data(), text.data() + text.size(), false);
    ini_doc back;
    if (back.read(in) < 0 || back.get_section_count() != doc.get_section_count())
        return false;
    for (unsigned s = 0; s < doc.get_section_count(); ++s) {
        const ini_section& one = *doc.get_section(s);
        const ini_section& other = *back.get_section(s);
        bool same = is_alike(one.get_name(), other.get_name()) && one.count() == other.count();
        for (unsigned i = 0; same && i < one.count(); ++i)
            same = is_alike(one[i].get_name(), other[i].get_name()) && is_alike(one[i].get_value(), other[i].get_value());
        if (!same)
            return false;
    }
    return true;
}

int refuse(const ini_file& file, const std::string& why)
{
    print_message("%s: %s; nothing was written\n", file.path.c_str(), why.c_str());
    return exit_failure;
}

int save(const ini_file& file, bool forced)
{
    if (!forced && file.comments > 0)
        return refuse(file, "writing drops " + std::to_string(file.comments)
                          + (file.comments == 1 ? " comment" : " comments") + ", use --force if they may go");
    if (!forced && file.has_lost_bytes)
        return refuse(file, "writing drops what stands behind bytes 0 and 255, use --force if it may go");
    if (!is_restored(file.doc))
        return refuse(file, "the name or value cannot be written in an INI file");
    const int r = replace_file(file.path, text_of(file.doc, file.line_end));
    return r < 0 ? report_error_in(file.path, r) : exit_success;
}

int not_found(const ini_file& file, const std::string& section)
{
    return report_error_in(file.path + ": [" + section + "]", err::not_exist);
}

int not_found(const ini_file& file, const std::string& section, const std::string& name)
{
    return report_error_in(file.path + ": [" + section + "] " + name, err::not_exist);
}

int print(const ini_file& file)
{
    return print_text(text_of(file.doc, "\n"));
}

int get(ini_file& file, const arguments& words, bool)
{
    const ini_section* const section = file.doc.find_section(words[0].c_str());
    const attribute* const pair = section ? section->find_attr(words[1].c_str()) : nullptr;
    if (!pair)
        return not_found(file, words[0], words[1]);
    std::printf("%s\n", pair->get_value().c_str());
    return exit_success;
}

int set_value(ini_doc& doc, const std::string& name, const std::string& key, const std::string& value)
{
    ini_section* section = doc.find_section(name.c_str());
    if (!section)
        // Pairs without a section stand before all headers.
        section = name.empty() ? doc.add_section(0, share_str()) : doc.add_section(name.c_str());
    if (section->get_name().length() != name.size())
        return err::out_of_memory;
    return section->write(key.c_str(), value.c_str());
}

int set(ini_file& file, const arguments& words, bool forced)
{
    const int r = set_value(file.doc, words[0], words[1], words[2]);
    return r < 0 ? report_error_in(file.path, r) : save(file, forced);
}

int unset(ini_file& file, const arguments& words, bool forced)
{
    ini_section* const section = file.doc.find_section(words[0].c_str());
    const int i = section ? section->find_attr(0, words[1].c_str()) : -1;
    if (i < 0)
        return not_found(file, words[0], words[1]);
    section->remove_attr(static_cast<unsigned>(i));
    // Without a header and without pairs there is nothing to write.
    if (section->count() == 0 && section->get_name().isempty())
        file.doc.remove_section(0);
    return save(file, forced);
}

int list(ini_file& file, const arguments& words, bool)
{
    if (words.empty()) {
        for (const ini_section* section : file.doc.get_sections())
            std::printf("%s\n", section->get_name().c_str());
        return exit_success;
    }
    const ini_section* const section = file.doc.find_section(words[0].c_str());
    if (!section)
        return not_found(file, words[0]);
    for (unsigned i = 0; i < section->count(); ++i)
        std::printf("%s=%s\n", (*section)[i].get_name().c_str(), (*section)[i].get_value().c_str());
    return exit_success;
}

const struct {
    const char* name;
    int (*run)(ini_file& file, const arguments& words, bool forced);
} actions[] = { { "get", get }, { "set", set }, { "unset", unset }, { "list", list } };

} // namespace

int ini_command(const command_words& words)
{
    arguments rest = words.operands;
    ini_file file;
    file.path = rest[0];
    rest.erase(rest.begin());
    const int status = load(file);
    if (status != exit_success || rest.empty())
        return status == exit_success ? print(file) : status;
    const std::string name = rest[0];
    rest.erase(rest.begin());
    const auto* chosen = actions;
    while (name != chosen->name)
        ++chosen;
    return chosen->run(file, rest, words.has("force"));
}
