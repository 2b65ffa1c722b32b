#include "files.h"

#include "command.h"
#include "console.h"
#include "gbk_table.h"
#include "progress.h"

#include <stdkro/xcpt.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

namespace {

namespace fs = std::filesystem;

// A new file beside an old one. It goes away again unless it takes the old one's name.
class file_beside {
public:
    explicit file_beside(const fs::path& old);
    ~file_beside();
    file_beside(const file_beside&) = delete;
    file_beside& operator=(const file_beside&) = delete;

    /// These return false when that failed.
    bool fill(const std::string& bytes);
    bool replace();

private:
    const fs::path old_;
    fs::path name_;
    file_pointer file_;
    bool is_temporary_;
};

// Under the first name that nobody has: asking first would leave time to take it.
file_beside::file_beside(const fs::path& old) : old_(old)
{
    std::string end = ".new";
    for (int i = 2;; ++i) {
        name_ = old;
        name_ += end;
        file_.reset(make_file(name_.string().c_str()));
        if (file_ || errno != EEXIST)
            break;
        end = ".new" + std::to_string(i);
    }
    is_temporary_ = file_ != nullptr;
}

file_beside::~file_beside()
{
    file_.reset();
    std::error_code ignored;
    if (is_temporary_)
        fs::remove(name_, ignored);
}

bool file_beside::fill(const std::string& bytes)
{
    if (!file_)
        return false;
    const bool written = give_permissions(file_.get(), old_.string().c_str())
        && std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) == bytes.size() && flush_to_disk(file_.get());
    return std::fclose(file_.release()) == 0 && written;
}

bool file_beside::replace()
{
    std::error_code failure;
    fs::rename(name_, old_, failure);
    is_temporary_ = static_cast<bool>(failure);
    return !failure;
}

void append_utf8(std::string& to, unsigned c)
{
    if (c < 0x80) {
        to += static_cast<char>(c);
    } else if (c < 0x800) {
        to += static_cast<char>(0xC0 | c >> 6);
        to += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        to += static_cast<char>(0xE0 | c >> 12);
        to += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        to += static_cast<char>(0x80 | (c & 0x3F));
    }
}

constexpr unsigned no_character = 0xFFFD;

unsigned gbk_character(unsigned char first, unsigned char second)
{
    if (first < 0x81 || first == 0xFF || second < 0x40 || second == 0xFF)
        return no_character;
    const char16_t* const row = gbk_rows[first - 0x81];
    return *row ? row[second - 0x40] : no_character;
}

int print_error(const std::string& place, int code, const char* message)
{
    const std::string text = utf8_of_gbk(message && *message ? message : get_err_info(code));
    print_message("%s: error 0x%08x: %s\n", place.c_str(), static_cast<unsigned>(code), text.c_str());
    return exit_failure;
}

} // namespace

file_pointer open_to_read(const std::string& path)
{
    std::error_code ignored;
    return file_pointer(fs::is_directory(path, ignored) ? nullptr : std::fopen(path.c_str(), "rb"));
}

bool is_there(const std::string& path)
{
    const file_pointer file(std::fopen(path.c_str(), "rb"));
    return file || errno == EACCES;
}

int read_whole_file(const std::string& path, std::string& bytes)
{
    progress work("reading " + path);
    const file_pointer file = open_to_read(path);
    if (!file)
        return err::file_system;
    bytes.clear();
    char piece[65536];
    while (const std::size_t n = std::fread(piece, 1, sizeof piece, file.get())) {
        bytes.append(piece, n);
        work.add(0, n);
    }
    return std::ferror(file.get()) ? err::file_system : err::ok;
}

// A pipe is lost only by a reader who has gone, as "head" goes. He wants no message: where there are
// signals, one ends the program then.
int report_lost_output()
{
    return is_piped_output() ? exit_failure : report_error(err::file_system, "cannot write the output");
}

int print_text(const std::string& text)
{
    progress work("printing", progress::unless_output_is_seen);
    constexpr std::size_t most = 65536;
    for (std::size_t done = 0; done < text.size(); done += most) {
        work.reached(done, text.size());
        const std::size_t n = std::min(most, text.size() - done);
        if (std::fwrite(text.data() + done, 1, n, stdout) != n)
            return report_lost_output();
    }
    return exit_success;
}

int replace_file(const std::string& path, const std::string& bytes)
{
    std::error_code failure;
    const fs::path old = fs::canonical(path, failure);
    if (failure)
        return err::file_system;
    file_beside made(old);
    return made.fill(bytes) && made.replace() ? err::ok : err::file_system;
}

std::string utf8_of_gbk(const std::string& text)
{
    std::string made;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto first = static_cast<unsigned char>(text[i]);
        if (first < 0x80) {
            made += text[i];
            continue;
        }
        const auto second = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0xFF);
        const unsigned c = gbk_character(first, second);
        append_utf8(made, c);
        i += c != no_character; // what is no character costs one byte only
    }
    return made;
}

int report_error(int code, const char* message)
{
    print_message("error 0x%08x: %s\n", static_cast<unsigned>(code),
                 message && *message ? message : get_err_info(code));
    return exit_failure;
}

int report_error_at(const std::string& path, int line, int code, const char* message)
{
    return print_error(path + ":" + std::to_string(line), code, message);
}

int report_error_in(const std::string& path, int code, const char* message) { return print_error(path, code, message); }
