// What the parts of the server share, and a socket in its loop.
#pragma once
#include "page.h"
#include <stdkro/poller.h>
#include <stdkro/thread.h>
#include <variant>

/// It owns all channels: those in the loop, and those that ended, until no handler runs.
struct common {
    settings& from;
    journal& log;
    std::variant<selector, poller, epoller> loop {};
    std::vector<std::unique_ptr<fdbase>> ended {};
    hmap<share_str, std::shared_ptr<page>> pages {}; // by path
    timer clock {};                                  // milliseconds since the start
    unsigned request_count = 0;
    share_str stopped_by {}; // "" while the server is to go on
    bool is_full = false;    // a listener waits for a channel to end

    ~common() { std::visit([](auto& l) { l.destroy(); }, loop); }
    void stop(const share_str& by) {
        if (!is_stopping())
            log.write(msg_stopping, by.c_str(), share_str::print_str("%u", channels().count() - 2).c_str());
        stopped_by = by;
    }
    bool is_stopping() const { return !stopped_by.isempty(); }
    const served_objects& channels() const {
        return std::visit([](auto& l) -> const served_objects& { return l; }, loop);
    }
};

struct channel : fdbase {
    channel(common& of, unsigned handle) : common_(of), socket_(handle) {}
    /// About once a second, and more often when the server stops or a channel ends.
    virtual void on_tick() = 0;
    int get_fd() override { return int(socket_.get_socket()); }
    int get_events(int& events) override { return events = events_, get_fd(); }
    /// Enters the loop, or tells it what else to wait for. Negative when the loop is full.
    int watch(int events) {
        if (std::exchange(events_, events) == events && index_ >= 0)
            return 0;
        if (index_ >= 0)
            return std::visit([=](auto& l) { return l.set_events(index_, events); }, common_.loop);
        return index_ = std::visit([=](auto& l) { return l.add(*this, events); }, common_.loop);
    }
    /// Leaves the loop. Always -1.
    int finish() {
        std::visit([&](auto& l) { l.remove(index_); }, common_.loop);
        common_.ended.emplace_back(this);
        return -1;
    }

protected:
    common& common_;
    Socket socket_;

private:
    int index_ = -1, events_ = 0;
};
