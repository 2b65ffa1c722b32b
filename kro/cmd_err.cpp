// kro err: the messages of status codes.
#include "commands.h"

#include <stdkro/xcpt.h>

#include <charconv>
#include <cstdint>
#include <cstdio>

namespace {

// code := ('0x' | '0X') hexadecimal of 32 bits | ['-'] decimal of 32 bits
bool read_code(const std::string& word, int& code)
{
    const bool hexadecimal = word.size() > 2 && word[0] == '0' && (word[1] == 'x' || word[1] == 'X');
    const char* const begin = word.data() + (hexadecimal ? 2 : 0);
    const char* const end = word.data() + word.size();
    std::int64_t value = 0;
    const std::from_chars_result read = std::from_chars(begin, end, value, hexadecimal ? 16 : 10);
    const bool sign_in_digits = hexadecimal && *begin == '-';
    if (read.ec != std::errc() || read.ptr != end || sign_in_digits || value < INT32_MIN || value > UINT32_MAX)
        return false;
    code = static_cast<int>(static_cast<std::uint32_t>(value));
    return true;
}

} // namespace

int err_command(const command_words& words)
{
    std::vector<int> codes;
    for (const std::string& word : words.operands) {
        codes.push_back(0);
        if (!read_code(word, codes.back()))
            throw usage_error { "'" + word + "' is not a status code" };
    }
    for (const int code : codes)
        std::printf("0x%08x: %s\n", static_cast<unsigned>(code), get_err_info(code));
    return exit_success;
}
