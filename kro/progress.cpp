// A thread of its own waits for the time to show the line, so that the work need not
// look at the clock.
#include "progress.h"

#include "console.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

using clock_type = std::chrono::steady_clock;

constexpr std::chrono::seconds delay(2);
constexpr std::chrono::milliseconds interval(250);

} // namespace

struct progress::display {
    explicit display(const std::string& what) : work(what), begin(clock_type::now()), ticker([this] { run(); }) {}
    ~display()
    {
        end();
        ticker.join();
    }

    /// Takes the line away, and shows none from here on.
    void end()
    {
        const std::lock_guard<std::mutex> guard(lock);
        if (is_over)
            return;
        is_over = true;
        show("");
        over.notify_all();
    }

    void run()
    {
        std::unique_lock<std::mutex> guard(lock);
        for (auto next = begin + delay; !over.wait_until(guard, next, [this] { return is_over; });
             next = clock_type::now() + interval)
            show(text());
    }

    std::string text() const
    {
        std::string line = "kro: " + work;
        const std::uint64_t all = whole;
        if (all > 0)
            line += ", " + std::to_string(static_cast<unsigned>(static_cast<double>(done) * 100 / static_cast<double>(all))) + " %";
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(clock_type::now() - begin);
        return line + ", " + std::to_string(seconds.count()) + " s";
    }

    /// Writes over the present line: every terminal knows the carriage return.
    void show(const std::string& line)
    {
        if (line.empty() && shown == 0)
            return;
        std::string all = "\r" + line;
        if (line.size() < shown)
            all.append(shown - line.size(), ' ');
        if (line.empty())
            all += "\r";
        shown = line.size();
        std::fputs(all.c_str(), stderr);
        std::fflush(stderr);
    }

    const std::string work;
    const clock_type::time_point begin;
    const bool shares_terminal = is_shown_output();
    bool has_output = false;
    std::atomic<std::uint64_t> done { 0 };
    std::atomic<std::uint64_t> whole { 0 };
    std::mutex lock;
    std::condition_variable over;
    bool is_over = false;
    std::size_t shown = 0;
    std::thread ticker; // the last member: it uses the others
};

progress::progress(const std::string& work)
{
    if (!is_shown_error())
        return;
    try {
        display_ = std::make_unique<display>(work);
    } catch (const std::system_error&) {
        // No thread to be had: the work is done unseen.
    }
}

progress::~progress() = default;

void progress::reached(std::uint64_t done, std::uint64_t whole)
{
    if (!display_)
        return;
    display_->done.store(done, std::memory_order_relaxed);
    display_->whole.store(whole, std::memory_order_relaxed);
}

void progress::before_output()
{
    if (!shares_terminal() || display_->has_output)
        return;
    display_->has_output = true;
    display_->end();
}

bool progress::shares_terminal() const { return display_ && display_->shares_terminal; }

watched_stream::watched_stream(std::ostream& out, progress& work) : out_(out), work_(work), target_(out.rdbuf())
{
    if (work_.shares_terminal())
        out_.rdbuf(this);
}

watched_stream::~watched_stream()
{
    // Changing the buffer forgets that writing failed.
    const std::ios::iostate state = out_.rdstate();
    out_.rdbuf(target_);
    out_.setstate(state);
}

watched_stream::int_type watched_stream::overflow(int_type c)
{
    work_.before_output();
    return traits_type::eq_int_type(c, traits_type::eof()) ? traits_type::not_eof(c)
                                                           : target_->sputc(traits_type::to_char_type(c));
}

std::streamsize watched_stream::xsputn(const char* text, std::streamsize size)
{
    work_.before_output();
    return target_->sputn(text, size);
}

int watched_stream::sync() { return target_->pubsync(); }
