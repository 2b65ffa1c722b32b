// The log: numbered messages in the chosen language, to the chosen sinks.
#pragma once
#include "settings.h"

#include <stdkro/logger.h>
#include <stdkro/xcpt.h>

// ORDER site/messages.xml
enum message {
    msg_serving = 1, msg_stopping, msg_stopped, msg_compiled, msg_script_error, msg_refused, msg_dropped,
    msg_cannot_listen, msg_loop_failed, msg_count
};

class journal {
public:
    /// Opens the sinks and reads the language file. 0 or a status.
    int open(const settings& from);
    /// "english" or "chinese". 0 or a status; then nothing changed.
    int set_language(const share_str& name);
    /// The texts are cut at 200 bytes.
    void write(message number, share_str a, share_str b = "", share_str c = "", share_str d = "") const;

private:
    share_str file_;
    log_table messages_;
    logctx context_ { "pages", 0, 0, &messages_, nullptr };
};
