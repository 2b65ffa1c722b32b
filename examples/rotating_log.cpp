// Sinks and lines of one's own: a file that is renamed when it has grown, a filter by
// level, and a time in front of each line.
#include <stdkro/logger.h>
#include <stdkro/writer.h>
#include <stdkro/xcpt.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

// A file that becomes PATH.1 when the next text would make it longer than `limit`.
class rotating_writer : public writer {
public:
    rotating_writer(const std::string& path, std::size_t limit) : path_(path), limit_(limit), size_(0)
    {
        file_ = std::fopen(path_.c_str(), "w");
    }
    rotating_writer(const rotating_writer&) = delete;
    rotating_writer& operator=(const rotating_writer&) = delete;
    ~rotating_writer() override
    {
        if (file_)
            std::fclose(file_);
    }

    void write(const char* text) override
    {
        const std::size_t length = std::strlen(text);
        if (size_ > 0 && size_ + length > limit_)
            rotate();
        if (!file_)
            return;
        std::fputs(text, file_);
        std::fflush(file_);
        size_ += length;
    }
    bool is_valid() const override { return file_ != nullptr; }

private:
    void rotate()
    {
        const std::string old = path_ + ".1";
        if (file_)
            std::fclose(file_);
        std::remove(old.c_str());
        std::rename(path_.c_str(), old.c_str());
        file_ = std::fopen(path_.c_str(), "w");
        size_ = 0;
    }

    const std::string path_;
    const std::size_t limit_;
    std::size_t size_;
    std::FILE* file_;
};

// Hands on what is grave enough. Levels rise up to `bad`; `debug` stands behind them.
class level_filter : public log_writer {
public:
    explicit level_filter(err_level least) : least_(least) {}

    void write(const logctx& ctx, err_level level, const char* fmt, va_list arguments) override
    {
        if (level >= least_ && level != lv_debug)
            log_writer::write(ctx, level, fmt, arguments);
    }

private:
    const err_level least_;
};

// "2026-01-31, 23:59:59 [context] level: text"
class time_stamp : public log_formatter {
public:
    int format(char* dst, unsigned size, const logctx& ctx, err_level level, const char* fmt,
               va_list arguments) override
    {
        char now[24];
        print_time(now, static_cast<long>(std::time(nullptr)));
        const unsigned length = static_cast<unsigned>(std::snprintf(dst, size, "%s ", now));
        return log_formatter::format(dst + length, size - length, ctx, level, fmt, arguments);
    }
};

int main()
{
    rotating_writer file("rotating_log.txt", 200);
    time_stamp stamp;
    level_filter to_file(lv_warn);
    to_file.set_writer(&file);
    to_file.set_formatter(&stamp);
    logger::set_writer(&to_file);

    for (int i = 1; i <= 10; ++i) {
        logger::print(lv_hint, "step %d begins\n", i);
        logger::print(lv_warn, "step %d took long\n", i);
    }
    logger::set_writer(nullptr);
    std::printf("the last lines are in rotating_log.txt, those before in rotating_log.txt.1\n");
    return file.is_valid() ? 0 : 1;
}
