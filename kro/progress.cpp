// A thread of its own waits for the time to show the line. So a command need not look at
// the clock, and one that waits inside the library, for a pipe or for a peer, is shown too.
// Without a terminal there is no thread.
#include "progress.h"

#include "console.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using clock_type = std::chrono::steady_clock;

constexpr std::chrono::seconds delay(2);
constexpr std::chrono::milliseconds interval(250);

/// As much of the text as has room; what could steer a terminal becomes "?".
std::string shown_text(std::string text, std::size_t room)
{
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ' || c == 127)
            c = '?';
    if (text.size() <= room)
        return text;
    std::size_t end = room > 3 ? room - 3 : 0;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end; // inside a character of several bytes
    return text.substr(0, end) + (end > 0 ? "..." : "");
}

/// "999 bytes", "1.0 kB", "12.3 MB".
std::string size_text(std::uint64_t bytes)
{
    if (bytes < 1000)
        return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
    const char* unit = "kMGTPE";
    double size = static_cast<double>(bytes) / 1000;
    for (; size >= 999.95; size /= 1000)
        ++unit;
    char text[32];
    std::snprintf(text, sizeof text, "%.1f %cB", size, *unit);
    return text;
}

class line {
public:
    ~line() { stop(); }

    /// Null stands for a lent terminal.
    void begin(const progress* work);
    void end();
    void before_output();
    void print(std::FILE* to, const std::string& lines);

private:
    bool is_working() const { return !stack_.empty() && stack_.back(); }
    template <class CHANGE> void change(CHANGE change);
    void start();
    void stop();
    void tick();
    void show();
    void take_away();
    void take_away_for_good();

    const bool has_terminal_ = is_shown_error();
    const bool shares_terminal_ = has_terminal_ && is_shown_output();
    std::vector<const progress*> stack_;
    clock_type::time_point since_;
    std::mutex lock_;
    std::condition_variable over_;
    std::thread ticker_;
    bool is_over_ = true;
    std::size_t width_ = 0; // of what stands there
    std::string text_;
};

void line::begin(const progress* work)
{
    change([=] { stack_.push_back(work); });
}

void line::end()
{
    change([this] { stack_.pop_back(); });
}

// The ticker runs as long as the last of the stack is a piece of work.
template <class CHANGE> void line::change(CHANGE change)
{
    if (!has_terminal_)
        return;
    const bool was_working = is_working();
    {
        const std::lock_guard<std::mutex> guard(lock_);
        change();
        if (is_working() && !stack_.back()->is_shown())
            take_away();
    }
    if (was_working && !is_working())
        stop();
    else if (!was_working && is_working())
        start();
}

void line::start()
{
    since_ = clock_type::now();
    is_over_ = false;
    try {
        ticker_ = std::thread([this] { tick(); });
    } catch (const std::system_error&) {
        // No thread to be had: the work is done unseen.
    }
}

void line::stop()
{
    take_away_for_good();
    if (ticker_.joinable())
        ticker_.join();
}

void line::tick()
{
    std::unique_lock<std::mutex> guard(lock_);
    for (auto next = since_ + delay; !over_.wait_until(guard, next, [this] { return is_over_; });
         next = clock_type::now() + interval)
        show();
}

// Whatever stands to the right is written over: every terminal knows the carriage return. The
// cursor stays behind the text, where the signs of an interruption do no harm.
void line::show()
{
    const unsigned width = shown_columns();
    if (width == 0 || !is_working() || !stack_.back()->is_shown())
        return;
    const progress& work = *stack_.back();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(clock_type::now() - since_);
    const std::string end = work.amount() + ", " + std::to_string(seconds.count()) + " s";
    const std::size_t room = width - 1; // a full row would wrap
    const std::string text = shown_text(shown_text("kro: " + work.work(), room > end.size() ? room - end.size() : 0) + end, room);
    if (width_ > 0 && text == text_)
        return;
    std::fprintf(stderr, "\r%s%s\r%s", text.c_str(), std::string(room - text.size(), ' ').c_str(), text.c_str());
    std::fflush(stderr);
    width_ = room;
    text_ = text;
}

void line::take_away()
{
    if (width_ > 0 && shown_columns() > 0) {
        std::fprintf(stderr, "\r%s\r", std::string(width_, ' ').c_str());
        std::fflush(stderr);
    }
    width_ = 0;
}

void line::take_away_for_good()
{
    const std::lock_guard<std::mutex> guard(lock_);
    is_over_ = true;
    take_away();
    over_.notify_all();
}

void line::before_output()
{
    if (shares_terminal_)
        take_away_for_good();
}

void line::print(std::FILE* to, const std::string& lines)
{
    std::unique_lock<std::mutex> held(lock_, std::defer_lock);
    if (to == stderr || (to == stdout && shares_terminal_)) {
        held.lock();
        take_away();
    }
    std::fwrite(lines.data(), 1, lines.size(), to);
    std::fflush(to);
}

line& the_line()
{
    static line only;
    return only;
}

} // namespace

progress::progress(const std::string& work, when shown)
    : work_(work), is_shown_(shown == always || !is_shown_output())
{
    the_line().begin(this);
}

progress::~progress() { the_line().end(); }

std::string progress::amount() const
{
    std::string text;
    const std::uint64_t whole = whole_;
    if (whole > 0)
        text += ", " + std::to_string(static_cast<unsigned>(static_cast<double>(done_) * 100 / static_cast<double>(whole))) + " %";
    const std::uint64_t things = things_;
    if (const char* const unit = unit_)
        text += ", " + std::to_string(things) + " " + unit + (things == 1 ? "" : "s");
    const std::uint64_t bytes = bytes_;
    return bytes > 0 ? text + ", " + size_text(bytes) : text;
}

lent_terminal::lent_terminal(bool is_lent) : is_lent_(is_lent)
{
    if (is_lent_)
        the_line().begin(nullptr);
}

lent_terminal::~lent_terminal()
{
    if (is_lent_)
        the_line().end();
}

void print_message(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    std::string text(static_cast<std::size_t>(std::max(std::vsnprintf(nullptr, 0, format, arguments), 0)), '\0');
    std::vsnprintf(&text[0], text.size() + 1, format, again);
    va_end(again);
    va_end(arguments);
    print_lines(stderr, text);
}

void print_lines(std::FILE* to, const std::string& lines) { the_line().print(to, lines); }

void before_output() { the_line().before_output(); }

watched_stream::watched_stream(std::ostream& out, progress& work) : out_(out), work_(work), target_(out.rdbuf())
{
    // What nobody sees at once is collected, so that counting costs little.
    if (!is_shown_output())
        setp(collected_, collected_ + sizeof collected_);
    if (is_shown_error())
        out_.rdbuf(this);
}

watched_stream::~watched_stream()
{
    // Changing the buffer forgets that writing failed.
    std::ios::iostate state = out_.rdstate();
    if (!hand_on())
        state |= std::ios::badbit;
    out_.rdbuf(target_);
    out_.setstate(state);
}

// What is collected goes to the stream. False when that failed.
bool watched_stream::hand_on()
{
    const std::streamsize size = pptr() - pbase();
    const bool done = size == 0 || write(pbase(), size) == size;
    setp(pbase(), epptr());
    return done;
}

std::streamsize watched_stream::write(const char* text, std::streamsize size)
{
    if (&out_ == &std::cout)
        before_output();
    work_.add(0, static_cast<std::uint64_t>(size));
    return target_->sputn(text, size);
}

watched_stream::int_type watched_stream::overflow(int_type c)
{
    const char text = traits_type::to_char_type(c);
    const bool is_end = traits_type::eq_int_type(c, traits_type::eof());
    return hand_on() && (is_end || write(&text, 1) == 1) ? traits_type::not_eof(c) : traits_type::eof();
}

std::streamsize watched_stream::xsputn(const char* text, std::streamsize size)
{
    if (size > epptr() - pptr())
        return hand_on() ? write(text, size) : 0;
    std::memcpy(pptr(), text, static_cast<std::size_t>(size));
    pbump(static_cast<int>(size));
    return size;
}

int watched_stream::sync() { return hand_on() ? target_->pubsync() : -1; }
