// Status codes and their messages, and the run-time error.
//
// The registry is a plain array of one entry for each class: initialised before
// any code runs, unlocked, and never owning a text.
#include <stdkro/xcpt.h>

#include "bug.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

// ORDER messages
const char* const bug_texts[] = { "<BUG NONE>", "internal error", "divide zero", "not initialized", "non left-value",
                                  "non right-value", "illegal operator", "bad argument", "overflow", "underflow" };
const char* const panic_texts[] = { "<PANIC NONE>", "overrun", "out of memory", "little of resource" };
// KEEP: "unexcepted", "not implement" and "invalidate parameter" are misspelt; programs compare these texts.
const char* const runtime_texts[]
    = { "<RUNTIME NONE>", "failed", "file system error", "execute process failed", "not exist", "syntax error",
        "unexcepted", "abnormal end", "undefined symbol", "duplicated symbol", "conflict", "not implement",
        "timeout", "reject required", "invalidate parameter", "abnormal type cast", "exit", "unprepared" };
const char* const network_texts[]
    = { "<NETWORK NONE>", "network error", "have been shut up", "connection reset", "receive error", "send error",
        "connection error", "unblock socket fail", "interrupted by signal",
        "connection have been shut up by the peer", "setsockopt failed" };

struct message_class {
    unsigned count;
    const char* const* texts;
};

template <unsigned n> constexpr message_class class_of(const char* const (&texts)[n]) { return { n, texts }; }

constexpr unsigned class_count = 16;
message_class registry[class_count]
    = { class_of(bug_texts), class_of(panic_texts), class_of(runtime_texts), class_of(network_texts) };

} // namespace

xrterror::xrterror() : xcpt(0, nullptr)
{
    text_[0] = '\0';
    msg_ = text_;
}

xrterror::xrterror(int err, const char* format, ...) : xcpt(err, nullptr)
{
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text_, sizeof text_, format, arguments);
    va_end(arguments);
    text_[sizeof text_ - 1] = '\0';
    msg_ = text_;
}

xrterror::xrterror(const xrterror& other) : xcpt(other.err_, nullptr)
{
    std::memcpy(text_, other.text_, sizeof text_);
    msg_ = text_;
}

xrterror& xrterror::operator=(const xrterror& other)
{
    err_ = other.err_;
    std::memmove(text_, other.text_, sizeof text_);
    msg_ = text_; // an `xcpt` may have been assigned in between
    return *this;
}

const char* get_err_info(int code)
{
    if (code >= 0)
        return "<OK>";
    const unsigned major = static_cast<unsigned>(code) >> 16 & 0x7FFF;
    const unsigned minor = static_cast<unsigned>(code) & 0xFFFF;
    if (major >= class_count)
        return "<MAJOR ERROR>";
    const message_class& messages = registry[major];
    if (!messages.texts)
        return "<MAJOR NONE>";
    if (minor >= messages.count)
        return "<MINOR ERROR>";
    return messages.texts[minor];
}

// KEEP: `major` is not checked; callers are trusted with 0..15.
void set_err_info(int major, const char* const* table, unsigned count) { registry[major] = { count, table }; }

void report_bug(const char* module, int line) { std::printf("BUG at %s:%d!\n", module, line); }
