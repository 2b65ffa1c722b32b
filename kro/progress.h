// What a command that works for long shows meanwhile.
#ifndef STDKRO_KRO_PROGRESS_H
#define STDKRO_KRO_PROGRESS_H

#include <cstdint>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>

/// One piece of work. When it takes longer than two seconds, and standard error is a
/// terminal, a line there tells what is done and for how long, and goes when the work
/// does: "kro: scanning big.txt, 45 %, 12 s". Otherwise nothing happens.
class progress {
public:
    /// `work` is what the line tells: "scanning big.txt".
    explicit progress(const std::string& work);
    ~progress();
    progress(const progress&) = delete;
    progress& operator=(const progress&) = delete;

    /// How much of the whole is done, where that is known. Costs next to nothing.
    void reached(std::uint64_t done, std::uint64_t whole);
    /// To be called before the work writes to standard output: where that is a terminal
    /// too, the output itself shows the progress from here on.
    void before_output();
    /// Whether `before_output` has anything to do.
    bool shares_terminal() const;

private:
    struct display;
    std::unique_ptr<display> display_;
};

/// Calls `before_output` when the stream is written to, while it lives.
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

    std::ostream& out_;
    progress& work_;
    std::streambuf* const target_;
};

#endif
