// What the commands on documents have in common: whole files, safe replacement,
// the library's GBK texts in the terminal's UTF-8.
#ifndef STDKRO_KRO_FILES_H
#define STDKRO_KRO_FILES_H

#include <cstdio>
#include <memory>
#include <string>

struct file_closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
/// A file that closes itself.
using file_pointer = std::unique_ptr<std::FILE, file_closer>;

/// Opens a file for reading its bytes; null when that fails, and for a folder.
file_pointer open_to_read(const std::string& path);

/// A file that must not be read is there too.
bool is_there(const std::string& path);

/// Reads all bytes of a file. 0, or 0x80020002.
int read_whole_file(const std::string& path, std::string& bytes);

/// Prints the text. Returns the exit status.
int print_text(const std::string& text);

/// Tells that standard output could not be written, unless its reader has gone. Returns `exit_failure`.
int report_lost_output();

/// Replaces a file's content: the bytes go to a new file beside it, which then takes
/// its name, so that the old content stays until the new one is on the disk. Keeps the
/// permissions; a link stays a link. 0, or 0x80020002 with the old content in place.
int replace_file(const std::string& path, const std::string& bytes);

/// Makes a file for writing that nobody else can read yet. Null where it cannot be made, with
/// EEXIST in `errno` where the name is taken, be it by a link that leads nowhere.
extern "C" std::FILE* make_file(const char* path); // "C", so that a test can stand in for it

/// Gives the file the permissions of the one of that name; false when that failed.
bool give_permissions(std::FILE* file, const char* path);

/// Hands all that was written to the disk itself; false when that failed.
bool flush_to_disk(std::FILE* file);

/// GBK as UTF-8; bytes that are no GBK become U+FFFD.
std::string utf8_of_gbk(const std::string& text);

/// Prints "FILE:LINE: error 0x...: MESSAGE" to standard error, the message in GBK or,
/// without one, the text of `code`. Returns `exit_failure`.
int report_error_at(const std::string& path, int line, int code, const char* message);
/// The same for a file as a whole: "FILE: error 0x...: MESSAGE".
int report_error_in(const std::string& path, int code, const char* message = nullptr);

#endif
