// What a command that works for long shows meanwhile: a line on standard error, where
// that is a terminal.
//
//     kro: reading big.xml, 45 %, 12 s
//
// There is one line, and a stack of what is going on. `run_guarded` begins with the
// command as a whole; inside, a command names the pieces of its work. Two seconds after
// the first began, the line tells of the last that goes on; what is written to the same
// terminal takes the line away first.
#ifndef STDKRO_KRO_PROGRESS_H
#define STDKRO_KRO_PROGRESS_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <streambuf>
#include <string>

/// One piece of work, from its construction to its destruction. Pieces may be nested.
class progress {
public:
    enum when {
        always,
        /// For a command that does little but print: on a terminal its output is progress enough.
        unless_output_is_seen
    };

    /// `work` is what the line tells: "scanning big.txt".
    explicit progress(const std::string& work, when shown = always);
    ~progress();
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    /// How much of the whole is done, shown as a percentage; a whole of 0 is not known.
    /// This and `add` cost next to nothing.
    void reached(std::uint64_t done, std::uint64_t whole)
    {
        whole_.store(whole, std::memory_order_relaxed);
        done_.store(done, std::memory_order_relaxed);
    }
    /// What `add` counts: "connection". A text that lives as long.
    void counts(const char* unit) { unit_ = unit; }
    /// So many more things, and bytes, are done. One thread calls.
    void add(std::uint64_t things, std::uint64_t bytes)
    {
        things_.store(things_.load(std::memory_order_relaxed) + things, std::memory_order_relaxed);
        bytes_.store(bytes_.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
    }

    /// What is done: "reading big.xml", and behind it how far that is: ", 45 %".
    const std::string& work() const { return work_; }
    std::string amount() const;
    bool is_shown() const { return is_shown_; }

private:
    const std::string work_;
    const bool is_shown_;
    std::atomic<const char*> unit_ { nullptr };
    std::atomic<std::uint64_t> done_ { 0 };
    std::atomic<std::uint64_t> whole_ { 0 };
    std::atomic<std::uint64_t> things_ { 0 };
    std::atomic<std::uint64_t> bytes_ { 0 };
};

/// While it lives, and `is_lent`, the terminal belongs to a person who types, or to a program:
/// no line is shown, and no thread is there to show one. What begins in it, and what goes on
/// behind it, has its own two seconds.
class lent_terminal {
public:
    explicit lent_terminal(bool is_lent);
    ~lent_terminal();
    lent_terminal(const lent_terminal&) = delete;
    lent_terminal& operator=(const lent_terminal&) = delete;

private:
    const bool is_lent_;
};

/// Writes a message to standard error as `printf` does: whole lines, the line of progress
/// taken away before them. It may come back behind them.
[[gnu::format(printf, 1, 2)]] void print_message(const char* format, ...);
/// The same for any text and stream, which is flushed.
void print_lines(std::FILE* to, const std::string& lines);

/// To be called before output that the work makes: where it goes to the terminal too, it
/// shows the progress from here on, and the line does not come back.
void before_output();

/// While it lives: counts the bytes that are written to the stream, and calls `before_output`
/// where that is `std::cout`. All has reached the stream when it is destroyed.
class watched_stream : private std::streambuf {
public:
    watched_stream(std::ostream& out, progress& work);
    ~watched_stream() override;
    watched_stream(const watched_stream&) = delete;
    watched_stream& operator=(const watched_stream&) = delete;

private:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;
    int sync() override;

    bool hand_on();
    std::streamsize write(const char* text, std::streamsize size);

    std::ostream& out_;
    progress& work_;
    std::streambuf* const target_;
    char collected_[8192];
};

#endif
